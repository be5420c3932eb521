#include "engine/texture/texture.h"

#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/services.h"
#include "base/velmora_log.h"

namespace {

struct TextureNode {
    CTexture* texture;
    TextureNode* next;
};

TextureNode* TextureList = nullptr;
TextureDeviceHooks DeviceHooks = {nullptr, nullptr};

CTexture* AddToList(CTexture* texture) {
    TextureList = NEW TextureNode{texture, TextureList};
    return texture;
}

size_t LevelBytes(int32_t width, int32_t height, int bpp) {
    return size_t(width > 0 ? width : 0) * size_t(height > 0 ? height : 0) * size_t(bpp);
}

}  // namespace

CTexture::CTexture()
    : pixels(nullptr),
      name(nullptr),
      width(0),
      height(0),
      flags(0),
      alphaSetting(0),
      format(0),
      mipLevels(0),
      stagingSurface(nullptr),
      surface(nullptr),
      depthSurface(nullptr),
      locked(0),
      lockDevice(nullptr),
      stage(0),
      decalTally(0) {}

CTexture::~CTexture() {
    if (locked) Unlock(lockDevice, 0);
    if (pixels) FREE(pixels);
    if (name) FREE(name);
}

void CTexture::SetName(const char* text) {
    if (name) FREE(name);
    name = CopyString(text);
}

int32_t CTexture::GetPitch() const {
    return width * GetTextureBPP(format);
}

bool CTexture::HasColourKey() const {
    size_t count = LevelBytes(width, height, 1);
    switch (format) {
        case TextureFormat4444:
        case TextureFormat5551:
        case TextureFormat8888:
            return false;
        case TextureFormat5550:
            for (size_t i = 0; pixels && i < count; ++i) {
                uint32_t v = uint32_t(pixels[i * 2]) | uint32_t(pixels[i * 2 + 1]) << 8;
                if ((v & 0x7FFF) == 0x7C1F) return true;
            }
            return false;
        case TextureFormat5650:
            for (size_t i = 0; pixels && i < count; ++i) {
                uint32_t v = uint32_t(pixels[i * 2]) | uint32_t(pixels[i * 2 + 1]) << 8;
                if (v == 0xF81F) return true;
            }
            return false;
        case TextureFormat8880:
            for (size_t i = 0; pixels && i < count; ++i) {
                const uint8_t* at = pixels + i * 3;
                if (at[0] == 255 && at[1] == 0 && at[2] == 255) return true;
            }
            return false;
    }
    VelmoraFatal("GetTexturePixel", "Unknown format %x\n", format);
}

int CTexture::Lock(CRenderer* device, uint32_t unused, TextureLock* out) {
    (void)unused;
    out->status = 0;
    if (locked) {
        CorvaneWarning("Texture already locked!\n");
        out->status = -1;
        return 0;
    }
    if (device && DeviceHooks.lockSurface && DeviceHooks.lockSurface(device, this, out)) {
        locked = 1;
        lockDevice = device;
        return 1;
    }
    locked = 1;
    lockDevice = nullptr;
    out->pixels = pixels;
    out->pitch = GetPitch();
    return GetTextureBPP(format);
}

void CTexture::Unlock(CRenderer* device, uint32_t unused) {
    (void)unused;
    if (!locked) CorvaneWarning("Unlocking a non-locked texture....\n");
    if (locked && lockDevice) {
        if (DeviceHooks.unlockSurface) DeviceHooks.unlockSurface(this);
    } else if (locked && device && surface && DeviceHooks.refillSurface) {
        DeviceHooks.refillSurface(device, this);
    }
    locked = 0;
    lockDevice = nullptr;
}

size_t TextureBlockSize(int32_t width, int32_t height, uint32_t format, uint32_t mipLevels) {
    int bpp = GetTextureBPP(format);
    size_t bytes = LevelBytes(width, height, bpp);
    for (uint32_t level = 0; level < mipLevels && width > 0 && height > 0; ++level) {
        width /= 2;
        height /= 2;
        bytes += LevelBytes(width, height, bpp);
    }
    return bytes;
}

CTexture* CreateEmptyTexture() {
    return AddToList(NEW CTexture);
}

CTexture* CreateTexture(int32_t width, int32_t height, uint32_t format) {
    CTexture* texture = NEW CTexture;
    texture->width = width;
    texture->height = height;
    texture->format = format;
    size_t bytes = TextureBlockSize(width, height, format, 0);
    texture->pixels = static_cast<uint8_t*>(MALLOC(bytes ? bytes : 1));
    return AddToList(texture);
}

CTexture* CreateTextureFromFile(const char* path) {
    CTexture* texture = CreateEmptyTexture();
    texture->LoadTGA(path);
    return texture;
}

CTexture* CreateTextureFromMemory(const uint8_t* image, size_t size, const char* name) {
    CTexture* texture = CreateEmptyTexture();
    texture->LoadFromMemory(image, size, name);
    return texture;
}

CTexture* CopyTexture(const CTexture* source) {
    CTexture* copy = NEW CTexture;
    copy->width = source->width;
    copy->height = source->height;
    copy->flags = source->flags;
    copy->alphaSetting = source->alphaSetting;
    copy->format = source->format;
    copy->mipLevels = source->mipLevels;
    copy->stage = source->stage;
    copy->decalTally = source->decalTally;
    // The copy starts unlocked and without surfaces: those belong to the source alone.
    if (source->pixels) {
        size_t bytes =
            TextureBlockSize(source->width, source->height, source->format, source->mipLevels);
        copy->pixels = static_cast<uint8_t*>(MALLOC(bytes ? bytes : 1));
        std::memcpy(copy->pixels, source->pixels, bytes);
    }
    copy->SetName(source->name);
    return AddToList(copy);
}

void FreeTexture(CTexture* texture) {
    for (TextureNode** link = &TextureList; *link; link = &(*link)->next) {
        if ((*link)->texture != texture) continue;
        TextureNode* node = *link;
        *link = node->next;
        if (DeviceHooks.releaseTexture) DeviceHooks.releaseTexture(texture);
        DELETE(node->texture);
        DELETE(node);
        return;
    }
}

void FreeAllTextures() {
    if (DeviceHooks.releaseAllTextures) DeviceHooks.releaseAllTextures();
    while (TextureList) FreeTexture(TextureList->texture);
}

int CountTextures() {
    int count = 0;
    for (TextureNode* node = TextureList; node; node = node->next) ++count;
    return count;
}

void ForEachTexture(void (*visit)(CTexture* texture, void* context), void* context) {
    for (TextureNode* node = TextureList; node; node = node->next) visit(node->texture, context);
}

void LogTexturesStillAllocated() {
    for (TextureNode* node = TextureList; node; node = node->next) {
        const char* name = node->texture->name;
        VelmoraLog("CloseVelmora()", "Texture still allocated %s", name ? name : "(null)");
    }
}

void SetTextureDeviceHooks(const TextureDeviceHooks* hooks) {
    DeviceHooks = hooks ? *hooks : TextureDeviceHooks{nullptr, nullptr};
}
