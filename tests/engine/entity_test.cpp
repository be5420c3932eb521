#include "engine/scene/entity.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Names = std::vector<std::string>;

CEntity* Named(CEntity* parent, const char* name) {
    CEntity* node = new CEntity(parent);
    node->SetName(name);
    return node;
}

Names ChildNames(const CEntity* node) {
    Names names;
    for (const CEntity* c = node->firstChild; c; c = c->nextSibling)
        names.push_back(c->name ? c->name : "");
    return names;
}

// Counts the calls that the base class passes on to the children.
class Recorder : public CEntity {
public:
    explicit Recorder(CEntity* owner) : CEntity(owner) {}
    void RecursiveHook(uint32_t recursive) override {
        ++hooks;
        CEntity::RecursiveHook(recursive);
    }
    void SortFaces(uint32_t recursive) override {
        ++sorts;
        CEntity::SortFaces(recursive);
    }
    void SetAnimationFrame(float frame, uint32_t flags) override {
        ++frames;
        CEntity::SetAnimationFrame(frame, flags);
    }
    void CacheAnimation() override {
        ++caches;
        CEntity::CacheAnimation();
    }
    int hooks = 0, sorts = 0, frames = 0, caches = 0;
};

}  // namespace

TEST(EntityTree, ListsStayIntactThroughRemoveDeleteAndReparent) {
    CEntity root(nullptr);
    CEntity* a = Named(&root, "a");
    CEntity* b = Named(&root, "b");
    CEntity* c = Named(&root, "c");
    EXPECT_EQ(ChildNames(&root), (Names{"c", "b", "a"}));
    delete b;  // middle of the list
    EXPECT_EQ(ChildNames(&root), (Names{"c", "a"}));

    CEntity other(nullptr);
    a->matrixValid = 1;
    other.AddChild(a);  // leaves its old list first
    EXPECT_EQ(ChildNames(&root), (Names{"c"}));
    EXPECT_EQ(a->parent, &other);
    EXPECT_EQ(a->nextSibling, nullptr);
    EXPECT_EQ(a->matrixValid, 0);

    c->matrixValid = 1;
    root.RemoveChild(c);  // not deleted, only unlinked
    EXPECT_EQ(root.firstChild, nullptr);
    EXPECT_EQ(c->parent, nullptr);
    EXPECT_EQ(c->matrixValid, 0);
    delete c;
}

TEST(EntityFind, SiblingsComeBeforeChildrenAndOnlyExactNamesMatch) {
    CEntity root(nullptr);
    root.SetName("root");
    CEntity* a = Named(&root, "a");
    CEntity* b = Named(&root, "b");  // list: b, a
    CEntity* underB = Named(b, "dup");
    CEntity* underA = Named(a, "dup");
    new CEntity(a);  // unnamed nodes never match

    EXPECT_EQ(root.FindByName(nullptr), nullptr);
    EXPECT_EQ(root.FindByName("root"), &root);
    EXPECT_EQ(root.FindByName("a"), a);
    // b's children wait until the whole list was tried, and the later siblings' children come
    // before the earlier ones'.
    EXPECT_EQ(root.FindByName("dup"), underA);
    for (const char* near : {"A", "du", ""}) EXPECT_EQ(root.FindByName(near), nullptr) << near;
    EXPECT_EQ(a->FindByName("b"), nullptr);  // the siblings of the node asked are not searched
    EXPECT_EQ(b->FindByName("dup"), underB);
}

TEST(EntityValidity, IsValidUpToStopsAtTheReference) {
    CEntity root(nullptr);
    CEntity* mid = new CEntity(&root);
    CEntity* leaf = new CEntity(mid);
    root.matrixValid = mid->matrixValid = leaf->matrixValid = 1;
    EXPECT_TRUE(leaf->IsValidUpTo(nullptr));
    root.Invalidate();
    EXPECT_FALSE(leaf->IsValidUpTo(nullptr));
    EXPECT_TRUE(leaf->IsValidUpTo(mid));
    mid->Invalidate();
    EXPECT_FALSE(leaf->IsValidUpTo(mid));  // the reference itself counts
    EXPECT_TRUE(leaf->IsValidUpTo(leaf));
}

