#include <cstring>

#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"

namespace {

enum Channel { ChannelRotation, ChannelScale, ChannelTranslation, ChannelCount };

bool HasChannel(const AnimationKey& key, int channel) {
    switch (channel) {
        case ChannelRotation:
            return key.rotation != nullptr;
        case ChannelScale:
            return key.scale != nullptr;
        default:
            return key.translation != nullptr;
    }
}

// The previous and next key of one channel around t.
struct Neighbours {
    const AnimationKey* previous;
    const AnimationKey* next;
};

// Two keys at one time (or the same key twice) give alpha 0 rather than a division by zero.
float Alpha(const Neighbours& n, double t) {
    const double span = double(n.next->time) - double(n.previous->time);
    if (n.previous == n.next || span == 0.0) return 0.0f;
    return float((t - double(n.previous->time)) / span);
}

float Mix(float a, float b, float alpha) {
    return float(double(a) + (double(b) - double(a)) * double(alpha));
}

// 12 values: the nine rotation values row by row, then the position.
void PlaceFromValues(CMesh* mesh, const float* values) {
    std::memcpy(mesh->rotation, values, 9 * sizeof(float));
    mesh->position = Vector{values[9], values[10], values[11]};
    mesh->Invalidate();
}

uint16_t TableEntry(const KeyAnimation* keys, uint32_t frame) {
    uint16_t record;
    std::memcpy(&record, static_cast<const uint8_t*>(keys->frameData) + size_t(frame) * 2,
                sizeof record);
    return record;
}

// Where a table form keeps the record of a frame; null for a record the table can't have.
const uint8_t* TableRecord(const KeyAnimation* keys, uint32_t frame, size_t recordBytes) {
    const uint16_t record = TableEntry(keys, frame);
    if (record >= keys->distinctCount) return nullptr;
    return static_cast<const uint8_t*>(keys->frameData) + (size_t(keys->lastFrame) + 1) * 2 +
           size_t(record) * recordBytes;
}

}  // namespace

void SampleKeyFrame(const KeyAnimation* keys, uint32_t frame, Matrix& out) {
    const double t = double(float(frame));
    Neighbours found[ChannelCount] = {};
    bool finished[ChannelCount] = {};
    int open = ChannelCount;
    for (uint32_t i = 0; keys->keys && i < keys->keyCount && open > 0; ++i) {
        const AnimationKey& key = keys->keys[i];
        for (int c = 0; c < ChannelCount; ++c) {
            if (finished[c] || !HasChannel(key, c)) continue;
            if (double(key.time) > t) {
                found[c].next = &key;
                finished[c] = true;
                --open;
            } else {
                found[c].previous = &key;
            }
        }
    }
    // Past the last key the loop wraps: next is the first key, whether it has the channel or
    // not, and alpha comes out negative.
    for (Neighbours& n : found)
        if (!n.next) n.next = keys->keys && keys->keyCount ? keys->keys : nullptr;

    Matrix rotation;
    const Neighbours& r = found[ChannelRotation];
    if (r.previous && r.next && r.next->rotation) {
        Quaternion q;
        D3DRMQuaternionSlerp(&q, r.previous->rotation, r.next->rotation, Alpha(r, t));
        D3DRMMatrixFromQuaternion(&rotation, &q);
    } else {
        MatrixCopy(keys->baseMatrix, rotation);
        rotation[12] = rotation[13] = rotation[14] = 0.0f;
    }

    // A lone scale key (next is previous) leaves the scale at 1.
    Matrix scale;
    MatrixIdentity(scale);
    const Neighbours& s = found[ChannelScale];
    if (s.previous && s.next && s.next != s.previous && s.next->scale) {
        const float alpha = Alpha(s, t);
        scale[0] = Mix(s.previous->scale->x, s.next->scale->x, alpha);
        scale[5] = Mix(s.previous->scale->y, s.next->scale->y, alpha);
        scale[10] = Mix(s.previous->scale->z, s.next->scale->z, alpha);
    }

    MatrixIdentity(out);
    out[12] = keys->baseMatrix[12];
    out[13] = keys->baseMatrix[13];
    out[14] = keys->baseMatrix[14];
    const Neighbours& p = found[ChannelTranslation];
    if (p.previous) {
        Vector v = *p.previous->translation;
        if (p.next && p.next != p.previous && p.next->translation) {
            const float alpha = Alpha(p, t);
            v = Vector{Mix(v.x, p.next->translation->x, alpha),
                       Mix(v.y, p.next->translation->y, alpha),
                       Mix(v.z, p.next->translation->z, alpha)};
        }
        out[12] = v.x;
        out[13] = v.y;
        out[14] = v.z;
    }
    // S * R * T: scale first, then rotation, then translation, for row vectors.
    MatrixPreMultiply(out, rotation);
    MatrixPreMultiply(out, scale);
}

void PlaceKeyFrame(CMesh* mesh, uint32_t frame, uint32_t oldFrame) {
    KeyAnimation* keys = mesh->keyAnimation;
    if (!keys || frame > keys->lastFrame) return;
    switch (keys->form) {
        case KeyFormKeys: {
            auto* cache = static_cast<Matrix*>(keys->frameData);
            if (keys->frameCached && cache && keys->frameCached[frame]) {
                mesh->SetMatrix(cache[frame]);
                return;
            }
            Matrix m;
            SampleKeyFrame(keys, frame, m);
            mesh->SetMatrix(m);
            if (keys->frameCached && cache) {
                keys->frameCached[frame] = 1;
                cache[frame] = m;
            }
            return;
        }
        case KeyFormRecords: {
            if (!keys->frameData) return;
            float values[12];
            std::memcpy(values, static_cast<const uint8_t*>(keys->frameData) + size_t(frame) * 48,
                        sizeof values);
            PlaceFromValues(mesh, values);
            return;
        }
        case KeyFormTable:
        case KeyFormFixedTable: {
            if (!keys->frameData) return;
            // The record in force already: nothing moves, so nothing is invalidated.
            if (oldFrame != KeyAnimationNoFrame && oldFrame <= keys->lastFrame &&
                TableEntry(keys, oldFrame) == TableEntry(keys, frame))
                return;
            float values[12];
            if (keys->form == KeyFormTable) {
                const uint8_t* record = TableRecord(keys, frame, 48);
                if (!record) return;
                std::memcpy(values, record, sizeof values);
            } else {
                const uint8_t* record = TableRecord(keys, frame, 24);
                if (!record) return;
                int16_t fixed[12];
                std::memcpy(fixed, record, sizeof fixed);
                for (int i = 0; i < 12; ++i)
                    values[i] = float(double(fixed[i]) * (i < 9 ? 1.0 / 2048.0 : 1.0 / 256.0));
            }
            PlaceFromValues(mesh, values);
            return;
        }
        default:
            return;
    }
}
