#include "tests/support/hand_mesh.h"

#include <cstddef>

CMesh* HandMesh(CEntity* parent, const std::vector<MeshVertex>& vertices,
                const std::vector<HandFace>& faces) {
    CMesh* mesh = new CMesh(parent);
    mesh->AllocVertices(int32_t(vertices.size()));
    for (size_t i = 0; i < vertices.size(); ++i) mesh->vertices[i] = vertices[i];
    mesh->AllocFaces(uint32_t(faces.size()), 0);
    for (size_t i = 0; i < faces.size(); ++i) {
        MeshFace face = {};
        face.vertex[0] = faces[i].a;
        face.vertex[1] = faces[i].b;
        face.vertex[2] = faces[i].c;
        mesh->faces[0][i] = face;
    }
    return mesh;
}