TEST(EntityPlacement, PositionIsCarriedThroughTranslatedAncestors) {
    CEntity top(nullptr);
    top.SetPosition(1.0f, 2.0f, 3.0f);
    CEntity* mid = new CEntity(&top);
    mid->SetPosition(Vector{10.0f, 20.0f, 30.0f});
    CEntity* leaf = new CEntity(mid);
    leaf->SetPosition(100.0f, 200.0f, 300.0f);

    Vector world, inTop, local;
    leaf->GetPositionIn(nullptr, world);
    leaf->GetPositionIn(&top, inTop);
    leaf->GetPositionIn(mid, local);  // own parent: the identity chain
    EXPECT_EQ(world.x + world.y + world.z, 666.0f);
    EXPECT_EQ(inTop.x, 110.0f);
    EXPECT_EQ(local.x, 100.0f);

    leaf->matrixValid = 1;
    leaf->SetPositionIn(nullptr, world);
    EXPECT_EQ(leaf->position.y, 200.0f);
    EXPECT_EQ(leaf->matrixValid, 0);
    EXPECT_EQ(world.x, 100.0f);  // the caller's vector lost the chain's translation on the way

    leaf->SetPositionIn(&top, 15.0f, 25.0f, 35.0f);
    EXPECT_EQ(leaf->position.x, 5.0f);
    EXPECT_EQ(leaf->position.z, 5.0f);
}

TEST(EntityClone, CopiesPlacementAndReversesTheChildren) {
    CEntity* source = Named(nullptr, "source");
    source->SetPosition(1.0f, 2.0f, 3.0f);
    source->features = 4;
    source->hidden = 1;
    CEntity* a = Named(source, "a");
    Named(source, "b");
    Named(a, "grandchild");
    new CFrame(source);  // list: frame, b, a

    CEntity holder(nullptr);
    Named(&holder, "older");
    CEntity* copy = source->Clone(&holder, 0);
    EXPECT_EQ(holder.firstChild, copy);
    EXPECT_EQ(dynamic_cast<CFrame*>(copy), nullptr);
    EXPECT_EQ(copy->position.y, 2.0f);
    EXPECT_EQ(copy->features, 4);
    EXPECT_EQ(copy->hidden, 1);
    EXPECT_EQ(copy->IsValid(), 0);
    EXPECT_EQ(ChildNames(copy), (Names{"a", "b", ""}));
    EXPECT_NE(dynamic_cast<CFrame*>(copy->firstChild->nextSibling->nextSibling), nullptr);

    // The copy owns its names: they outlive the source (the sanitizer build would see a reuse).
    delete source;
    copy->SetName(copy->name);  // its own name as the text: copied before the old one goes
    EXPECT_STREQ(copy->name, "source");
    EXPECT_STREQ(copy->firstChild->firstChild->name, "grandchild");

    // Cloned under itself, the copy is not cloned again.
    CEntity* again = copy->Clone(copy, 0);
    EXPECT_EQ(ChildNames(copy), (Names{"source", "a", "b", ""}));
    EXPECT_EQ(ChildNames(again), (Names{"", "b", "a"}));
}

TEST(EntityWalks, CountsAndHooksReachEveryChildOnlyWhenAsked) {
    Recorder root(nullptr);
    Recorder* child = new Recorder(&root);
    Recorder* grandchild = new Recorder(child);
    new CEntity(&root);

    uint32_t frames = 0, faces = 7;
    root.CountContents(&frames, &faces, nullptr, nullptr, nullptr);
    EXPECT_EQ(frames, 4u);
    EXPECT_EQ(faces, 7u);  // a plain node has no faces to add

    root.RecursiveHook(0x100);  // only the low byte says "recursive"
    root.SortFaces(0x100);
    root.SetAnimationFrame(3.5f, 2);  // bit 0 clear: this node only
    EXPECT_EQ(root.hooks + root.sorts + root.frames, 3);
    EXPECT_EQ(child->hooks + child->sorts + child->frames, 0);
    root.RecursiveHook(1);
    root.SortFaces(0x80);
    root.SetAnimationFrame(4.5f, 3);
    root.CacheAnimation();
    EXPECT_EQ(grandchild->hooks + grandchild->sorts + grandchild->frames, 3);
    EXPECT_EQ(grandchild->caches, 1);
}
