#include "tool/maps/animated_map.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "tool/maps/map_generator.h"
#include "tool/maps/mesh_builder.h"

namespace {

// Towards the sun: in front of the sails and 25 degrees up, so that their shadow falls behind the
// windmill and the buildings stand clear of it.
const char* const Sun = "0.30 0.42 0.86";
const char* const SunColour = "255 236 200";
const char* const ShadowColour = "20 24 48";
const char* const Ambient = "64";

// The windmill's front, the side of its sails, faces the sun at z = MillFront.
constexpr float MillX = 320.0f, MillFront = -50.0f, MillSide = 20.0f, HubHeight = 58.0f;
// Each sail spans SailRoot to SailLength from the axle and SailWidth to one side of its stock.
constexpr float SailRoot = 3.0f, SailLength = 44.0f, SailWidth = 10.0f, SailDepth = 1.5f;
constexpr float AxleLength = 4.0f, AxleHalf = 3.0f;

MapRecipe AnimatedRecipe() {
    MapRecipe recipe;
    recipe.cells = AnimatedMapCells;
    recipe.chunks = 2;
    recipe.buildings = 4;
    recipe.arches = 1;
    recipe.bridges = 1;
    recipe.roofsOnPosts = 1;
    recipe.seed = 4;
    return recipe;
}

CTexture* Tex(const MapTextures* textures, CTexture* MapTextures::*which) {
    return textures ? textures->*which : nullptr;
}

// The standing part: a stone tower, its cap and the axle. The sails' back face goes on hub.
CMesh* AddTower(CMesh* root, const MapRecipe& recipe, const MapTextures* textures, Vector& hub) {
    const float x0 = MillX - MillSide / 2, x1 = MillX + MillSide / 2;
    const float z0 = MillFront - MillSide, z1 = MillFront;
    const float ground = LowestGround(recipe, x0, z0, x1, z1);
    const float top = ground + HubHeight + 6.0f;
    hub = {MillX, ground + HubHeight, MillFront + AxleLength};
    MeshBuilder b;
    b.SetTexture(Tex(textures, &MapTextures::rock));
    b.AddBox({x0, ground - 2.0f, z0}, {x1, top, z1});
    b.SetTexture(Tex(textures, &MapTextures::roof));
    b.AddBox({x0 - 3.0f, top, z0 - 3.0f}, {x1 + 3.0f, top + 4.0f, z1 + 3.0f});
    b.AddBox({x0 + 2.0f, top + 4.0f, z0 + 2.0f}, {x1 - 2.0f, top + 10.0f, z1 - 2.0f});
    b.SetTexture(Tex(textures, &MapTextures::wood));
    b.AddBox({hub.x - AxleHalf, hub.y - AxleHalf, MillFront},
             {hub.x + AxleHalf, hub.y + AxleHalf, hub.z});
    return b.Build(root, "windmill");
}

// A vertex turned by angle about the axle, which runs along z through hub.
MeshVertex Turned(const MeshVertex& vertex, const Vector& hub, double angle) {
    const double c = std::cos(angle), s = std::sin(angle);
    const double x = double(vertex.position.x) - double(hub.x);
    const double y = double(vertex.position.y) - double(hub.y);
    const double nx = double(vertex.normal.x), ny = double(vertex.normal.y);
    MeshVertex out = vertex;
    out.position.x = float(double(hub.x) + x * c - y * s);
    out.position.y = float(double(hub.y) + x * s + y * c);
    out.normal.x = float(nx * c - ny * s);
    out.normal.y = float(nx * s + ny * c);
    return out;
}

// Frame f holds the first frame's vertices turned by f / frames of a quarter turn: the four sails
// look alike a quarter turn on, so the last frame leads back into the first.
void Animate(CMesh* sails, const Vector& hub) {
    const size_t count = size_t(sails->vertexCount), frames = AnimatedMapFrames;
    std::vector<MeshVertex> keys(count * frames);
    for (size_t f = 0; f < frames; ++f)
        for (size_t i = 0; i < count; ++i)
            keys[f * count + i] = Turned(sails->vertices[i], hub, M_PI / 2 * double(f) / frames);
    sails->AllocVertices(int32_t(keys.size()));
    std::memcpy(sails->vertices, keys.data(), keys.size() * sizeof(MeshVertex));

    auto* animation = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
    std::memset(animation, 0, sizeof *animation);
    animation->flags = VertexAnimationOwnsArrays;
    animation->frameCount = animation->keyCount = uint32_t(frames);
    animation->totalVertices = uint32_t(keys.size());
    animation->frameData = sails->vertices;
    animation->keyFrames = static_cast<uint32_t*>(MALLOC(frames * sizeof(uint32_t)));
    animation->frameTable = static_cast<void**>(MALLOC(frames * sizeof(void*)));
    for (size_t f = 0; f < frames; ++f) {
        animation->keyFrames[f] = uint32_t(f);
        animation->frameTable[f] = sails->vertices + f * count;
    }
    sails->vertexCount = int32_t(count);
    sails->SetVertexAnimation(animation);
}

// The sails at the first frame: at quarter turns they lie along the axes, so boxes make them.
void AddSails(CMesh* windmill, const Vector& hub, const MapTextures* textures) {
    static const float cosines[4] = {1.0f, 0.0f, -1.0f, 0.0f};
    MeshBuilder b;
    b.SetTexture(Tex(textures, &MapTextures::wood));
    for (int k = 0; k < 4; ++k) {
        const float c = cosines[k], s = cosines[(k + 3) % 4];
        float u0 = 1e30f, v0 = 1e30f, u1 = -1e30f, v1 = -1e30f;
        for (float r : {SailRoot, SailLength})
            for (float w : {0.0f, SailWidth}) {
                const float u = r * c - w * s, v = r * s + w * c;
                u0 = std::min(u0, u), u1 = std::max(u1, u);
                v0 = std::min(v0, v), v1 = std::max(v1, v);
            }
        b.AddBox({hub.x + u0, hub.y + v0, hub.z}, {hub.x + u1, hub.y + v1, hub.z + SailDepth});
    }
    Animate(b.Build(windmill, "sails"), hub);
}

}  // namespace

CMesh* GenerateAnimatedMap(const MapTextures* textures) {
    const MapRecipe recipe = AnimatedRecipe();
    CMesh* root = GenerateMap(recipe, textures);
    Vector hub;
    CMesh* windmill = AddTower(root, recipe, textures, hub);
    AddSails(windmill, hub, textures);
    return root;
}

std::vector<MapTextFile> AnimatedMapFiles() {
    const std::string sun = Sun, colour = SunColour, shadow = ShadowColour, ambient = Ambient;
    return {
        {"resource.cfg", "LIT lit\nTEXTURE_DATA textures\n"},
        {"lit/animated.ssf", "LIGHT " + sun + "\nLIGHT_COLOUR " + colour + "\nSHADOW_COLOUR " +
                                 shadow + "\nAMBIENT " + ambient + "\nOVERSAMPLE 2\nANIMATED " +
                                 std::to_string(AnimatedMapFrames) +
                                 "\nHEIGHTDATA\nSCRIPT animated.lit\n"},
        {"lit/animated.lit",
         "sun " + sun + " colour " + colour + "\nambient " + ambient + " shadow " + shadow + "\n"},
    };
}
