// The sample map's meshes drawn through the device from above (one stage, their own textures),
// off screen through GL, read back by Lock and kept as build/.../sample_from_above.png.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <vector>

#include "engine/mesh/mesh.h"
#include "engine/render/renderer.h"
#include "engine/scene/path_list.h"
#include "engine/texture/texture.h"
#include "platform/crt/clock.h"
#include "platform/dx7/call_recorder.h"
#include "platform/dx7/gl_context.h"
#include "tool/bake/png_preview.h"

namespace {

struct TexturedVertex {  // D3DFVF_VERTEX
    float x, y, z, nx, ny, nz, u, v;
};

// The square of side units from the origin onto the whole target, z = 0 at the top, higher
// ground nearer.
D3DMATRIX TopDownProjection(float side) {
    D3DMATRIX m{};
    m.m[0][0] = 2 / side;
    m.m[3][0] = -1;
    m.m[2][1] = 2 / side;
    m.m[3][1] = 1;
    m.m[1][2] = -1 / side;
    m.m[3][2] = 0.5f;
    m.m[3][3] = 1;
    return m;
}

// Layer 0 of every mesh in the tree, in world space, by texture.
void CollectTriangles(CEntity* node, std::map<CTexture*, std::vector<TexturedVertex>>& out) {
    for (CEntity* child = node->firstChild; child; child = child->nextSibling) {
        if (child->kind == 2) {
            const CMesh* mesh = static_cast<CMesh*>(child);
            Matrix world;
            mesh->GetTransform(world, nullptr);
            for (uint32_t f = 0; f < mesh->faceCount[0]; ++f) {
                const MeshFace& face = mesh->faces[0][f];
                for (int corner = 0; corner < 3; ++corner) {
                    const Vector& p = mesh->vertices[face.vertex[corner]].position;
                    const float* w = world.m;
                    out[face.texture].push_back(
                        {p.x * w[0] + p.y * w[4] + p.z * w[8] + w[12],
                         p.x * w[1] + p.y * w[5] + p.z * w[9] + w[13],
                         p.x * w[2] + p.y * w[6] + p.z * w[10] + w[14], 0, 1, 0,
                         face.uv[corner * 2], face.uv[corner * 2 + 1]});
                }
            }
        }
        CollectTriangles(child, out);
    }
}

TEST(SamplePicture, MapFromAboveThroughTheDevice) {
    DxSetRendering(DxRendering::GlWhenAvailable);
    if (!DxCurrentGlContext()) GTEST_SKIP() << DxGlFailure();
    const bool wasInstant = SetSleepInstant(true);

    PathList paths;
    paths.Push(TENEBRIX_SAMPLE_DIR "/textures/");
    PathList* savedPaths = TexturePaths;
    TexturePaths = &paths;
    CMesh map(nullptr);
    ASSERT_TRUE(map.LoadVBF(TENEBRIX_SAMPLE_DIR "/test.vbf"));
    std::map<CTexture*, std::vector<TexturedVertex>> runs;
    CollectTriangles(&map, runs);

    const int side = 512;
    CRenderer* renderer = OpenDevice(reinterpret_cast<HWND>(uintptr_t(1)), OpenWindowed | Open3D, side, side, 32);
    ASSERT_NE(renderer, nullptr);
    D3DMATRIX identity{};
    for (int i = 0; i < 4; ++i) identity.m[i][i] = 1;
    float mapSide = 0;
    for (auto& [texture, vertices] : runs)
        for (const TexturedVertex& v : vertices) mapSide = std::max({mapSide, v.x, -v.z});
    D3DMATRIX projection = TopDownProjection(mapSide);
    renderer->device->SetTransform(D3DTRANSFORMSTATE_WORLD, &identity);
    renderer->device->SetTransform(D3DTRANSFORMSTATE_VIEW, &identity);
    renderer->device->SetTransform(D3DTRANSFORMSTATE_PROJECTION, &projection);
    D3DVIEWPORT7 viewport = {0, 0, DWORD(side), DWORD(side), 0, 1};
    renderer->device->SetViewport(&viewport);
    renderer->device->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0xFFFF00FF, 1, 0);
    renderer->device->BeginScene();
    size_t triangles = 0;
    for (auto& [texture, vertices] : runs) {
        if (texture) renderer->LoadDeviceTexture(texture);
        renderer->RequestStageTexture(texture, 0);
        renderer->SetDefaultStages(false);
        renderer->SetRenderState(D3DRENDERSTATE_LIGHTING, 0);
        renderer->SetRenderState(D3DRENDERSTATE_CULLMODE, D3DCULL_NONE);
        renderer->ApplyState();
        EXPECT_EQ(renderer->device->DrawPrimitive(D3DPT_TRIANGLELIST, D3DFVF_VERTEX,
                                                  vertices.data(), DWORD(vertices.size()), 0),
                  D3D_OK);
        triangles += vertices.size() / 3;
    }
    renderer->device->EndScene();

    DDSURFACEDESC2 desc{};
    desc.dwSize = sizeof desc;
    ASSERT_EQ(renderer->LockSurfaceRetry(renderer->flipping, nullptr, &desc, DDLOCK_WAIT), DD_OK);
    std::vector<uint32_t> pixels(size_t(side) * side);
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x)
            pixels[size_t(y) * side + x] =
                reinterpret_cast<const uint32_t*>(static_cast<const uint8_t*>(desc.lpSurface) +
                                                  size_t(y) * desc.lPitch)[x] | 0xFF000000u;
    renderer->flipping->Unlock(nullptr);
    EXPECT_TRUE(WriteColourPng("sample_from_above.png", pixels.data(), side, side));

    // The map covers the target in its own colours: grass (green above all) for the most
    // part, blue roofs here and there; a channel swap or a missing texture fails this.
    size_t uncovered = 0, green = 0, blue = 0;
    for (uint32_t pixel : pixels) {
        const int r = pixel >> 16 & 255, g = pixel >> 8 & 255, b = pixel & 255;
        uncovered += (pixel & 0xFFFFFF) == 0xFF00FF;
        green += g > r + 30 && g > b + 30;
        blue += b > r + 60 && b > g + 60;
    }
    EXPECT_GT(triangles, 1000u);
    EXPECT_LT(uncovered, pixels.size() / 100);
    EXPECT_GT(green, pixels.size() * 8 / 10);
    EXPECT_GT(blue, pixels.size() / 200);

    CloseDevice(renderer);
    TexturePaths = savedPaths;
    SetSleepInstant(wasInstant);
}

}  // namespace
