#include "engine/texture/texture.h"

#include "base/memory.h"
#include "base/services.h"
#include "base/velmora_log.h"

namespace {

struct TextureNode {
    CTexture* texture;
    TextureNode* next;
};

TextureNode* TextureList = nullptr;

CTexture* AddToList(CTexture* texture) {
    TextureList = NEW TextureNode{texture, TextureList};
    return texture;
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
    locked = 0;
    FREE(pixels);
    FREE(name);
}

void CTexture::SetName(const char* text) {
    FREE(name);
    name = CopyString(text);
}

int32_t CTexture::GetPitch() const { return width * GetTextureBPP(format); }

int GetTextureBPP(uint32_t format) {
    switch (format) {
        case TextureFormat4444:
        case TextureFormat5550:
        case TextureFormat5551:
        case TextureFormat5650:
            return 2;
        case TextureFormat8880:
            return 3;
        case TextureFormat8888:
            return 4;
    }
    VelmoraFatal("GetTextureBPP", "Invalid Texture format %x\n", format);
}

CTexture* CreateEmptyTexture() { return AddToList(NEW CTexture); }

CTexture* CreateTexture(int32_t width, int32_t height, uint32_t format) {
    CTexture* texture = NEW CTexture;
    texture->width = width;
    texture->height = height;
    texture->format = format;
    size_t bytes = size_t(width > 0 ? width : 0) * size_t(height > 0 ? height : 0) *
                   size_t(GetTextureBPP(format));
    texture->pixels = static_cast<uint8_t*>(MALLOC(bytes ? bytes : 1));
    return AddToList(texture);
}

void FreeTexture(CTexture* texture) {
    for (TextureNode** link = &TextureList; *link; link = &(*link)->next) {
        if ((*link)->texture != texture) continue;
        TextureNode* node = *link;
        *link = node->next;
        DELETE(node->texture);
        DELETE(node);
        return;
    }
}

void FreeAllTextures() {
    while (TextureList) FreeTexture(TextureList->texture);
}

int CountTextures() {
    int count = 0;
    for (TextureNode* node = TextureList; node; node = node->next) ++count;
    return count;
}
