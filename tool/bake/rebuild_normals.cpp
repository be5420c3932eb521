#include "tool/bake/rebuild_normals.h"

#include <vector>

#include "engine/mesh/mesh.h"

void RebuildNormals(CMesh* mesh) {
    uint32_t faceCount = mesh->faceCount[0];
    uint32_t vertexCount = uint32_t(mesh->vertexCount > 0 ? mesh->vertexCount : 0);
    if (faceCount) {
        std::vector<uint32_t> uses(vertexCount, 0);
        std::vector<Vector> faceNormals(faceCount);
        MeshVertex* vertices = mesh->vertices;
        for (uint32_t f = 0; f < faceCount; ++f) {
            const uint32_t* v = mesh->faces[0][f].vertex;
            faceNormals[f] = {0.0f, 0.0f, 0.0f};
            if (v[0] >= vertexCount || v[1] >= vertexCount || v[2] >= vertexCount) continue;
            Vector u, w;
            VectorSubtract(vertices[v[0]].position, vertices[v[1]].position, u);
            VectorSubtract(vertices[v[2]].position, vertices[v[1]].position, w);
            // w x u: the reverse of the ray table's normal, out of the visible side.
            VectorCross(faceNormals[f], w, u);
            VectorNormalize(faceNormals[f]);
        }
        for (uint32_t i = 0; i < vertexCount; ++i) vertices[i].normal = {0.0f, 0.0f, 0.0f};
        for (uint32_t f = 0; f < faceCount; ++f)
            for (uint32_t index : mesh->faces[0][f].vertex) {
                if (index >= vertexCount) continue;  // the readers refuse such faces
                VectorAdd(vertices[index].normal, faceNormals[f], vertices[index].normal);
                ++uses[index];
            }
        for (uint32_t i = 0; i < vertexCount; ++i) {
            if (!uses[i]) continue;
            VectorScale(vertices[i].normal, float(1.0 / uses[i]));
            VectorNormalize(vertices[i].normal);
        }
    }
    for (CEntity* child = mesh->firstChild; child; child = child->nextSibling)
        if (child->kind == EntityKindMesh) RebuildNormals(static_cast<CMesh*>(child));
}
