#include "tool/raycast/ray_table.h"

#include <cmath>
#include <vector>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/mesh/mesh.h"

static constexpr double GrowDistance = 0.001;
static constexpr float CentroidFactor = 0.33333334f;

void RayBuildTriangle(RayTriangle* record, Vector corners[3]) {
    Vector u, v;
    VectorSubtract(corners[0], corners[1], u);
    VectorSubtract(corners[2], corners[1], v);
    VectorCross(record->Normal, u, v);
    VectorNormalize(record->Normal);
    record->D = -VectorDot(record->Normal, corners[0]);

    // The centroid is never stored, so it keeps double precision; the corner is rounded at
    // every step of the growth.
    double cx = (double(corners[0].x) + corners[1].x + corners[2].x) * CentroidFactor;
    double cy = (double(corners[0].y) + corners[1].y + corners[2].y) * CentroidFactor;
    double cz = (double(corners[0].z) + corners[1].z + corners[2].z) * CentroidFactor;
    for (int i = 0; i < 3; ++i) {
        record->GroundCorner[i][0] = corners[i].x;
        record->GroundCorner[i][1] = corners[i].z;
    }
    for (int i = 0; i < 3; ++i) {
        Vector& p = corners[i];
        p = {float(p.x - cx), float(p.y - cy), float(p.z - cz)};
        Vector w = p;
        VectorNormalize(w);
        p.x = float(p.x + w.x * GrowDistance);
        p.y = float(p.y + w.y * GrowDistance);
        p.z = float(p.z + w.z * GrowDistance);
        p = {float(p.x + cx), float(p.y + cy), float(p.z + cz)};
    }

    double nx = std::fabs(double(record->Normal.x));
    double ny = std::fabs(double(record->Normal.y));
    double nz = std::fabs(double(record->Normal.z));
    if (nx >= ny && nx >= nz)
        record->Axes = RayAxesZY;
    else if (ny >= nx && ny >= nz)
        record->Axes = RayAxesXZ;
    else
        record->Axes = RayAxesXY;

    int aIndex = record->Axes & 3, bIndex = record->Axes >> 2;
    for (int i = 0; i < 3; ++i) {
        const float* c = &corners[i].x;
        record->Corner[i][0] = c[aIndex];
        record->Corner[i][1] = c[bIndex];
    }
}

// The mesh readers check every index; a mesh built in code that breaks this is a caller's bug.
static bool FaceIndicesInRange(const CMesh* mesh, uint32_t vertexCount) {
    for (uint32_t f = 0; f < mesh->faceCount[0]; ++f)
        for (uint32_t index : mesh->faces[0][f].vertex)
            if (index >= vertexCount) {
                ASSERT(index < vertexCount);
                return false;
            }
    return true;
}

RayMesh* RayTable::AddMesh(CMesh* mesh) {
    uint32_t faceCount = mesh->faceCount[0];
    if (faceCount == 0) return nullptr;
    uint32_t vertexCount = uint32_t(mesh->vertexCount > 0 ? mesh->vertexCount : 0);
    if (!FaceIndicesInRange(mesh, vertexCount)) return nullptr;

    RayMesh* record = NEW RayMesh{};
    record->Next = first;
    first = record;
    record->TriangleCount = faceCount;
    record->Mesh = mesh;
    record->Triangles = static_cast<RayTriangle*>(MALLOC(sizeof(RayTriangle) * faceCount));

    // Grown (x, z) per vertex; a vertex shared by several faces keeps the last face's value.
    struct WorkPoint {
        double x, z;
        bool used;
    };
    std::vector<WorkPoint> work(vertexCount, WorkPoint{0.0, 0.0, false});

    const MeshVertex* vertices = mesh->vertices;
    for (uint32_t f = 0; f < faceCount; ++f) {
        const MeshFace& face = mesh->faces[0][f];
        RayTriangle* triangle = &record->Triangles[f];
        Vector corners[3];
        for (int k = 0; k < 3; ++k) {
            corners[k] = vertices[face.vertex[k]].position;
            triangle->Vertex[k] = face.vertex[k];
        }
        triangle->Skip = 0;
        RayBuildTriangle(triangle, corners);
        for (int k = 0; k < 3; ++k) work[face.vertex[k]] = {corners[k].x, corners[k].z, true};
    }

    // Top comes from every vertex's true position; the box, the centre and the radius only from
    // the grown corners of vertices that some face uses.
    record->Top = vertices[0].position.y;
    bool firstUsed = true;
    double sumX = 0.0, sumZ = 0.0;
    uint32_t used = 0;
    for (uint32_t i = 0; i < vertexCount; ++i) {
        if (vertices[i].position.y > record->Top) record->Top = vertices[i].position.y;
        if (!work[i].used) continue;
        float x = float(work[i].x), z = float(work[i].z);
        if (firstUsed) {
            record->MinX = record->MaxX = x;
            record->MinZ = record->MaxZ = z;
            firstUsed = false;
        }
        if (x < record->MinX) record->MinX = x;
        if (x > record->MaxX) record->MaxX = x;
        if (z < record->MinZ) record->MinZ = z;
        if (z > record->MaxZ) record->MaxZ = z;
        sumX += work[i].x;
        sumZ += work[i].z;
        ++used;
    }
    record->CentreX = sumX / used;
    record->CentreZ = sumZ / used;

    double radius = 1.0;
    for (uint32_t i = 0; i < vertexCount; ++i) {
        if (!work[i].used) continue;
        double dx = record->CentreX - work[i].x, dz = record->CentreZ - work[i].z;
        double e = dx * dx + dz * dz;
        if (e > radius) radius = e;
    }
    record->RadiusSquared = radius * 1.01;
    return record;
}

void RayTable::AddTree(CMesh* mesh) {
    AddMesh(mesh);
    for (CEntity* child = mesh->firstChild; child; child = child->nextSibling) {
        ASSERT(child->kind == EntityKindMesh);  // a map's tree holds only meshes
        if (child->kind == EntityKindMesh) AddTree(static_cast<CMesh*>(child));
    }
}

void RayTable::Free() {
    RayMesh* record = first;
    while (record) {
        RayMesh* next = record->Next;
        if (record->Triangles) FREE(record->Triangles);
        DELETE(record);
        record = next;
    }
    first = nullptr;
}

uint64_t RayTable::TriangleCount() const {
    uint64_t count = 0;
    for (const RayMesh* record = first; record; record = record->Next)
        count += record->TriangleCount;
    return count;
}

size_t RayTable::MemoryBytes() const {
    size_t bytes = 0;
    for (const RayMesh* record = first; record; record = record->Next)
        bytes += sizeof(RayMesh) + sizeof(RayTriangle) * size_t(record->TriangleCount);
    return bytes;
}
