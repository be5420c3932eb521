#include "tool/import/bsp_level.h"

#include <cctype>
#include <cmath>
#include <utility>

#include "tool/import/input_file.h"

namespace {

std::string Lower(std::string text) {
    for (char& c : text) c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool StartsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

bool Contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

// Third-generation surface and content flags the compilers set from the shader scripts.
constexpr uint32_t SurfaceSky = 0x4, SurfaceNoDraw = 0x80, SurfaceHint = 0x100, SurfaceSkip = 0x200;
constexpr uint32_t ContentsTrigger = 0x40000000;

}  // namespace

bool IsFinite(const DVec3& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

std::string FieldText(const uint8_t* p, size_t size) {
    std::string text;
    for (size_t i = 0; i < size && p[i]; ++i) text += p[i] < 0x20 || p[i] > 0x7e ? '?' : char(p[i]);
    return text;
}

bool BspFile::ReadDirectory(size_t at, const std::vector<const char*>& names) {
    uint64_t header = at + uint64_t(names.size()) * 8;
    if (bytes.size() < header)
        return Fail(std::to_string(bytes.size()) + " bytes, too short for the header's " +
                    std::to_string(names.size()) + " lumps (" + std::to_string(header) + " bytes)");
    lumps.clear();
    for (size_t i = 0; i < names.size(); ++i) {
        int32_t offset = LoadI32(bytes.data() + at + i * 8),
                length = LoadI32(bytes.data() + at + i * 8 + 4);
        std::string lump = std::string("the ") + names[i] + " lump";
        if (offset < 0 || length < 0)
            return Fail(lump + " has a negative offset or length (" + std::to_string(offset) +
                        ", " + std::to_string(length) + ")");
        if (uint64_t(offset) + uint64_t(length) > bytes.size())
            return Fail(lump + " (offset " + std::to_string(offset) + ", " +
                        std::to_string(length) + " bytes) runs past the end of the file (" +
                        std::to_string(bytes.size()) + " bytes)");
        if (length > 0 && uint64_t(offset) < header)
            return Fail(lump + " (offset " + std::to_string(offset) + ") overlaps the header");
        lumps.push_back({names[i], uint64_t(offset), uint64_t(length)});
    }
    return true;
}

bool BspFile::Count(int lump, uint32_t size, uint32_t& count) {
    if (lumps[lump].length % size != 0)
        return Fail(std::string("the ") + lumps[lump].name + " lump holds " +
                    std::to_string(lumps[lump].length) + " bytes, not whole " +
                    std::to_string(size) + "-byte records");
    count = uint32_t(lumps[lump].length / size);  // the file is at most 2 GiB
    return true;
}

bool LooksDown(const DVec3& front) {
    constexpr double Slope = 1e-3;  // walls a hair off upright stay
    return front.z < -Slope * std::sqrt(Dot(front, front));
}

BspSkip QuakeTextureSkip(const std::string& name) {
    std::string lower = Lower(name);
    if (StartsWith(lower, "sky")) return BspSkip::Sky;
    if (StartsWith(lower, "trigger")) return BspSkip::Trigger;
    if (StartsWith(lower, "clip")) return BspSkip::Clip;
    for (const char* tool :
         {"skip", "hint", "hintskip", "origin", "null", "nodraw", "caulk", "__tb_empty"})
        if (lower == tool) return BspSkip::Tool;
    return BspSkip::None;
}

BspSkip ShaderSkip(const std::string& name, uint32_t surfaceFlags, uint32_t contents) {
    std::string lower = Lower(name);
    if (surfaceFlags & SurfaceSky) return BspSkip::Sky;
    bool common = StartsWith(lower, "textures/common/");
    if ((common && Contains(lower, "trigger")) || (contents & ContentsTrigger))
        return BspSkip::Trigger;
    if (common && Contains(lower, "clip")) return BspSkip::Clip;
    if (surfaceFlags & (SurfaceNoDraw | SurfaceHint | SurfaceSkip)) return BspSkip::Tool;
    if (common)
        for (const char* tool : {"caulk", "hint", "skip", "nodraw", "origin", "areaportal",
                                 "clusterportal", "donotenter", "lightgrid", "nodrop", "invisible"})
            if (Contains(lower, tool)) return BspSkip::Tool;
    return BspSkip::None;
}

ImportMesh& BspLevel::MeshFor(const std::string& texture) {
    auto [at, made] = meshByTexture.try_emplace(texture, scene.meshes.size());
    if (made) {
        ImportMesh mesh;
        mesh.name = BaseName(file.path) + ": " + texture;
        mesh.fileUp = UpAxis::Z;
        scene.meshes.push_back(std::move(mesh));
    }
    return scene.meshes[at->second];
}

bool BspLevel::Take(uint64_t more) {
    if (triangles + more > BspMaxTriangles)
        return file.Fail("more than " + std::to_string(BspMaxTriangles) +
                         " triangles; a level is refused beyond that");
    ++faces;
    triangles += more;
    return true;
}

void BspLevel::AddFacing(ImportMesh& mesh, uint32_t a, uint32_t b, uint32_t c) {
    const std::vector<DVec3>& p = mesh.positions;
    const std::vector<DVec3>& n = mesh.normals;
    bool against = Dot(Cross(p[b] - p[a], p[c] - p[a]), n[a] + n[b] + n[c]) < 0.0;
    mesh.triangles.insert(mesh.triangles.end(), {a, against ? c : b, against ? b : c});
}

std::string BspLevel::Summary(const std::string& layout) const {
    static const char* const kinds[] = {"",     "sky",       "trigger", "clip",
                                        "tool", "billboard", "ceiling"};
    std::string left;
    for (size_t k = 1; k < skipped.size(); ++k)
        if (skipped[k])
            left += (left.empty() ? "" : ", ") + std::to_string(skipped[k]) + " " + kinds[k];
    return file.path + ": " + layout + " level: " + std::to_string(faces) + " faces, " +
           std::to_string(triangles) + " triangles taken in " +
           std::to_string(scene.meshes.size()) + " meshes; " +
           (left.empty() ? "none left out" : "left out " + left + " faces");
}
