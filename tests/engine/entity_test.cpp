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

}  // namespace

TEST(EntityTree, ListsStayIntactThroughRemoveDeleteAndReparent) {
    CEntity root(nullptr), other(nullptr);
    CEntity* a = Named(&root, "a");
    CEntity* b = Named(&root, "b");
    CEntity* c = Named(&root, "c");
    EXPECT_EQ(ChildNames(&root), (Names{"c", "b", "a"}));
    delete b;  // middle of the list
    EXPECT_EQ(ChildNames(&root), (Names{"c", "a"}));
    a->matrixValid = c->matrixValid = 1;
    other.AddChild(a);  // leaves its old list first
    EXPECT_EQ(ChildNames(&root), (Names{"c"}));
    EXPECT_EQ(a->parent, &other);
    EXPECT_EQ(a->nextSibling, nullptr);
    EXPECT_EQ(a->matrixValid, 0);
    root.RemoveChild(c);  // not deleted, only unlinked
    EXPECT_EQ(root.firstChild, nullptr);
    EXPECT_EQ(c->parent, nullptr);
    EXPECT_EQ(c->matrixValid, 0);
    delete c;
}

TEST(EntityTree, FindTriesSiblingsBeforeChildrenAndOnlyExactNames) {
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
    // b's children wait until the whole list was tried; the later siblings' children come first.
    EXPECT_EQ(root.FindByName("dup"), underA);
    for (const char* near : {"A", "du", ""}) EXPECT_EQ(root.FindByName(near), nullptr) << near;
    EXPECT_EQ(a->FindByName("b"), nullptr);  // the siblings of the node asked are not searched
    EXPECT_EQ(b->FindByName("dup"), underB);
}

TEST(EntityTree, CloneCopiesPlacementAndOwnNamesAndReversesTheChildren) {
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
    EXPECT_EQ(copy->position.y + copy->features + copy->hidden, 7.0f);
    EXPECT_EQ(copy->IsValid(), 0);
    EXPECT_EQ(ChildNames(copy), (Names{"a", "b", ""}));
    EXPECT_NE(dynamic_cast<CFrame*>(copy->firstChild->nextSibling->nextSibling), nullptr);
    delete source;              // the copy's names outlive it (the sanitizer build sees a reuse)
    copy->SetName(copy->name);  // its own name as the text: copied before the old one goes
    EXPECT_STREQ(copy->name, "source");
    EXPECT_STREQ(copy->firstChild->firstChild->name, "grandchild");
    CEntity* again = copy->Clone(copy, 0);  // under itself: the copy is not cloned again
    EXPECT_EQ(ChildNames(copy), (Names{"source", "a", "b", ""}));
    EXPECT_EQ(ChildNames(again), (Names{"", "b", "a"}));
}
