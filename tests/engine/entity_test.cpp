#include "engine/scene/entity.h"

#include <gtest/gtest.h>

#include <string>

namespace {

CEntity* Named(CEntity* parent, const char* name) {
    CEntity* node = new CEntity(parent);
    node->SetName(name);
    return node;
}

std::string ChildNames(const CEntity* node) {
    std::string names;
    for (const CEntity* c = node->firstChild; c; c = c->nextSibling)
        names += std::string(c->name ? c->name : "-") + " ";
    return names;
}

}  // namespace

// Children stand newest first; a node found by name is this one, then siblings before children.
TEST(EntityTree, ListsStayIntactThroughDeleteAndReparentAndFindGoesBreadthFirst) {
    CEntity root(nullptr), other(nullptr);
    root.SetName("root");
    CEntity* a = Named(&root, "a");
    CEntity* b = Named(&root, "b");
    delete Named(&root, "gone");
    CEntity* c = Named(&root, "c");
    EXPECT_EQ(ChildNames(&root), "c b a ");
    CEntity* underB = Named(b, "dup");
    CEntity* underA = Named(a, "dup");
    new CEntity(a);  // unnamed nodes never match
    EXPECT_EQ(root.FindByName(nullptr), nullptr);
    EXPECT_EQ(root.FindByName("root"), &root);
    EXPECT_EQ(root.FindByName("dup"), underA);  // the later siblings' children come first
    for (const char* near : {"A", "du", ""}) EXPECT_EQ(root.FindByName(near), nullptr) << near;
    EXPECT_EQ(a->FindByName("b"), nullptr);  // the siblings of the node asked are not searched
    EXPECT_EQ(b->FindByName("dup"), underB);

    b->matrixValid = c->matrixValid = 1;
    other.AddChild(b);    // leaves its old list first
    root.RemoveChild(c);  // not deleted, only unlinked
    EXPECT_EQ(ChildNames(&root), "a ");
    EXPECT_EQ(b->parent, &other);
    EXPECT_EQ(b->nextSibling, nullptr);
    EXPECT_EQ(c->parent, nullptr);
    EXPECT_EQ(b->matrixValid + c->matrixValid, 0);
    delete c;
}

TEST(EntityTree, CloneCopiesPlacementAndOwnNamesAndReversesTheChildren) {
    CEntity* source = Named(nullptr, "source");
    source->SetPosition(1.0f, 2.0f, 3.0f);
    source->features = 4;
    source->hidden = 1;
    Named(Named(source, "a"), "grandchild");
    Named(source, "b");
    new CFrame(source);
    CEntity holder(nullptr);
    Named(&holder, "older");
    CEntity* copy = source->Clone(&holder, 0);
    EXPECT_EQ(holder.firstChild, copy);
    EXPECT_EQ(dynamic_cast<CFrame*>(copy), nullptr);
    EXPECT_EQ(copy->position.y + copy->features + copy->hidden, 7.0f);
    EXPECT_EQ(ChildNames(copy), "a b - ");
    EXPECT_NE(dynamic_cast<CFrame*>(copy->firstChild->nextSibling->nextSibling), nullptr);
    delete source;              // the copy's names outlive it (the sanitizer build sees a reuse)
    copy->SetName(copy->name);  // its own name as the text: copied before the old one goes
    EXPECT_STREQ(copy->name, "source");
    EXPECT_STREQ(copy->firstChild->firstChild->name, "grandchild");
    CEntity* again = copy->Clone(copy, 0);  // under itself: the copy is not cloned again
    EXPECT_EQ(ChildNames(copy), "source a b - ");
    EXPECT_EQ(ChildNames(again), "- b a ");
}
