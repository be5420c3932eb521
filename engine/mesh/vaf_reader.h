// The VAF text mesh reader: the grammar (vaf_reader.cpp) and the build of one mesh block
// (vaf_mesh.cpp). CMesh::LoadVAF is its entry.
//
// The whole file is read into memory and parsed there. Everything the file gives is built into
// a scratch tree and scratch records first; only a file that read cleanly touches the engine:
// then the textures load, the faces take them and are sorted, the new objects join the loading
// mesh and the key animations go to the objects they name. A damaged file leaves the loading
// tree as it was, loads no texture, and is reported with the file's name and the line where
// the damage was met, in the engine log and as the mesh read fault.
//
// Where the format leaves it open, or the old reader left memory to chance:
// - LoadVAF returns false for a damaged file as well as for one that can't be opened, as LoadVBF
//   does, so that the bake run and the viewer refuse it by the mesh read fault.
// - Damage: a file that ends inside a block, list or name; an entry of a used list (positions,
//   coordinates, colours, keys, a face pair, the matrix) that converts only part of its numbers;
//   an integer that 32 bits can't hold, a float that isn't finite; a face corner outside one
//   frame's vertices; coordinate, face_materials (and, where kept, smoothing) lists shorter than
//   the faces need; more vertex_light entries than vertices before them; a face list whose
//   stand-in count would never end it; anim_vertices with a frame count outside 1 to 2^20, a key
//   frame outside the frames, key frames not ascending, no key at frame 0; a key beyond frame
//   2^20 - 1; object_name naming nothing or a node that is no mesh; objects nested deeper than
//   VAFMaxDepth.
// - No coordinates at all give 0; missing colours give 0, and the colours cover every stored
//   vertex of a vertex animation.
// - The vertex normals of every key frame are made as the first frame's are.
// - A second mesh block in an object replaces the first's geometry.
// - Objects named by one animation block get records of their own with the same keys and the
//   base matrix of the last one named, what the format's shared record shows them; a record a
//   mesh had before is freed when another replaces it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/mesh/vaf_scanner.h"
#include "engine/scene/maths.h"

class CEntity;
class CMesh;
class CTexture;
struct KeyAnimation;

enum : uint32_t {
    VAFMaterialNameLength = 20,  // characters of a material's name that are kept
    VAFMaterialAmpersand = 0x1,  // the name holds a "&"
    VAFMaterialPercent = 0x2,    // the name holds a "%"
    // Objects nest at most this deep, as deep as a VBF file may: a VAF model can always be
    // saved as VBF, and the recursive walk stays far from the end of the stack.
    VAFMaxDepth = 256,
};

// Material references of a face, resolved when the file has read cleanly.
enum : int32_t {
    VAFNoMaterial = -1,     // no entry named one
    VAFClearMaterial = -2,  // face_materials met an empty material list: no texture, flags 0
};

struct VafMaterial {
    std::string name;  // the first VAFMaterialNameLength characters
    CTexture* texture = nullptr;
    uint32_t flags = 0;  // VAFMaterialAmpersand, VAFMaterialPercent
};

class VAFReader {
public:
    // text[size] must be '\0'. path names the file in messages and for nothing else.
    VAFReader(const char* text, size_t size, const char* path, CMesh* root, bool keepSmoothing);
    ~VAFReader();
    VAFReader(const VAFReader&) = delete;
    VAFReader& operator=(const VAFReader&) = delete;

    // Parses the whole file; on success joins the result to the root. False, with the fault
    // logged and kept as the mesh read fault, where the file is damaged.
    bool Read();

private:
    // A face's texture and flags as the file chose them; textures load after the parse.
    struct FaceMaterial {
        int32_t base;    // the mesh's `material` entry, for all its faces
        int32_t chosen;  // its face_materials entry
    };
    // A built mesh whose faces wait for their textures, their hidden flag and their sort.
    struct PendingMesh {
        CMesh* mesh;
        std::vector<FaceMaterial> materials;  // one per face
    };
    struct TextureLoad {
        uint32_t material;
        std::string name;
    };
    // A key animation for the objects an animation block named; null: the block had no key, and
    // they lose the key animation they had.
    struct Binding {
        CMesh* target;
        KeyAnimation* animation;
    };
    struct KeyEvent {
        int32_t frame;
        int kind;  // 0 rotation, 1 scale, 2 translation
        float value[4];
    };
    struct MeshWork;

    // The grammar (vaf_reader.cpp).
    void ReadTopLevel();
    bool ReadMaterial();
    bool ReadObject(CEntity* parent, uint32_t depth, size_t at);
    bool ReadMatrix(CMesh* mesh, size_t at);
    bool ReadAnimation();
    bool ReadKeys(const char* section, const char* format, int kind, int values,
                  std::vector<KeyEvent>& events);
    KeyAnimation* BuildKeyAnimation(std::vector<KeyEvent>& events);
    void NewVAFMaterial(std::string_view name);
    // Index of the material of that name; a name not in the list gives the first material, an
    // empty list gives VAFNoMaterial.
    int32_t FindMaterial(std::string_view name) const;
    // FindByName from the root as it will stand: the root, then the new objects in front of its
    // old children, in the order CEntity::FindByName walks them.
    CEntity* FindObject(std::string_view name);
    void Commit();

    // One mesh block (vaf_mesh.cpp).
    bool DecodeMesh(CMesh* mesh);
    bool ReadVectors(const char* section, const char* format, int count, std::vector<float>* out,
                     bool partialIsDamage);
    bool ReadFaces(MeshWork& work);
    bool ReadVertexAnimation(MeshWork& work, size_t at);
    bool ReadVertexLight(MeshWork& work, size_t at);
    bool ReadFaceMaterials(MeshWork& work);
    bool CheckMesh(const MeshWork& work, size_t at, uint32_t perFrame);
    bool BuildMesh(CMesh* mesh, MeshWork& work, size_t at);
    void ResolveFaces(PendingMesh& pending);

    const char* Named() const;  // the object whose mesh is being read, for messages

    VAFScanner scan;
    const char* path;
    CMesh* root;
    bool keepSmoothing;
    CEntity* holder;  // the new objects, until the file has read cleanly

    std::vector<VafMaterial> materials;
    std::unordered_map<std::string, uint32_t> materialIndex;  // kept name: first material
    std::vector<TextureLoad> textureLoads;                    // in file order
    std::vector<PendingMesh> pendingMeshes;                   // in file order
    std::unordered_map<CMesh*, size_t> pendingOf;             // a mesh's entry there
    std::vector<Binding> bindings;                            // in file order
    CMesh* current = nullptr;                                 // the object being read
    uint64_t framesClaimed = 0;  // frame table entries of the vertex animations so far
};
