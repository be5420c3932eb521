#include "tool/maps/map_generator.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "engine/texture/texture.h"
#include "tool/maps/mesh_builder.h"

namespace {

constexpr float CellSize = 32.0f;

// Rolling ground from a few seeded waves in different directions; cheap and smooth.
struct Terrain {
    float amplitude;
    float phase[4], dirX[4], dirZ[4];

    float Height(float x, float z) const {
        if (amplitude == 0.0f) return 0.0f;
        float h = 0.0f, weight = 1.0f, frequency = 0.0025f;
        for (int i = 0; i < 4; ++i, weight *= 0.45f, frequency *= 2.1f)
            h += weight * std::sin((x * dirX[i] + z * dirZ[i]) * frequency + phase[i]);
        return amplitude * h;
    }
    float LowestUnder(float x0, float z0, float x1, float z1) const {
        float low = 1e30f;
        for (int i = 0; i <= 4; ++i)
            for (int k = 0; k <= 4; ++k)
                low = std::min(low, Height(x0 + (x1 - x0) * i / 4, z0 + (z1 - z0) * k / 4));
        return low;
    }
};

// Where the objects go: one builder per chunk, or the one builder of a one-mesh map.
class Placement {
public:
    Placement(const MapRecipe& recipe, CMesh* root) : recipe_(recipe), root_(root) {
        int count = recipe.oneMesh ? 1 : recipe.chunks * recipe.chunks;
        builders_.resize(size_t(count));
        grounds_.resize(size_t(count), nullptr);
    }
    MeshBuilder& ForPoint(float x, float z) { return builders_[IndexOf(x, z)]; }
    MeshBuilder& Chunk(int index) { return builders_[size_t(index)]; }
    int Count() const { return int(builders_.size()); }
    void SetGround(int index, CMesh* ground) { grounds_[size_t(index)] = ground; }

    // Objects become a mesh under their chunk's ground mesh: the map's tree nests.
    void BuildObjects() {
        for (size_t i = 0; i < builders_.size(); ++i)
            if (!builders_[i].Empty())
                builders_[i].Build(grounds_[i] ? static_cast<CEntity*>(grounds_[i]) : root_,
                                   "objects");
    }

private:
    size_t IndexOf(float x, float z) const {
        if (recipe_.oneMesh) return 0;
        float chunkSize = recipe_.cells * CellSize / recipe_.chunks;
        int cx = std::clamp(int(x / chunkSize), 0, recipe_.chunks - 1);
        int cz = std::clamp(int(-z / chunkSize), 0, recipe_.chunks - 1);
        return size_t(cz * recipe_.chunks + cx);
    }

    const MapRecipe& recipe_;
    CMesh* root_;
    std::vector<MeshBuilder> builders_;
    std::vector<CMesh*> grounds_;
};

struct Random {
    std::mt19937 engine;
    float Uniform(float lo, float hi) {
        return std::uniform_real_distribution<float>(lo, hi)(engine);
    }
    int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(engine); }
};

// The waves are the seed's first draws, so a recipe's ground can be had without its map.
Terrain MakeTerrain(float amplitude, Random& random) {
    Terrain terrain = {amplitude, {}, {}, {}};
    for (int i = 0; i < 4; ++i) {
        float angle = random.Uniform(0.0f, 6.2831853f);
        terrain.phase[i] = random.Uniform(0.0f, 6.2831853f);
        terrain.dirX[i] = std::cos(angle);
        terrain.dirZ[i] = std::sin(angle);
    }
    return terrain;
}

CTexture* Tex(const MapTextures* textures, CTexture* MapTextures::*which) {
    return textures ? textures->*which : nullptr;
}

void AddBuilding(MeshBuilder& b, const Terrain& terrain, const MapTextures* textures, float x,
                 float z, float w, float d, float height) {
    float base = terrain.LowestUnder(x, z - d, x + w, z) - 2.0f;
    float top = base + 2.0f + height;
    b.SetTexture(Tex(textures, &MapTextures::wall));
    b.AddBox({x, base, z - d}, {x + w, top, z});
    // A pitched roof along x with gables at both ends.
    float ridge = top + std::min(w, d) * 0.4f, eave = 1.5f;
    Vector a0 = {x - eave, top, z + eave}, a1 = {x + w + eave, top, z + eave};
    Vector b0 = {x - eave, top, z - d - eave}, b1 = {x + w + eave, top, z - d - eave};
    Vector r0 = {x - eave, ridge, z - d * 0.5f}, r1 = {x + w + eave, ridge, z - d * 0.5f};
    b.SetTexture(Tex(textures, &MapTextures::roof));
    b.AddQuad(a0, a1, r1, r0, {0, 1, 1});
    b.AddQuad(b0, b1, r1, r0, {0, 1, -1});
    b.AddTriangle(a0, b0, r0, {-1, 0, 0});
    b.AddTriangle(a1, b1, r1, {1, 0, 0});
    b.AddQuad(a0, a1, b1, b0, {0, -1, 0});  // the roof's underside, over the eaves
}

