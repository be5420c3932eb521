#include "engine/scene/scene.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/scene/entity.h"

namespace {

// Records warnings instead of printing them; puts the old handler back at the end.
class RecordWarnings {
public:
    RecordWarnings() : old(CorvaneSetWarningHandler([](const char* t) { Seen.push_back(t); })) {
        Seen.clear();
    }
    ~RecordWarnings() { CorvaneSetWarningHandler(old); }
    RecordWarnings(const RecordWarnings&) = delete;
    RecordWarnings& operator=(const RecordWarnings&) = delete;

    static inline std::vector<std::string> Seen;

private:
    CorvaneTextHandler old;
};

D3DLIGHT7 Directional(float x) {
    D3DLIGHT7 light{};
    light.dltType = D3DLIGHT_DIRECTIONAL;
    light.dcvDiffuse = {1.0f, 0.5f, 0.25f, 1.0f};
    light.dvDirection = {x, -1.0f, 0.0f};
    return light;
}

TEST(Scene, SetLightDefinesItOffAndGetLightCopiesTheRecord) {
    RecordWarnings warnings;
    CScene scene;
    D3DLIGHT7 got{};
    EXPECT_FALSE(scene.GetLight(5, &got));
    const D3DLIGHT7 light = Directional(0.5f);
    scene.SetLight(5, &light);
    EXPECT_EQ(scene.lightState[5], SceneLightOff);
    EXPECT_EQ(scene.lightTouched[5], 1);
    ASSERT_TRUE(scene.GetLight(5, &got));
    EXPECT_EQ(std::memcmp(&got, &light, sizeof light), 0);

    // A new record for a light that is on keeps it on.
    ASSERT_TRUE(scene.EnableLight(5));
    const D3DLIGHT7 other = Directional(-0.5f);
    scene.SetLight(5, &other);
    EXPECT_TRUE(scene.IsLightEnabled(5));
    ASSERT_TRUE(scene.GetLight(5, &got));
    EXPECT_EQ(got.dvDirection.x, -0.5f);

    // Removed, the light is undefined again but stays touched.
    scene.RemoveLight(5);
    EXPECT_FALSE(scene.GetLight(5, &got));
    EXPECT_EQ(scene.lightTouched[5], 1);
    EXPECT_EQ(scene.lightsOn, 0u);
    EXPECT_TRUE(warnings.Seen.empty());
}

TEST(Scene, AtMostEightLightsAreOn) {
    RecordWarnings warnings;
    CScene scene;
    const D3DLIGHT7 light = Directional(0.0f);
    for (int i = 0; i < 10; ++i) scene.SetLight(i * 10, &light);
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(scene.EnableLight(i * 10)) << i;
    EXPECT_EQ(scene.lightsOn, 8u);

    scene.lightsChanged = 0;
    EXPECT_FALSE(scene.EnableLight(80));  // the ninth
    EXPECT_EQ(scene.lightsOn, 8u);
    EXPECT_EQ(scene.lightState[80], SceneLightOff);
    EXPECT_EQ(scene.lightsChanged, 0);
    EXPECT_EQ(highestLightUsed, 80);  // raised even though the light stayed off

    EXPECT_TRUE(scene.EnableLight(30));  // already on: true, no second count
    EXPECT_EQ(scene.lightsOn, 8u);

    // Switching one off makes room; removing one that is on counts it off first.
    EXPECT_TRUE(scene.DisableLight(0));
    EXPECT_EQ(scene.lightsOn, 7u);
    EXPECT_EQ(scene.lightsChanged, 1);
    EXPECT_TRUE(scene.DisableLight(0));  // already off: no change
    EXPECT_EQ(scene.lightsOn, 7u);
    EXPECT_TRUE(scene.EnableLight(80));
    scene.RemoveLight(80);
    EXPECT_EQ(scene.lightsOn, 7u);
    EXPECT_EQ(scene.lightState[80], SceneLightUndefined);
    EXPECT_TRUE(scene.EnableLight(90));
    EXPECT_EQ(scene.lightsOn, 8u);
    EXPECT_FALSE(scene.EnableLight(0));
    EXPECT_EQ(scene.lightsOn, 8u);
    EXPECT_EQ(highestLightUsed, 90);
    EXPECT_TRUE(warnings.Seen.empty());

    CScene next;  // the number lives beside the one scene and starts again with a new one
    EXPECT_EQ(highestLightUsed, 0);
}

TEST(Scene, UndefinedLightsWarnAndStayUndefined) {
    RecordWarnings warnings;
    CScene scene;
    EXPECT_FALSE(scene.EnableLight(42));
    EXPECT_TRUE(scene.DisableLight(7));
    scene.RemoveLight(3);  // nothing was on: no warning
    EXPECT_EQ(warnings.Seen,
              (std::vector<std::string>{"Attempting to Enable an undefined light 42\n",
                                        "Attempting to Disable an undefined light 7\n"}));
    EXPECT_EQ(scene.lightState[42], SceneLightUndefined);
    EXPECT_EQ(scene.lightsOn, 0u);
    EXPECT_EQ(highestLightUsed, 42);
}

TEST(Scene, IndicesOutOfRangeAreRefusedWithAWarning) {
    RecordWarnings warnings;
    CScene scene;
    const D3DLIGHT7 light = Directional(1.0f);
    D3DLIGHT7 got{};
    for (int index : {-1, int(SceneLightCount), 1 << 20}) {
        scene.SetLight(index, &light);
        EXPECT_FALSE(scene.GetLight(index, &got));
        EXPECT_FALSE(scene.EnableLight(index));
        EXPECT_FALSE(scene.DisableLight(index));
        EXPECT_FALSE(scene.IsLightEnabled(index));
        scene.RemoveLight(index);
    }
    EXPECT_EQ(warnings.Seen.size(), 18u);
    EXPECT_EQ(warnings.Seen.front(), "Light index -1 out of range\n");
    EXPECT_EQ(scene.lightsOn, 0u);
    EXPECT_EQ(highestLightUsed, 0);

    warnings.Seen.clear();
    CEntity* stray = new CEntity(nullptr);
    for (int layer : {-1, int(SceneLayerCount)}) {
        scene.SetLayerRoot(layer, stray);
        scene.SetLayerNear(layer, 2.0f);
        EXPECT_EQ(scene.GetLayerNear(layer), 0.0f);
        scene.AddDecalSet(nullptr, layer);
        scene.RemoveDecalSet(nullptr, layer);
    }
    EXPECT_EQ(warnings.Seen.size(), 10u);
    EXPECT_EQ(warnings.Seen.back(), "Layer 8 out of range\n");
    delete stray;  // refused, so still ours
}

TEST(Scene, DecalChainsAddAtTheHeadAndRemoveAnywhere) {
    RecordWarnings warnings;
    CScene scene;
    // The chain only stores the pointers; the sets are never touched.
    auto* a = reinterpret_cast<CDecalSet*>(uintptr_t(0x1000));
    auto* b = reinterpret_cast<CDecalSet*>(uintptr_t(0x2000));
    auto* c = reinterpret_cast<CDecalSet*>(uintptr_t(0x3000));
    auto chain = [&](int layer) {
        std::vector<CDecalSet*> sets;
        for (auto* node = scene.layerDecals[layer]; node; node = node->next)
            sets.push_back(node->set);
        return sets;
    };
    for (CDecalSet* set : {a, b, c}) scene.AddDecalSet(set, 2);
    scene.AddDecalSet(a, 3);
    EXPECT_EQ(chain(2), (std::vector<CDecalSet*>{c, b, a}));
    scene.RemoveDecalSet(b, 2);  // from the middle
    EXPECT_EQ(chain(2), (std::vector<CDecalSet*>{c, a}));
    EXPECT_TRUE(warnings.Seen.empty());

    scene.RemoveDecalSet(b, 2);  // not there any more
    scene.RemoveDecalSet(a, 5);  // empty chain
    ASSERT_EQ(warnings.Seen.size(), 2u);
    char expected[64];
    std::snprintf(expected, sizeof expected, "Failed to find decal list %p\n",
                  static_cast<void*>(b));
    EXPECT_EQ(warnings.Seen[0], expected);

    scene.RemoveDecalSet(c, 2);  // the head
    EXPECT_EQ(chain(2), (std::vector<CDecalSet*>{a}));
    EXPECT_EQ(chain(3), (std::vector<CDecalSet*>{a}));  // other layers untouched
    // The nodes still in chains go with the scene; the sanitizer build checks for leaks.
}

TEST(Scene, LayerRootsAreStoredAndDeletedWithTheScene) {
    CEntity* replaced;
    {
        CScene scene;
        replaced = scene.layerRoot[0];
        CEntity* root = NEW CEntity(nullptr);  // the scene releases its roots with DELETE
        NEW CEntity(root);
        NEW CEntity(NEW CEntity(root));
        scene.SetLayerRoot(0, root);
        scene.SetLayerRoot(7, NEW CEntity(nullptr));
        EXPECT_EQ(scene.layerRoot[0], root);
        scene.SetLayerNear(4, 1.5f);
        EXPECT_EQ(scene.GetLayerNear(4), 1.5f);
    }
    // SetLayerRoot left the old root to us: deleting it here is a double free if the scene did.
    delete replaced;
}

}  // namespace
