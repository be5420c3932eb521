#include "engine/mesh/mesh_animation.h"

#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/mesh/mesh.h"

FrameBufferHooks FrameBufferOps = {nullptr, nullptr};

int32_t AnimationFrameNumber(float frame) {
    // The sum is taken in single precision on purpose: its rounding is the rounding wanted.
    float shifted = frame + 12582912.0f;
    uint32_t bits;
    std::memcpy(&bits, &shifted, sizeof bits);
    return int32_t(bits & 0x7FFFFF) - 0x400000;
}

// Animations loop: any frame number, negative ones included, lands in 0 to count - 1.
static uint32_t WrapFrame(int64_t frame, uint64_t count) {
    int64_t n = int64_t(count);
    int64_t r = frame % n;
    return uint32_t(r < 0 ? r + n : r);
}

void FreeKeyAnimation(KeyAnimation* animation) {
    if (!animation) return;
    if (animation->owner) {
        if (animation->form == KeyFormKeys && animation->frameCached) FREE(animation->frameCached);
        if (animation->frameData) FREE(animation->frameData);
        for (uint32_t i = 0; animation->keys && i < animation->keyCount; ++i) {
            if (animation->keys[i].scale) FREE(animation->keys[i].scale);
            if (animation->keys[i].rotation) FREE(animation->keys[i].rotation);
            if (animation->keys[i].translation) FREE(animation->keys[i].translation);
        }
        if (animation->keys) FREE(animation->keys);
    }
    if (animation) FREE(animation);
}

void CMesh::ReleaseVertexAnimation() {
    features &= uint8_t(~MeshFeatureVertexAnimation);
    VertexAnimation* animation = vertexAnimation;
    if (!animation) return;
    vertexAnimation = nullptr;
    bool packed = (animation->flags & VertexAnimationPacked) != 0;
    // vertices may point at any frame; the block to keep (and later free) is the base.
    if (!packed && animation->frameData) vertices = static_cast<MeshVertex*>(animation->frameData);
    if (animation->flags & VertexAnimationOwnsArrays) {
        if (animation->frameTable) FREE(animation->frameTable);
        if (animation->keyFrames) FREE(animation->keyFrames);
        if (packed && animation->frameData) FREE(animation->frameData);
        if (animation->frameBuffers && FrameBufferOps.destroy)
            FrameBufferOps.destroy(animation->frameBuffers);
    }
    if (animation) FREE(animation);
}

void CMesh::SetVertexAnimation(VertexAnimation* animation) {
    ReleaseVertexAnimation();
    vertexAnimation = animation;
    if (animation) features |= MeshFeatureVertexAnimation;
}

void CMesh::ClearVertexAnimation() {
    SetVertexAnimation(nullptr);
}

void CMesh::SetKeyAnimation(KeyAnimation* animation) {
    keyAnimation = animation;
    if (animation)
        features |= MeshFeatureKeyAnimation;
    else
        features &= uint8_t(~MeshFeatureKeyAnimation);
}

void CMesh::ClearKeyAnimation() {
    SetKeyAnimation(nullptr);
}

void CMesh::SelectAnimationFrame(int32_t frame, bool keyFromRounded) {
    int64_t f = frame;
    VertexAnimation* shape = vertexAnimation;
    if ((features & MeshFeatureVertexAnimation) && shape && shape->frameCount) {
        uint32_t wrapped = WrapFrame(f, shape->frameCount);
        if (!keyFromRounded) f = wrapped;
        if (shape->currentFrame != wrapped) {
            shape->currentFrame = wrapped;
            void* entry = shape->frameTable ? shape->frameTable[wrapped] : nullptr;
            // A frame with a device buffer of its own draws from it and leaves the mesh's run
            // alone. currentData keeps naming what that run holds (or will hold after a pending
            // rewrite), so a later frame without a buffer rewrites it whenever it differs.
            const bool ownBuffer = shape->frameBuffers && FrameBufferOps.hasFrame &&
                                   FrameBufferOps.hasFrame(shape->frameBuffers, wrapped);
            const bool pending = (dirtyMask & MeshDirtyAnimationFrame) != 0;
            if (entry != shape->currentData && (!ownBuffer || pending)) {
                shape->currentData = entry;
                // The vertices change at the next preparation for drawing.
                dirtyMask |= MeshDirtyAnimationFrame;
            }
        }
    }
    KeyAnimation* keys = keyAnimation;
    if (!(features & MeshFeatureKeyAnimation) || !keys) return;
    uint32_t keyFrame = WrapFrame(f, uint64_t(keys->lastFrame) + 1);
    if (keys->currentFrame == keyFrame) return;  // the placement is in force
    uint32_t oldFrame = keys->currentFrame;
    keys->currentFrame = keyFrame;
    PlaceKeyFrame(this, keyFrame, oldFrame);
}

void CMesh::WalkAnimation(CEntity* node, int32_t frame, uint32_t flags) {
    CMesh* mesh = node->kind == EntityKindMesh ? static_cast<CMesh*>(node) : nullptr;
    // Any other class is walked through as a mesh without animation.
    bool stop =
        mesh && (flags & AnimationStopAtMarked) && (mesh->meshFlags & MeshFlagStopAnimation);
    if (!stop)
        for (CEntity* child = node->firstChild; child; child = child->nextSibling)
            WalkAnimation(child, frame, flags);
    if (mesh) mesh->SelectAnimationFrame(frame, true);
}

void CMesh::SetAnimationFrame(float frame, uint32_t flags) {
    if ((flags & (AnimationRecursive | AnimationWalk)) == (AnimationRecursive | AnimationWalk)) {
        WalkAnimation(this, AnimationFrameNumber(frame), flags);  // rounded once for the tree
        return;
    }
    if (flags & AnimationRecursive)
        for (CEntity* child = firstChild; child; child = child->nextSibling)
            child->SetAnimationFrame(frame, flags);
    SelectAnimationFrame(AnimationFrameNumber(frame), false);
}

void CMesh::CacheAnimation() {
    KeyAnimation* keys = keyAnimation;
    if (keys && keys->form == KeyFormKeys) {
        uint64_t frames = uint64_t(keys->lastFrame) + 1;
        // A clone's record shares its source's arrays and could never free a cache of its own.
        if (!keys->frameCached && keys->owner) {
            keys->frameCached = static_cast<uint8_t*>(MALLOC(size_t(frames)));
            std::memset(keys->frameCached, 0, size_t(frames));
            if (keys->frameData) FREE(keys->frameData);
            keys->frameData = MALLOC(size_t(frames) * sizeof(Matrix));
        }
        // A frame already in force would return at once and stay out of the cache.
        keys->currentFrame = KeyAnimationNoFrame;
        for (uint64_t i = 0; i < frames; ++i) SetAnimationFrame(float(i), 0);
    }
    CEntity::CacheAnimation();
}