void AddArch(MeshBuilder& b, const Terrain& terrain, const MapTextures* textures, float cx,
             float cz, bool alongX, float span) {
    const float inner = span * 0.35f, outer = span * 0.5f, depth = span * 0.25f;
    const float base = terrain.LowestUnder(cx - outer, cz - depth, cx + outer, cz) - 2.0f;
    const float spring = base + span * 0.3f;
    // Built along x and turned about y for an arch along z.
    auto place = [&](float u, float y, float v) {
        return alongX ? Vector{cx + u, y, cz + v} : Vector{cx + v, y, cz - u};
    };
    auto turn = [&](Vector n) { return alongX ? n : Vector{n.z, n.y, -n.x}; };
    b.SetTexture(Tex(textures, &MapTextures::rock));
    const int segments = 12;
    for (int i = 0; i < segments; ++i) {
        float a0 = float(M_PI) * i / segments, a1 = float(M_PI) * (i + 1) / segments;
        float c0 = std::cos(a0), s0 = std::sin(a0), c1 = std::cos(a1), s1 = std::sin(a1);
        Vector in0 = place(inner * c0, spring + inner * s0, 0),
               in1 = place(inner * c1, spring + inner * s1, 0);
        Vector out0 = place(outer * c0, spring + outer * s0, 0),
               out1 = place(outer * c1, spring + outer * s1, 0);
        auto back = [&](Vector p) {
            return alongX ? Vector{p.x, p.y, p.z - depth} : Vector{p.x - depth, p.y, p.z};
        };
        float mid = (a0 + a1) * 0.5f;
        Vector up = turn({std::cos(mid), std::sin(mid), 0});
        b.AddQuad(out0, out1, back(out1), back(out0), up);
        b.AddQuad(in0, in1, back(in1), back(in0), {-up.x, -up.y, -up.z});
        b.AddQuad(in0, out0, out1, in1, turn({0, 0, 1}));
        b.AddQuad(back(in0), back(out0), back(out1), back(in1), turn({0, 0, -1}));
    }
    for (float side : {-1.0f, 1.0f}) {  // the two pillars
        Vector p0 = place(side * inner, base, 0), p1 = place(side * outer, spring, -depth);
        b.AddBox({std::min(p0.x, p1.x), base, std::min(p0.z, p1.z)},
                 {std::max(p0.x, p1.x), spring, std::max(p0.z, p1.z)});
    }
}

void AddBridge(MeshBuilder& b, const Terrain& terrain, const MapTextures* textures, float x,
               float z, float length) {
    const float width = 24.0f;
    float high = -1e30f;
    for (int i = 0; i <= 8; ++i) high = std::max(high, terrain.Height(x + length * i / 8, z));
    const float deck = high + 18.0f;
    b.SetTexture(Tex(textures, &MapTextures::wood));
    b.AddBox({x, deck, z - width}, {x + length, deck + 3.0f, z});  // overhangs the ground
    b.SetTexture(Tex(textures, &MapTextures::rock));
    for (float px : {x + length * 0.25f, x + length * 0.75f}) {
        float base = terrain.LowestUnder(px, z - width, px + 6.0f, z) - 2.0f;
        b.AddBox({px, base, z - width}, {px + 6.0f, deck, z});
    }
}

void AddRoofOnPosts(MeshBuilder& b, const Terrain& terrain, const MapTextures* textures, float x,
                    float z, float side) {
    const float post = 3.0f;
    float base = terrain.LowestUnder(x, z - side, x + side, z) - 2.0f;
    float height = base + 2.0f + side * 0.6f;
    b.SetTexture(Tex(textures, &MapTextures::wood));
    for (int i = 0; i < 4; ++i) {
        float px = (i & 1) ? x + side - post : x, pz = (i & 2) ? z - side + post : z;
        b.AddBox({px, base, pz - post}, {px + post, height, pz});
    }
    b.SetTexture(Tex(textures, &MapTextures::roof));
    b.AddBox({x - 4, height, z - side - 4}, {x + side + 4, height + 2.0f, z + 4});
}

