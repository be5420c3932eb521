// The half of CMultiMesh that needs no device: vertex access through the system copy, stage
// tables, bounds and the strip builder.
#include "engine/mesh/multimesh.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/services.h"

int32_t MultiMeshPoolReserve = -1;
uint32_t StripIndicesIn = 0;
uint32_t StripIndicesOut = 0;

const uint32_t MultiStageDefault[MultiStageWords] = {2, 1, 13, 2, 1, 2, 0};

uint32_t CMultiMesh::VertexFormat() const {
    const uint32_t base = (layoutFlags & MultiLayoutDiffuse) ? 0x42u : 0x12u;
    return base | uint32_t(std::clamp(uvSets, 0, 8)) << 8;
}

float* CMultiMesh::VertexWords(uint32_t index) const {
    if (!vertexCopy || index >= vertexTotal) return nullptr;
    return vertexCopy + size_t(index) * strideWords;
}

void CMultiMesh::WriteWord(uint32_t index, uint32_t word, float value) {
    if (index >= vertexTotal || word >= strideWords) return;
    const size_t at = size_t(index) * strideWords + word;
    if (vertexCopy) vertexCopy[at] = value;
    if (locked && lockedVertices) lockedVertices[at] = value;
}

void CMultiMesh::WriteDiffuse(uint32_t index) {
    if (!(layoutFlags & MultiLayoutDiffuse)) return;
    const uint32_t white = 0xFFFFFFFFu;
    float word;
    std::memcpy(&word, &white, sizeof word);
    WriteWord(index, 3, word);
}

void CMultiMesh::SetVertexPosition(uint32_t index, float x, float y, float z) {
    WriteWord(index, 0, x);
    WriteWord(index, 1, y);
    WriteWord(index, 2, z);
    WriteDiffuse(index);
}

void CMultiMesh::SetVertexNormal(uint32_t index, float x, float y, float z) {
    if (layoutFlags & MultiLayoutDiffuse) return;
    WriteWord(index, 3, x);
    WriteWord(index, 4, y);
    WriteWord(index, 5, z);
}

void CMultiMesh::SetVertexUV(uint32_t index, int32_t coordinateSet, float u, float v) {
    if (coordinateSet < 0 || coordinateSet >= uvSets) return;
    const uint32_t first = ((layoutFlags & MultiLayoutDiffuse) ? 4u : 6u) + 2u * coordinateSet;
    WriteWord(index, first, u);
    WriteWord(index, first + 1, v);
    WriteDiffuse(index);
}

void CMultiMesh::GetVertexPosition(uint32_t index, float* x, float* y, float* z) const {
    const float* words = VertexWords(index);
    *x = words ? words[0] : 0.0f;
    *y = words ? words[1] : 0.0f;
    *z = words ? words[2] : 0.0f;
}

void CMultiMesh::GetVertexUV(uint32_t index, int32_t coordinateSet, float* u, float* v) const {
    const bool known = coordinateSet >= 0 && coordinateSet < uvSets;
    const float* words = known ? VertexWords(index) : nullptr;
    const uint32_t first = ((layoutFlags & MultiLayoutDiffuse) ? 4u : 6u) + 2u * coordinateSet;
    *u = words ? words[first] : 0.0f;
    *v = words ? words[first + 1] : 0.0f;
}

void CMultiMesh::SetStagePass(int32_t stage, uint8_t stages, uint8_t whole) {
    if (stage < 0 || stage >= MultiMeshStages) return;
    stagePass[stage][0] = stages;
    stagePass[stage][1] = whole;
}

void CMultiMesh::SetStageSettings(int32_t stage, const uint32_t* block) {
    if (stage >= 0 && stage < MultiMeshStages) stageSettings[stage] = block;
}

const uint32_t* CMultiMesh::StageSettings(int32_t stage) const {
    if (stage < 0 || stage >= MultiMeshStages || !stageSettings[stage]) return MultiStageDefault;
    return stageSettings[stage];
}

void CMultiMesh::GetStageSettings(int32_t stage, uint32_t* out) const {
    std::memcpy(out, StageSettings(stage), MultiStageWords * sizeof(uint32_t));
}

void CMultiMesh::SetStageCoordinates(int32_t stage, uint8_t set) {
    if (stage >= 0 && stage < MultiMeshStages) stageCoordinates[stage] = set;
}

