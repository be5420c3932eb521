#include "tool/import/animation_sampler.h"

#include <algorithm>
#include <cmath>

namespace {

// Assimp leaves the rate at 0 where a file doesn't give one; its own viewer then takes 25.
constexpr double UnstatedTicksPerSecond = 25.0;

// The two keys around tick t and how far t lies from the first to the second; outside the keys'
// span both are the nearest end key. Keys out of order give some key, never a read past them.
template <typename Key>
void Bracket(const Key* keys, unsigned count, double t, unsigned& a, unsigned& b, double& alpha) {
    unsigned next =
        unsigned(std::upper_bound(keys, keys + count, t,
                                  [](double tick, const Key& key) { return tick < key.mTime; }) -
                 keys);
    a = next == 0 ? 0 : next - 1;
    b = next == count ? count - 1 : next;
    double span = keys[b].mTime - keys[a].mTime;
    alpha = a != b && span > 0.0 ? (t - keys[a].mTime) / span : 0.0;
}

DVec3 SampleVector(const aiVectorKey* keys, unsigned count, double t, const DVec3& unset) {
    if (count == 0 || !keys) return unset;
    unsigned a, b;
    double alpha;
    Bracket(keys, count, t, a, b, alpha);
    DVec3 p = ToDouble(keys[a].mValue), q = ToDouble(keys[b].mValue);
    if (alpha == 0.0) return p;  // a key's own value, whatever the next one holds
    return {p.x + (q.x - p.x) * alpha, p.y + (q.y - p.y) * alpha, p.z + (q.z - p.z) * alpha};
}

DQuaternion SampleRotation(const aiQuatKey* keys, unsigned count, double t,
                           const DQuaternion& unset) {
    if (count == 0 || !keys) return unset;
    unsigned a, b;
    double alpha;
    Bracket(keys, count, t, a, b, alpha);
    return Slerp(ToDouble(keys[a].mValue), ToDouble(keys[b].mValue), alpha);
}

std::string Seconds(double seconds) {
    return Number(seconds) + (seconds == 1.0 ? " second" : " seconds");
}

}  // namespace

bool AnimationSampler::Select(const aiScene* scene, const AnimationOptions& options,
                              const std::string& path, ImportLog& log) {
    if (!scene->mNumAnimations || !scene->mAnimations) return true;
    unsigned index = 0;
    if (!options.pick.empty()) {
        index = scene->mNumAnimations;
        for (unsigned i = 0; i < scene->mNumAnimations && index == scene->mNumAnimations; ++i)
            if (scene->mAnimations[i] && options.pick == scene->mAnimations[i]->mName.C_Str())
                index = i;
        bool digits = options.pick.find_first_not_of("0123456789") == std::string::npos;
        if (index == scene->mNumAnimations && digits && options.pick.size() < 10)
            index = unsigned(std::stoul(options.pick));
        if (index >= scene->mNumAnimations) {
            std::string known;
            for (unsigned i = 0; i < scene->mNumAnimations; ++i)
                known += (i ? ", " : "") + std::to_string(i) + " \"" +
                         (scene->mAnimations[i] ? scene->mAnimations[i]->mName.C_Str() : "") + "\"";
            return log.Error(path + ": no animation \"" + options.pick + "\"; the file has " +
                             std::to_string(scene->mNumAnimations) + ": " + known);
        }
    }
    animation = scene->mAnimations[index];
    if (!animation) return true;
    name = animation->mName.length ? animation->mName.C_Str() : "#" + std::to_string(index);
    fps = options.fps;
    ticksPerSecond = animation->mTicksPerSecond > 0.0 && std::isfinite(animation->mTicksPerSecond)
                         ? animation->mTicksPerSecond
                         : UnstatedTicksPerSecond;
    double duration = animation->mDuration;
    for (unsigned i = 0; animation->mChannels && i < animation->mNumChannels; ++i)
        if (const aiNodeAnim* channel = animation->mChannels[i])
            channels.emplace(channel->mNodeName.C_Str(), channel);
    for (unsigned i = 0; animation->mMorphMeshChannels && i < animation->mNumMorphMeshChannels; ++i)
        if (const aiMeshMorphAnim* morph = animation->mMorphMeshChannels[i])
            morphs.emplace(morph->mName.C_Str(), morph);

    double seconds = duration > 0.0 ? duration / ticksPerSecond : 0.0;
    // A hair below a whole count is that count: 2 s at 10 fps is 20 frames, not 21.
    double count = std::ceil(seconds * fps - 1e-6);
    std::string what = path + ": animation " + std::to_string(index) + " \"" + name + "\" of " +
                       std::to_string(scene->mNumAnimations);
    if (!(count >= 1.0)) count = 1.0;
    if (count > MaxAnimationFrames && !options.maxFrames)
        return log.Error(what + " lasts " + Seconds(seconds) + ", " + Number(count) +
                         " frames at " + Number(fps) + " per second, more than " +
                         std::to_string(MaxAnimationFrames) +
                         ": lower --fps or cap the frames with --frames");
    frames = uint32_t(std::min(count, double(MaxAnimationFrames)));
    std::string capped;
    if (options.maxFrames && options.maxFrames < frames) {
        capped = " (" + Number(count) + " without --frames)";
        frames = options.maxFrames;
    }
    if (frames < 2)
        log.Note(what + ", " + Seconds(seconds) + ": one frame" + capped +
                 ", so the meshes are imported unanimated");
    else
        log.Note(what + ", " + Seconds(seconds) + ": " + std::to_string(frames) + " frames at " +
                 Number(fps) + " per second" + capped);
    return true;
}

