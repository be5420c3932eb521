// The importer's scene: the triangles of every input in double precision, with the normals, texture
// coordinates and colour maps they came with, before they are placed in the map's world and cut
// into chunk meshes. Nothing here is rounded to float; that happens once, in the chunk tree.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class CTexture;

struct DVec3 {
    double x, y, z;
};

inline DVec3 operator-(const DVec3& a, const DVec3& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline DVec3 operator+(const DVec3& a, const DVec3& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline DVec3 Cross(const DVec3& a, const DVec3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double Dot(const DVec3& a, const DVec3& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

enum class UpAxis { Y, Z };

// Where a material's colour map comes from, as the input file names it.
struct TextureSource {
    enum Kind { None, File, Encoded, Pixels };
    Kind kind = None;
    std::string name;            // the path the file gives, or the embedded image's name
    std::string modelPath;       // the input that names it; relative paths start from its folder
    std::vector<uint8_t> bytes;  // Encoded: a whole image file; Pixels: blue, green, red, alpha
    std::string formatHint;      // Encoded: "png", "jpg", ... as the input says
    uint32_t width = 0, height = 0;  // Pixels
    std::string key;  // same key, same image: one texture for every material using it
};

struct ImportMaterial {
    std::string name;
    TextureSource source;
    CTexture* texture = nullptr;  // the decoded colour map, named as its TGA file; null: none
};

struct ImportMesh {
    std::string name;  // for messages: the input's file name and the mesh's own name
    std::vector<DVec3> positions;
    std::vector<DVec3> normals;       // empty, or one per position
    std::vector<float> uvs;           // empty, or u, v per position (v down the image)
    std::vector<uint32_t> triangles;  // three indices a face; a, b, c as the source winds them
    int material = -1;                // index into ImportScene::materials; -1: untextured
    bool mapFrame = false;            // already in the map's axes and winding (height maps)
    std::optional<UpAxis> fileUp;     // the up axis the format defines; --up doesn't apply
    // An animated mesh: frameCount poses of every vertex, frame after frame, in the same space
    // as positions, which hold frame 0 (as normals do). Empty for a static mesh.
    uint32_t frameCount = 0;
    std::vector<DVec3> framePositions;
    std::vector<DVec3> frameNormals;  // empty, or one per entry of framePositions
};

struct ImportScene {
    std::vector<ImportMesh> meshes;
    std::vector<ImportMaterial> materials;
    bool groundPlane = false;  // an input stands on the ground (a city model): --ground is implied
};

// A measure for a message: six significant digits, never "-0".
std::string Number(double value);

// The importer's messages. Notes and warnings inform; an error fails the import (the map may still
// be written, as for a texture that can't be read).
enum class ImportSeverity { Note, Warning, Error };

class ImportLog {
public:
    using Sink = std::function<void(ImportSeverity, const std::string&)>;
    explicit ImportLog(Sink output = nullptr) : sink(std::move(output)) {}

    void Note(const std::string& text) { Report(ImportSeverity::Note, text); }
    void Warning(const std::string& text) { Report(ImportSeverity::Warning, text); }
    // Returns false so that a reader can `return log.Error(...)`.
    bool Error(const std::string& text) {
        Report(ImportSeverity::Error, text);
        return false;
    }
    int Errors() const { return errors; }

private:
    void Report(ImportSeverity severity, const std::string& text);

    Sink sink;
    int errors = 0;
};
