#include "tool/import/texture_import.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "engine/texture/pixel_format.h"
#include "engine/texture/texture.h"
#include "tool/import/input_file.h"
#include "tool/import/png_decode.h"

namespace fs = std::filesystem;

namespace {

std::string Lower(std::string text) {
    for (char& c : text) c = char(std::tolower((unsigned char)c));
    return text;
}

// The file a model names, tried as given (relative to the model's folder), then by its bare name
// beside the model; each with a case-insensitive match in its folder, as Windows data expects.
std::string FindTextureFile(const TextureSource& source) {
    std::string name = source.name;
    std::replace(name.begin(), name.end(), '\\', '/');
    fs::path folder = fs::path(source.modelPath).parent_path();
    std::vector<fs::path> candidates;
    fs::path given(name);
    candidates.push_back(given.is_absolute() ? given : folder / given);
    candidates.push_back(folder / given.filename());
    std::error_code error;
    for (const fs::path& candidate : candidates) {
        if (fs::is_regular_file(candidate, error)) return candidate.string();
        fs::path parent = candidate.parent_path().empty() ? fs::path(".") : candidate.parent_path();
        std::string wanted = Lower(candidate.filename().string());
        for (fs::directory_iterator it(parent, error), end; !error && it != end;
             it.increment(error))
            if (it->is_regular_file(error) && Lower(it->path().filename().string()) == wanted)
                return it->path().string();
    }
    return "";
}

bool LooksLikeJpeg(const std::vector<uint8_t>& bytes) {
    return bytes.size() >= 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF;
}

// Pixels as blue, green, red, alpha; the alpha channel is kept only where it says something.
CTexture* MakeTexture(uint32_t width, uint32_t height, const uint8_t* bgra) {
    size_t count = size_t(width) * height;
    bool alpha = false;
    for (size_t i = 0; i < count && !alpha; ++i) alpha = bgra[i * 4 + 3] != 255;
    CTexture* texture = CreateTexture(int32_t(width), int32_t(height),
                                      alpha ? TextureFormat8888 : TextureFormat8880);
    for (size_t i = 0; i < count; ++i)
        std::memcpy(texture->pixels + i * (alpha ? 4 : 3), bgra + i * 4, alpha ? 4 : 3);
    if (alpha) texture->flags |= TextureFlagAlpha;
    return texture;
}

// An image file's bytes as a texture; null with the reason in error.
CTexture* DecodeImage(const std::vector<uint8_t>& bytes, const std::string& kind,
                      std::string& error) {
    if (LooksLikePng(bytes.data(), bytes.size())) {
        ColourImage image;
        if (!DecodeColourPng(bytes.data(), bytes.size(), image, error)) return nullptr;
        return MakeTexture(image.width, image.height, image.pixels.data());
    }
    if (LooksLikeJpeg(bytes) || kind == "jpg" || kind == "jpeg") {
        error = "JPEG images are not read; convert it to PNG or TGA";
        return nullptr;
    }
    if (kind == "tga") {
        CTexture* texture = CreateEmptyTexture();
        if (!texture->LoadFromMemory(bytes.data(), bytes.size(), "colour map")) {
            FreeTexture(texture);
            error = "a damaged TGA file";
            return nullptr;
        }
        // The writer takes 24 and 32-bit pixels and 5550; anything else is widened.
        uint32_t format = texture->format;
        if (format != TextureFormat8880 && format != TextureFormat8888 &&
            format != TextureFormat5550)
            texture->Resize(texture->width, texture->height, TextureFormat8888);
        return texture;
    }
    error = "not an image format that is read here (PNG or TGA)";
    return nullptr;
}

// A file name for the TGA copy: the source's bare name with characters that mean something in
// a texture name ("!", "@", "#") or on a file system replaced, unique without regard to case.
std::string OutputName(const TextureSource& source, std::set<std::string>& taken) {
    std::string stem = fs::path(source.name).stem().string();
    if (stem.empty() || source.name[0] == '*')
        stem = fs::path(source.modelPath).stem().string() + "_texture" +
               (source.name.size() > 1 ? source.name.substr(1) : "");
    for (char& c : stem)
        if (!std::isalnum((unsigned char)c) && c != '-' && c != '_' && c != '.') c = '_';
    std::string name = stem + ".tga";
    for (int n = 2; taken.count(Lower(name)); ++n) name = stem + "_" + std::to_string(n) + ".tga";
    taken.insert(Lower(name));
    return name;
}

CTexture* StandInTexture() {
    enum { Side = 8 };
    std::vector<uint8_t> grey(Side * Side * 4, 128);
    return MakeTexture(Side, Side, grey.data());
}

}  // namespace

void LoadMaterialTextures(ImportScene& scene, ImportLog& log) {
    std::map<std::string, CTexture*> byKey;  // null: tried and failed
    std::set<std::string> names;
    for (ImportMaterial& material : scene.materials) {
        TextureSource& source = material.source;
        if (source.kind == TextureSource::None) continue;
        std::string where = source.modelPath + ": colour map " + source.name;
        std::string key = source.key, file;
        if (source.kind == TextureSource::File) {
            file = FindTextureFile(source);
            key = file.empty() ? "missing|" + source.modelPath + "|" + source.name : file;
        }
        auto known = byKey.find(key);
        if (known != byKey.end()) {
            material.texture = known->second;
            continue;
        }
        CTexture* texture = nullptr;
        std::string error;
        if (source.kind == TextureSource::File && file.empty()) {
            // Shadows need no colours: a lost image costs the map its look, never its geometry.
            log.Warning(where + ": not found beside the model; its faces get a plain grey "
                                "stand-in (--no-textures leaves colour maps out)");
            texture = StandInTexture();
        } else if (source.kind == TextureSource::File) {
            std::vector<uint8_t> bytes;
            if (ReadInputFile(file, bytes, error))
                texture = DecodeImage(bytes, LowerExtension(file), error);
            if (!error.empty()) error = file + ": " + error;
        } else if (source.kind == TextureSource::Encoded) {
            texture = DecodeImage(source.bytes, Lower(source.formatHint), error);
        } else if (source.width && source.height && source.width <= PngMaxSide &&
                   source.height <= PngMaxSide) {
            texture = MakeTexture(source.width, source.height, source.bytes.data());
        } else {
            error = "an embedded image of " + std::to_string(source.width) + " x " +
                    std::to_string(source.height) + " pixels";
        }
        if (texture) texture->SetName(OutputName(source, names).c_str());
        if (!texture) log.Error(where + ": " + error + "; its faces keep no texture");
        byKey[key] = texture;
        material.texture = texture;
    }
}

std::vector<CTexture*> SceneTextures(const ImportScene& scene) {
    std::vector<CTexture*> textures;
    for (const ImportMaterial& material : scene.materials)
        if (material.texture &&
            std::find(textures.begin(), textures.end(), material.texture) == textures.end())
            textures.push_back(material.texture);
    return textures;
}

void FreeSceneTextures(ImportScene& scene) {
    for (CTexture* texture : SceneTextures(scene)) FreeTexture(texture);
    for (ImportMaterial& material : scene.materials) material.texture = nullptr;
}