CTexture* MakeTexture(const char* name, uint32_t base, uint32_t seed) {
    CTexture* texture = CreateTexture(64, 64, TextureFormat8880);
    texture->SetName(name);
    std::mt19937 random(seed);
    for (int i = 0; i < 64 * 64; ++i) {
        int shade = int(random() % 40) - 20;
        for (int c = 0; c < 3; ++c) {
            int value = int((base >> (8 * c)) & 0xFF) + shade;
            texture->pixels[i * 3 + c] = uint8_t(std::clamp(value, 0, 255));
        }
    }
    return texture;
}

}  // namespace

MapTextures CreateMapTextures() {
    return {MakeTexture("grass.tga", 0x3C8C46, 1), MakeTexture("rock.tga", 0x8A8A8A, 2),
            MakeTexture("wall.tga", 0xB4C8D2, 3), MakeTexture("roof.tga", 0x32329A, 4),
            MakeTexture("wood.tga", 0x285A8C, 5)};
}

CMesh* GenerateMap(const MapRecipe& recipe, const MapTextures* textures) {
    Random random{std::mt19937(recipe.seed)};
    const Terrain terrain = MakeTerrain(recipe.hills, random);
    const float span = recipe.cells * CellSize;
    const int chunks = recipe.oneMesh ? 1 : std::max(1, recipe.chunks);

    CMesh* root = new CMesh(nullptr);
    root->SetName("map");
    Placement placement(recipe, root);

    // Ground: chunk meshes, or the one mesh's builder.
    const float chunkSize = span / chunks;
    const int quads = std::max(1, int(std::lround(chunkSize / CellSize * recipe.quadsPerCell)));
    auto height = [&](float x, float z) { return terrain.Height(x, z); };
    for (int cz = 0; cz < chunks; ++cz)
        for (int cx = 0; cx < chunks; ++cx) {
            int index = recipe.oneMesh ? 0 : cz * chunks + cx;
            MeshBuilder& b = placement.Chunk(index);
            b.SetTexture(Tex(textures, &MapTextures::grass));
            b.AddTerrain(cx * chunkSize, -cz * chunkSize, quads, quads, chunkSize / quads, height);
            if (recipe.oneMesh) continue;
            placement.SetGround(index, b.Build(root, "ground"));
        }

    auto somewhere = [&](float margin, float& x, float& z) {
        x = random.Uniform(margin, std::max(margin, span - margin));
        z = -random.Uniform(margin, std::max(margin, span - margin));
    };
    float x, z;
    for (int i = 0; i < recipe.buildings; ++i) {
        somewhere(20.0f, x, z);
        float w = random.Uniform(12.0f, 40.0f), d = random.Uniform(12.0f, 40.0f);
        AddBuilding(placement.ForPoint(x, z), terrain, textures, x, z, w, d,
                    random.Uniform(10.0f, 50.0f));
    }
    for (int i = 0; i < recipe.arches; ++i) {
        somewhere(60.0f, x, z);
        AddArch(placement.ForPoint(x, z), terrain, textures, x, z, random.Int(0, 1) == 1,
                random.Uniform(60.0f, 110.0f));
    }
    for (int i = 0; i < recipe.bridges; ++i) {
        somewhere(40.0f, x, z);
        AddBridge(placement.ForPoint(x, z), terrain, textures, x, z,
                  std::min(span * 0.5f, random.Uniform(80.0f, 200.0f)));
    }
    for (int i = 0; i < recipe.roofsOnPosts; ++i) {
        somewhere(30.0f, x, z);
        AddRoofOnPosts(placement.ForPoint(x, z), terrain, textures, x, z,
                       random.Uniform(20.0f, 48.0f));
    }
    if (recipe.oneMesh) {
        placement.Chunk(0).Build(root, "map");
    } else {
        placement.BuildObjects();
    }
    return root;
}

float LowestGround(const MapRecipe& recipe, float x0, float z0, float x1, float z1) {
    Random random{std::mt19937(recipe.seed)};
    return MakeTerrain(recipe.hills, random).LowestUnder(x0, z0, x1, z1);
}

uint32_t CountTriangles(const CMesh* root) {
    uint32_t count = root->faceCount[0];
    for (const CEntity* child = root->firstChild; child; child = child->nextSibling)
        if (child->kind == EntityKindMesh)
            count += CountTriangles(static_cast<const CMesh*>(child));
    return count;
}