void CMultiMesh::SetFirstStage(int32_t value) {
    if (value < 0 || value >= stageCount) CorvaneAssert("multimesh", __LINE__);
    firstStage = value;
}

void CMultiMesh::SetPassStages(int32_t value) {
    if (value < 0 || value > stageCount) CorvaneAssert("multimesh", __LINE__);
    passStages = value;
}

void CMultiMesh::BuildPositionArrays() {
    for (float** array : {&positionX, &positionY, &positionZ}) {
        AlignedFree(*array);
        *array = nullptr;
    }
    if (!vertexCopy || vertexTotal == 0) return;
    positionX = static_cast<float*>(AlignedAlloc(vertexTotal * sizeof(float)));
    positionY = static_cast<float*>(AlignedAlloc(vertexTotal * sizeof(float)));
    positionZ = static_cast<float*>(AlignedAlloc(vertexTotal * sizeof(float)));
    if (!positionX || !positionY || !positionZ) return;
    for (uint32_t i = 0; i < vertexTotal; ++i) {
        const float* words = VertexWords(i);
        positionX[i] = words[0];
        positionY[i] = words[1];
        positionZ[i] = words[2];
    }
}

void CMultiMesh::CalculateBox() {
    boxMin = boxMax = {0.0f, 0.0f, 0.0f};
    for (uint32_t i = 0; i < vertexTotal && vertexCopy; ++i) {
        const float* p = VertexWords(i);
        if (i == 0) {
            boxMin = boxMax = {p[0], p[1], p[2]};
            continue;
        }
        boxMin = {std::min(boxMin.x, p[0]), std::min(boxMin.y, p[1]), std::min(boxMin.z, p[2])};
        boxMax = {std::max(boxMax.x, p[0]), std::max(boxMax.y, p[1]), std::max(boxMax.z, p[2])};
    }
}

void CMultiMesh::TestFrustum(const Vector* planes, const float* planeOffsets) {
    culled = 0;
    if (boundRadius == 0.0f || !planes || !planeOffsets) return;
    const auto distance = [&](int plane, const Vector& p) {
        const Vector& n = planes[plane];
        return double(n.x) * p.x + double(n.y) * p.y + double(n.z) * p.z + planeOffsets[plane];
    };
    for (int plane = 0; plane < 5; ++plane)
        if (distance(plane, worldCentre) >= double(boundRadius)) {
            culled = 1;
            return;
        }
    // The box corner farthest towards -n: if even that lies outside, all of it does.
    for (int plane = 0; plane < 4; ++plane) {
        const Vector& n = planes[plane];
        const Vector corner = {n.x <= 0.0f ? boxMax.x : boxMin.x, n.y > 0.0f ? boxMin.y : boxMax.y,
                               n.z > 0.0f ? boxMin.z : boxMax.z};
        if (distance(plane, corner) > 0.0) {
            culled = 1;
            return;
        }
    }
}

