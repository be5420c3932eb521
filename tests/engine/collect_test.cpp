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

std::vector<const CEntity*> Listed(const RenderList& list) {
    return std::vector<const CEntity*>(list.items, list.items + list.count);
}

std::vector<std::pair<const CEntity*, uint8_t>> Tested;

void CullNamedHidden(CEntity* entity, uint8_t valid) {
    Tested.emplace_back(entity, valid);
    entity->culled = entity->name && std::strcmp(entity->name, "cull") == 0;
}

class HookGuard {
public:
    explicit HookGuard(VisibilityTestFunction hook) { VisibilityTest = hook; }
    ~HookGuard() { VisibilityTest = VisibilityTestNone; }
};

}  // namespace

TEST(RenderList, GrowsInStepsAndKeepsEveryEntry) {
    RenderList list;
    std::vector<CEntity*> nodes;
    for (int i = 0; i < 600; ++i) nodes.push_back(reinterpret_cast<CEntity*>(uintptr_t(i + 1) * 8));
    for (int i = 0; i < 256; ++i) list.Append(nodes[i]);
    EXPECT_EQ(list.capacity, 256u);
    list.Append(nodes[256]);
    EXPECT_EQ(list.capacity, 512u);
    for (int i = 257; i < 600; ++i) list.Append(nodes[i]);
    EXPECT_EQ(list.capacity, 768u);
    ASSERT_EQ(list.count, 600u);
    for (int i = 0; i < 600; ++i) ASSERT_EQ(list.items[i], nodes[i]) << i;

    // Emptied by the count alone: the memory stays for the next frame.
    CEntity** kept = list.items;
    list.Clear();
    EXPECT_EQ(list.count, 0u);
    for (int i = 0; i < 600; ++i) list.Append(nodes[599 - i]);
    EXPECT_EQ(list.items, kept);
    EXPECT_EQ(list.capacity, 768u);
    EXPECT_EQ(list.items[0], nodes[599]);
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
    EXPECT_EQ(Listed(list), (std::vector<const CEntity*>{&root, b, a, a1}));
    EXPECT_EQ(a1->matrixValid, 1);
    Matrix world;
    a1->GetWorldMatrix(world);
    EXPECT_EQ(world[12], 1.0f);
    EXPECT_EQ(world[13], 2.0f);
    EXPECT_EQ(world[14], 3.0f);
    for (int i : {3, 7, 11}) EXPECT_EQ(world[i], 0.0f);
    EXPECT_EQ(world[15], 1.0f);

    // A set-aside list is filled behind what it holds; emptying is the caller's job.
    root.Collect(&list, 1);
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
    child->GetWorldMatrix(world);
    EXPECT_NEAR(world[12], 20.0f, 1e-6f);
    EXPECT_NEAR(world[14], -1.0f, 1e-6f);
    grandchild->GetWorldMatrix(world);
    EXPECT_NEAR(world[12], 20.0f, 1e-6f);
    EXPECT_NEAR(world[13], 1.0f, 1e-6f);
    EXPECT_NEAR(world[14], -1.0f, 1e-6f);
}

TEST(Collect, CulledNodesStayOffTheListButTheirChildrenAreWalked) {
    CFrame root(nullptr);
    Drawable* culledMesh = new Drawable(&root);
    culledMesh->SetName("cull");
    Drawable* under = new Drawable(culledMesh);
    CFrame* plain = new CFrame(&root);
    plain->SetName("cull");  // a plain frame never runs the test
    RenderList list;
    {
        HookGuard guard(CullNamedHidden);
        Tested.clear();
        root.Collect(&list, 1);
    }
    EXPECT_EQ(Listed(list), (std::vector<const CEntity*>{&root, plain, under}));
    ASSERT_EQ(Tested.size(), 2u);
    EXPECT_EQ(Tested[0].first, culledMesh);
    EXPECT_EQ(Tested[0].second, 0);  // new nodes start invalid
    EXPECT_EQ(under->matrixValid, 1);

    // Valid as the walk saw it: 1 for a steady tree, 0 below a moved node.
    {
        HookGuard guard(CullNamedHidden);
        Tested.clear();
        list.Clear();
        root.Collect(&list, 1);
        ASSERT_EQ(Tested.size(), 2u);
        EXPECT_EQ(Tested[1].second, 1);
        Tested.clear();
        list.Clear();
        root.SetPosition(1.0f, 0.0f, 0.0f);
        root.Collect(&list, 1);
        ASSERT_EQ(Tested.size(), 2u);
        EXPECT_EQ(Tested[1].second, 0);
    }

    // Until the pipeline installs its test, nothing is culled, whatever the byte held.
    list.Clear();
    root.Collect(&list, 1);
    EXPECT_EQ(culledMesh->culled, 0);
    EXPECT_EQ(list.count, 4u);
}
