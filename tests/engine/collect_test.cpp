#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "engine/scene/entity.h"
#include "engine/scene/render_list.h"
#include "engine/scene/visibility.h"

namespace {

// Runs the visibility hook before the common walk, as a drawable's Collect does.
class Drawable : public CFrame {
public:
    explicit Drawable(CEntity* owner) : CFrame(owner) {}
    void Collect(RenderList* list, uint8_t parentValid) override {
        VisibilityTest(this, parentValid & matrixValid);
        CEntity::Collect(list, parentValid);
    }
};

using Entities = std::vector<const CEntity*>;

Entities Listed(const RenderList& list) {
    return Entities(list.items, list.items + list.count);
}

std::vector<uint8_t> TestedValid;

void CullNamedCull(CEntity* entity, uint8_t valid) {
    TestedValid.push_back(valid);
    entity->culled = entity->name && std::strcmp(entity->name, "cull") == 0;
}

}  // namespace

TEST(RenderList, GrowsInStepsAndKeepsItsMemoryWhenCleared) {
    RenderList list;
    auto node = [](int i) { return reinterpret_cast<CEntity*>(uintptr_t(i + 1) * 8); };
    for (int i = 0; i < 256; ++i) list.Append(node(i));
    EXPECT_EQ(list.capacity, 256u);
    for (int i = 256; i < 600; ++i) list.Append(node(i));
    EXPECT_EQ(list.capacity, 768u);
    ASSERT_EQ(list.count, 600u);
    for (int i = 0; i < 600; ++i) ASSERT_EQ(list.items[i], node(i)) << i;

    CEntity** kept = list.items;
    list.Clear();
    EXPECT_EQ(list.count, 0u);
    for (int i = 0; i < 600; ++i) list.Append(node(i));
    EXPECT_EQ(list.items, kept);
}

TEST(Collect, WalksDepthFirstInListOrderAndRebuildsInvalidMatrices) {
    CFrame root(nullptr);
    root.SetPosition(1.0f, 0.0f, 0.0f);
    CEntity* a = new CEntity(&root);
    a->SetPosition(0.0f, 2.0f, 0.0f);
    CEntity* a1 = new CEntity(a);
    a1->SetPosition(0.0f, 0.0f, 3.0f);
    CFrame* b = new CFrame(&root);  // list: b, a

    RenderList list;
    root.Collect(&list, 1);
    EXPECT_EQ(Listed(list), (Entities{&root, b, a, a1}));
    EXPECT_EQ(a1->matrixValid, 1);
    Matrix world;
    a1->GetWorldMatrix(world);
    const float expected[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(world[i], expected[i]) << i;

    root.Collect(&list, 1);  // emptying is the caller's job: filled behind what it holds
    EXPECT_EQ(list.count, 8u);
}

TEST(Collect, MovedParentReachesChildrenWhoseOwnFlagIsSet) {
    CFrame root(nullptr);
    CFrame* parent = new CFrame(&root);
    parent->SetPosition(10.0f, 0.0f, 0.0f);
    CEntity* child = new CEntity(parent);
    child->SetPosition(1.0f, 0.0f, 0.0f);
    CEntity* grandchild = new CEntity(child);
    grandchild->SetPosition(0.0f, 1.0f, 0.0f);
    RenderList list;
    root.Collect(&list, 1);

    parent->SetPosition(20.0f, 0.0f, 0.0f);
    parent->SetOrientation(Vector{-1, 0, 0}, Vector{0, 1, 0});  // x axis to -z
    Matrix world;
    parent->GetWorldMatrix(world);
    EXPECT_EQ(world[12], 10.0f);  // stale until the next walk
    EXPECT_EQ(child->matrixValid, 1);

    list.Clear();
    root.Collect(&list, 1);
    grandchild->GetWorldMatrix(world);
    EXPECT_NEAR(world[12], 20.0f, 1e-6f);
    EXPECT_NEAR(world[13], 1.0f, 1e-6f);
    EXPECT_NEAR(world[14], -1.0f, 1e-6f);
}

TEST(Collect, CulledNodesStayOffTheListButTheirChildrenAreWalked) {
    CFrame root(nullptr);
    Drawable* culled = new Drawable(&root);
    culled->SetName("cull");
    Drawable* under = new Drawable(culled);
    CFrame* plain = new CFrame(&root);
    plain->SetName("cull");  // a plain frame never runs the test
    RenderList list;
    VisibilityTest = CullNamedCull;
    TestedValid.clear();
    root.Collect(&list, 1);
    EXPECT_EQ(Listed(list), (Entities{&root, plain, under}));
    EXPECT_EQ(TestedValid, (std::vector<uint8_t>{0, 0}));  // new nodes start invalid

    // Valid as the walk saw it: 1 for a steady tree, 0 below a moved node.
    list.Clear();
    root.Collect(&list, 1);
    root.SetPosition(1.0f, 0.0f, 0.0f);
    list.Clear();
    root.Collect(&list, 1);
    EXPECT_EQ(TestedValid, (std::vector<uint8_t>{0, 0, 1, 1, 0, 0}));
    VisibilityTest = VisibilityTestNone;

    // Until the pipeline installs its test, nothing is culled, whatever the byte held.
    list.Clear();
    root.Collect(&list, 1);
    EXPECT_EQ(list.count, 4u);
}