const aiMeshMorphAnim* AnimationSampler::MorphOf(const aiNode* node, const aiMesh* mesh) const {
    if (!mesh->mNumAnimMeshes || !mesh->mAnimMeshes) return nullptr;
    auto found = morphs.find(node->mName.C_Str());
    if (found == morphs.end()) found = morphs.find(mesh->mName.C_Str());
    return found == morphs.end() || !found->second->mKeys || !found->second->mNumKeys
               ? nullptr
               : found->second;
}

bool AnimationSampler::Animates(const aiNode* node, const aiMesh* mesh) const {
    if (frames < 2) return false;
    if (MorphOf(node, mesh)) return true;
    for (const aiNode* up = node; up; up = up->mParent)
        if (channels.count(up->mName.C_Str())) return true;
    return false;
}

DMatrix AnimationSampler::LocalTransform(const aiNode* node, double tick) const {
    auto found = channels.find(node->mName.C_Str());
    if (found == channels.end()) return FromAssimp(node->mTransformation);
    const aiNodeAnim* channel = found->second;
    // A part the channel has no keys for stays as the node has it.
    aiVector3D scale, position;
    aiQuaternion rotation;
    node->mTransformation.Decompose(scale, rotation, position);
    return ComposeTransform(
        SampleVector(channel->mPositionKeys, channel->mNumPositionKeys, tick, ToDouble(position)),
        SampleRotation(channel->mRotationKeys, channel->mNumRotationKeys, tick, ToDouble(rotation)),
        SampleVector(channel->mScalingKeys, channel->mNumScalingKeys, tick, ToDouble(scale)));
}

DMatrix AnimationSampler::WorldTransform(const aiNode* node, uint32_t frame) const {
    std::vector<const aiNode*> chain;
    for (const aiNode* up = node; up; up = up->mParent) chain.push_back(up);
    DMatrix world = IdentityMatrix();
    double tick = Tick(frame);
    for (auto at = chain.rbegin(); at != chain.rend(); ++at)
        world = Multiply(world, LocalTransform(*at, tick));
    return world;
}

// Targets hold whole shapes; each adds its weight times its difference from the base, which is
// also what a normalised blend of base and targets comes to.
void AnimationSampler::Shape(const aiNode* node, const aiMesh* mesh, uint32_t frame,
                             std::vector<DVec3>& positions, std::vector<DVec3>& normals) const {
    unsigned count = mesh->mNumVertices;
    positions.resize(count);
    normals.resize(mesh->HasNormals() ? count : 0);
    for (unsigned v = 0; v < count; ++v) positions[v] = ToDouble(mesh->mVertices[v]);
    for (unsigned v = 0; v < normals.size(); ++v) normals[v] = ToDouble(mesh->mNormals[v]);
    const aiMeshMorphAnim* morph = MorphOf(node, mesh);
    if (!morph) return;
    unsigned a, b;
    double alpha;
    Bracket(morph->mKeys, morph->mNumKeys, Tick(frame), a, b, alpha);
    std::vector<double> weights(mesh->mNumAnimMeshes, 0.0);
    for (auto [key, share] : {std::make_pair(a, 1.0 - alpha), std::make_pair(b, alpha)}) {
        const aiMeshMorphKey& k = morph->mKeys[key];
        for (unsigned i = 0; k.mValues && k.mWeights && i < k.mNumValuesAndWeights; ++i)
            if (k.mValues[i] < weights.size()) weights[k.mValues[i]] += share * k.mWeights[i];
    }
    for (unsigned t = 0; t < mesh->mNumAnimMeshes; ++t) {
        const aiAnimMesh* target = mesh->mAnimMeshes[t];
        double w = weights[t];
        if (w == 0.0 || !target || target->mNumVertices != count) continue;
        for (unsigned v = 0; target->mVertices && v < count; ++v) {
            DVec3 d = ToDouble(target->mVertices[v]) - ToDouble(mesh->mVertices[v]);
            positions[v] = {positions[v].x + w * d.x, positions[v].y + w * d.y,
                            positions[v].z + w * d.z};
        }
        for (unsigned v = 0; target->mNormals && v < normals.size(); ++v) {
            DVec3 d = ToDouble(target->mNormals[v]) - ToDouble(mesh->mNormals[v]);
            normals[v] = {normals[v].x + w * d.x, normals[v].y + w * d.y, normals[v].z + w * d.z};
        }
    }
}