namespace {

struct StripFace {
    uint16_t a, b, c;
};

// Whether an unused face holds the directed edge from -> to.
bool HoldsEdge(const std::vector<StripFace>& faces, const std::vector<uint8_t>& used, uint16_t from,
               uint16_t to) {
    for (size_t i = 0; i < faces.size(); ++i) {
        if (used[i]) continue;
        const StripFace& f = faces[i];
        if ((f.a == from && f.b == to) || (f.b == from && f.c == to) || (f.c == from && f.a == to))
            return true;
    }
    return false;
}

// A face with one joined edge makes the best start; the strip leaves through that edge.
int StripScore(const std::vector<StripFace>& faces, const std::vector<uint8_t>& used, size_t face,
               int parity, uint16_t out[3]) {
    const StripFace& f = faces[face];
    const uint16_t edges[3][2] = {{f.b, f.c}, {f.c, f.a}, {f.a, f.b}};
    int mask = 0;
    for (int bit = 0; bit < 3; ++bit) {
        const uint16_t e0 = edges[bit][0], e1 = edges[bit][1];
        if (parity == 0 ? HoldsEdge(faces, used, e1, e0) : HoldsEdge(faces, used, e0, e1))
            mask |= 1 << bit;
    }
    if (mask & 2) {
        out[0] = f.b, out[1] = f.c, out[2] = f.a;
    } else if (mask & 4) {
        out[0] = f.c, out[1] = f.a, out[2] = f.b;
    } else {
        out[0] = f.a, out[1] = f.b, out[2] = f.c;
    }
    return (mask == 1 || mask == 2 || mask == 4) ? 1 : 0;
}

// The unused face of highest score, the lowest-numbered among equals; -1 if all are used.
int PickStart(const std::vector<StripFace>& faces, const std::vector<uint8_t>& used, int parity,
              uint16_t out[3]) {
    int best = -1, bestScore = -1;
    for (size_t i = 0; i < faces.size(); ++i) {
        if (used[i]) continue;
        uint16_t order[3];
        const int score = StripScore(faces, used, i, parity, order);
        if (score > bestScore) {
            best = int(i);
            bestScore = score;
            std::copy(order, order + 3, out);
        }
    }
    return best;
}

// The unused face that goes on from u1, u2 at this parity, and the index it adds.
int FindNext(const std::vector<StripFace>& faces, const std::vector<uint8_t>& used, int parity,
             uint16_t u1, uint16_t u2, uint16_t* added) {
    for (size_t i = 0; i < faces.size(); ++i) {
        if (used[i]) continue;
        const StripFace& f = faces[i];
        uint16_t first[3], second[3], gives[3];
        if (parity == 0) {
            first[0] = f.a, second[0] = f.c, gives[0] = f.b;
            first[1] = f.c, second[1] = f.b, gives[1] = f.a;
            first[2] = f.b, second[2] = f.a, gives[2] = f.c;
        } else {
            first[0] = f.c, second[0] = f.a, gives[0] = f.b;
            first[1] = f.b, second[1] = f.c, gives[1] = f.a;
            first[2] = f.a, second[2] = f.b, gives[2] = f.c;
        }
        for (int t = 0; t < 3; ++t)
            if (first[t] == u1 && second[t] == u2) {
                *added = gives[t];
                return int(i);
            }
    }
    return -1;
}

}  // namespace

void CMultiMesh::BuildStrips() {
    stripped = 1;
    std::vector<uint16_t> work;
    std::vector<size_t> starts(size_t(std::max(multiGroupCount, 0)));
    const auto append = [&work](uint16_t index) {
        if (work.size() == work.capacity()) work.reserve(work.capacity() + 256);
        work.push_back(index);
    };
    for (int32_t g = 0; g < multiGroupCount; ++g) {
        MultiDrawGroup& group = multiGroups[g];
        starts[size_t(g)] = work.size();
        std::vector<StripFace> faces(group.indexCount / 3);
        for (size_t i = 0; i < faces.size() && group.groupIndices; ++i)
            faces[i] = {group.groupIndices[3 * i], group.groupIndices[3 * i + 1],
                        group.groupIndices[3 * i + 2]};
        std::vector<uint8_t> used(faces.size(), 0);
        int parity = 0;
        uint16_t order[3];
        int face = PickStart(faces, used, parity, order);
        if (face >= 0) {
            used[size_t(face)] = 1;
            for (uint16_t index : order) append(index);
        }
        while (face >= 0) {
            const uint16_t u1 = work[work.size() - 2], u2 = work.back();
            uint16_t added = 0;
            face = FindNext(faces, used, parity, u1, u2, &added);
            parity ^= 1;
            if (face >= 0) {
                used[size_t(face)] = 1;
                append(added);
                continue;
            }
            face = PickStart(faces, used, parity, order);
            if (face < 0) break;
            used[size_t(face)] = 1;
            // Four degenerate triangles carry the strip to the new face with its winding.
            append(u2);
            append(order[0]);
            append(order[0]);
            append(parity == 0 ? order[1] : order[2]);
            append(parity == 0 ? order[2] : order[1]);
        }
        const uint32_t length = uint32_t(work.size() - starts[size_t(g)]);
        StripIndicesIn += 3 * uint32_t(faces.size());
        StripIndicesOut += length;
        group.indexCount = length;
    }
    auto* strips = static_cast<uint16_t*>(AlignedAlloc((work.size() + 1) * sizeof(uint16_t)));
    if (!strips) return;
    std::copy(work.begin(), work.end(), strips);
    AlignedFree(faceIndices);
    faceIndices = strips;
    for (int32_t g = 0; g < multiGroupCount; ++g)
        multiGroups[g].groupIndices = strips + starts[size_t(g)];
}
