#include "tool/import/assimp_reader.h"

#include <assimp/material.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <assimp/Importer.hpp>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "tool/import/animation_sampler.h"
#include "tool/import/input_file.h"
#include "tool/import/node_transform.h"

namespace {

bool Finite(const aiVector3D& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

// Deeper trees are damage; the walk recurses, so it stops here.
constexpr int MaxNodeDepth = 1000;

class SceneReader {
public:
    SceneReader(const std::string& input, const AnimationOptions& animation, ImportScene& into,
                ImportLog& messages)
        : path(input), file(BaseName(input)), options(animation), scene(into), log(messages) {
        for (const ImportMesh& mesh : scene.meshes) frameVertices += mesh.framePositions.size();
    }

    bool Take(Assimp::Importer& importer, const aiScene* read);

private:
    bool CheckCoordinates(const aiScene* read);
    void TakeMaterials(const aiScene* read);
    bool TakeNode(const aiScene* read, const aiNode* node, const DMatrix& parent, int depth);
    bool TakeMesh(const aiMesh* mesh, const aiNode* node, const DMatrix& transform);
    bool TakeFrames(const aiMesh* mesh, const aiNode* node, bool normals, ImportMesh& taken);

    std::string path;
    std::string file;
    const AnimationOptions& options;
    AnimationSampler sampler;
    size_t frameVertices = 0;  // in the scene's animated meshes, this file's included
    size_t meshesAnimated = 0;
    ImportScene& scene;
    ImportLog& log;
    size_t materialBase = 0;
    size_t meshesTaken = 0;
    bool droppedNormals = false;
};

bool SceneReader::CheckCoordinates(const aiScene* read) {
    for (unsigned i = 0; i < read->mNumMeshes; ++i) {
        const aiMesh* mesh = read->mMeshes[i];
        for (unsigned v = 0; v < mesh->mNumVertices; ++v) {
            if (Finite(mesh->mVertices[v])) continue;
            const aiVector3D& p = mesh->mVertices[v];
            char where[120];
            std::snprintf(where, sizeof where, " is (%g, %g, %g): NaN or infinite coordinates",
                          double(p.x), double(p.y), double(p.z));
            return log.Error(path + ": vertex " + std::to_string(v) + " of mesh \"" +
                             mesh->mName.C_Str() + "\"" + where);
        }
    }
    return true;
}

void SceneReader::TakeMaterials(const aiScene* read) {
    materialBase = scene.materials.size();
    for (unsigned i = 0; i < read->mNumMaterials; ++i) {
        const aiMaterial* material = read->mMaterials[i];
        ImportMaterial taken;
        taken.name = material->GetName().C_Str();
        aiString name;
        bool named = material->GetTexture(aiTextureType_BASE_COLOR, 0, &name) == AI_SUCCESS ||
                     material->GetTexture(aiTextureType_DIFFUSE, 0, &name) == AI_SUCCESS;
        if (named && name.length > 0) {
            TextureSource& source = taken.source;
            source.name = name.C_Str();
            source.modelPath = path;
            const aiTexture* embedded = read->GetEmbeddedTexture(name.C_Str());
            if (!embedded) {
                source.kind = TextureSource::File;
            } else if (embedded->mHeight == 0) {
                source.kind = TextureSource::Encoded;
                const uint8_t* data = reinterpret_cast<const uint8_t*>(embedded->pcData);
                source.bytes.assign(data, data + embedded->mWidth);
                source.formatHint = embedded->achFormatHint;
                source.key = path + "|" + source.name;
            } else {
                source.kind = TextureSource::Pixels;
                source.width = embedded->mWidth;
                source.height = embedded->mHeight;
                size_t texels = size_t(embedded->mWidth) * embedded->mHeight;
                source.bytes.resize(texels * 4);
                for (size_t t = 0; t < texels; ++t) {
                    const aiTexel& texel = embedded->pcData[t];
                    uint8_t* out = source.bytes.data() + t * 4;
                    out[0] = texel.b, out[1] = texel.g, out[2] = texel.r, out[3] = texel.a;
                }
                source.key = path + "|" + source.name;
            }
            if (embedded && embedded->mFilename.length > 0)
                source.name = embedded->mFilename.C_Str();
        }
        scene.materials.push_back(std::move(taken));
    }
}

// Each frame's pose through that frame's transform; the faces are wound by frame 0's.
bool SceneReader::TakeFrames(const aiMesh* mesh, const aiNode* node, bool normals,
                             ImportMesh& taken) {
    uint32_t frames = sampler.Frames();
    size_t count = mesh->mNumVertices;
    if (frameVertices + size_t(frames) * count > MaxFrameVertices)
        return log.Error(path + ": animation \"" + sampler.Name() + "\" has " +
                         std::to_string(frames) + " frames; with mesh \"" + mesh->mName.C_Str() +
                         "\" the animated meshes come to more than " +
                         std::to_string(MaxFrameVertices) +
                         " vertices in all frames: lower --fps or cap the frames with --frames");
    frameVertices += size_t(frames) * count;
    taken.frameCount = frames;
    taken.framePositions.reserve(size_t(frames) * count);
    if (normals) taken.frameNormals.reserve(size_t(frames) * count);
    std::vector<DVec3> shape, shapeNormals;
    for (uint32_t f = 0; f < frames; ++f) {
        DMatrix transform = sampler.WorldTransform(node, f);
        sampler.Shape(node, mesh, f, shape, shapeNormals);
        bool finite = FiniteMatrix(transform);
        for (unsigned v = 0; finite && v < count; ++v) {
            DVec3 p = ApplyPoint(transform, shape[v]);
            finite = std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
            taken.framePositions.push_back(p);
        }
        if (!finite)
            return log.Error(path + ": mesh \"" + mesh->mName.C_Str() + "\" of node \"" +
                             node->mName.C_Str() +
                             "\" comes to NaN or infinite coordinates at frame " +
                             std::to_string(f) + " of animation \"" + sampler.Name() + "\"");
        double det = Determinant3(transform);
        for (unsigned v = 0; normals && v < count; ++v)
            taken.frameNormals.push_back(ApplyNormal(transform, det, shapeNormals[v]));
    }
    taken.positions.assign(taken.framePositions.begin(),
                           taken.framePositions.begin() + long(count));
    if (normals)
        taken.normals.assign(taken.frameNormals.begin(), taken.frameNormals.begin() + long(count));
    ++meshesAnimated;
    return true;
}

bool SceneReader::TakeMesh(const aiMesh* mesh, const aiNode* node, const DMatrix& transform) {
    if (!(mesh->mPrimitiveTypes & aiPrimitiveType_TRIANGLE)) return true;
    ImportMesh taken;
    // Built piece by piece: "literal" + temporary trips a false -Wrestrict in GCC 12 at -O3.
    taken.name = file;
    taken.name += ": ";
    if (mesh->mName.length) {
        taken.name += mesh->mName.C_Str();
    } else {
        taken.name += '#';
        taken.name += std::to_string(meshesTaken);
    }
    bool normals = mesh->HasNormals();
    for (unsigned v = 0; normals && v < mesh->mNumVertices; ++v)
        normals = Finite(mesh->mNormals[v]);
    if (mesh->HasNormals() && !normals) droppedNormals = true;
    bool animated = sampler.Animates(node, mesh);
    double det = Determinant3(animated ? sampler.WorldTransform(node, 0) : transform);
    if (!animated) {
        taken.positions.reserve(mesh->mNumVertices);
        for (unsigned v = 0; v < mesh->mNumVertices; ++v)
            taken.positions.push_back(ApplyPoint(transform, ToDouble(mesh->mVertices[v])));
        for (unsigned v = 0; normals && v < mesh->mNumVertices; ++v)
            taken.normals.push_back(ApplyNormal(transform, det, ToDouble(mesh->mNormals[v])));
    }
    if (mesh->HasTextureCoords(0)) {
        taken.uvs.reserve(size_t(mesh->mNumVertices) * 2);
        for (unsigned v = 0; v < mesh->mNumVertices; ++v) {
            const aiVector3D& uv = mesh->mTextureCoords[0][v];
            bool good = std::isfinite(uv.x) && std::isfinite(uv.y);
            taken.uvs.push_back(good ? uv.x : 0.0f);
            taken.uvs.push_back(good ? uv.y : 0.0f);
        }
    }
    taken.triangles.reserve(size_t(mesh->mNumFaces) * 3);
    for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
        const aiFace& face = mesh->mFaces[f];
        if (face.mNumIndices != 3) continue;
        uint32_t a = face.mIndices[0], b = face.mIndices[1], c = face.mIndices[2];
        if (a >= mesh->mNumVertices || b >= mesh->mNumVertices || c >= mesh->mNumVertices)
            continue;  // validated by Assimp; kept as a guard
        // A mirroring node turns the faces inside out; swapping two corners turns them back.
        if (det < 0.0) std::swap(b, c);
        taken.triangles.insert(taken.triangles.end(), {a, b, c});
    }
    if (mesh->mMaterialIndex < scene.materials.size() - materialBase)
        taken.material = int(materialBase + mesh->mMaterialIndex);
    if (taken.triangles.empty()) return true;
    if (animated && !TakeFrames(mesh, node, normals, taken)) return false;
    scene.meshes.push_back(std::move(taken));
    ++meshesTaken;
    return true;
}

bool SceneReader::TakeNode(const aiScene* read, const aiNode* node, const DMatrix& parent,
                           int depth) {
    if (depth > MaxNodeDepth)
        return log.Error(path + ": nodes nest deeper than " + std::to_string(MaxNodeDepth) +
                         " levels");
    DMatrix transform = Multiply(parent, FromAssimp(node->mTransformation));
    if (!FiniteMatrix(transform))
        return log.Error(path + ": node \"" + node->mName.C_Str() +
                         "\" has a transform with NaN or infinite numbers");
    for (unsigned i = 0; i < node->mNumMeshes; ++i)
        if (node->mMeshes[i] < read->mNumMeshes &&
            !TakeMesh(read->mMeshes[node->mMeshes[i]], node, transform))
            return false;
    for (unsigned i = 0; i < node->mNumChildren; ++i)
        if (!TakeNode(read, node->mChildren[i], transform, depth + 1)) return false;
    return true;
}

bool SceneReader::Take(Assimp::Importer& importer, const aiScene* read) {
    if (!read) {
        std::string reason = importer.GetErrorString();
        if (reason.find("No suitable reader") != std::string::npos)
            return log.Error(path + ": unsupported format (no reader for ." + LowerExtension(path) +
                             " files)");
        return log.Error(path + ": cannot be read: " + reason);
    }
    if (!CheckCoordinates(read)) return false;
    // Identical vertices are joined only now: a NaN compares unequal and would be joined away.
    read = importer.ApplyPostProcessing(aiProcess_JoinIdenticalVertices | aiProcess_FlipUVs |
                                        aiProcess_TransformUVCoords);
    if (!read) return log.Error(path + ": cannot be read: " + importer.GetErrorString());
    if (!sampler.Select(read, options, path, log)) return false;
    TakeMaterials(read);
    if (read->mRootNode && !TakeNode(read, read->mRootNode, IdentityMatrix(), 0)) return false;
    if (sampler.Frames() >= 2 && !meshesAnimated)
        log.Note(path + ": animation \"" + sampler.Name() +
                 "\" moves no mesh (skins are not followed); the meshes are static");
    if (droppedNormals)
        log.Warning(path + ": normals that are not finite numbers; smooth normals made instead");
    if (meshesTaken == 0) return log.Error(path + ": no triangles in the file");
    return true;
}

constexpr unsigned ReadSteps =
    aiProcess_Triangulate | aiProcess_SortByPType | aiProcess_ValidateDataStructure;

}  // namespace

bool ReadModelFile(const std::string& path, const AnimationOptions& animation, ImportScene& scene,
                   ImportLog& log) {
    // Assimp's BSP reader wants the .pk3 archive around a level; a bare level is not read.
    if (LowerExtension(path) == "bsp")
        return log.Error(path +
                         ": unsupported format (BSP levels are not read; export the level "
                         "as OBJ, glTF or FBX)");
    Assimp::Importer importer;
    SceneReader reader(path, animation, scene, log);
    return reader.Take(importer, importer.ReadFile(path, ReadSteps));
}

bool ReadModelMemory(const std::string& path, const std::vector<uint8_t>& bytes,
                     const std::string& hint, const AnimationOptions& animation, ImportScene& scene,
                     ImportLog& log) {
    Assimp::Importer importer;
    SceneReader reader(path, animation, scene, log);
    return reader.Take(
        importer, importer.ReadFileFromMemory(bytes.data(), bytes.size(), ReadSteps, hint.c_str()));
}
