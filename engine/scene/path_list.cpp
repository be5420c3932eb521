#include "engine/scene/path_list.h"

#include "base/memory.h"
#include "platform/crt/find_file.h"
#include "platform/debug/debug_output.h"

PathList* TexturePaths = nullptr;

PathNode* PathList::MakeNode(const char* value) {
    return NEW PathNode{value, uint32_t(++lastId), 1, nullptr};
}

int32_t PathList::Push(const char* value) {
    PathNode* node = MakeNode(value);
    PathNode** link = &head;
    while (*link) link = &(*link)->next;
    *link = node;
    return int32_t(node->id);
}

void PathList::Pop() {
    if (!head) {
        OutputDebugStringA("Attempting to pop from an empty stack.\n");
        return;
    }
    PathNode** link = &head;
    while ((*link)->next) link = &(*link)->next;
    DELETE(*link);
    *link = nullptr;
}

void PathList::Remove(int32_t id) {
    if (!head) {
        OutputDebugStringA("Attempting to delete from an empty list.\n");
        return;
    }
    for (PathNode** link = &head; *link; link = &(*link)->next) {
        if ((*link)->id != uint32_t(id)) continue;
        PathNode* node = *link;
        *link = node->next;
        DELETE(node);
        return;
    }
}

int32_t PathList::InsertBefore(const char* value, int32_t id) {
    PathNode* node = MakeNode(value);
    if (!head) {
        OutputDebugStringA("Attempting to insert into an empty list.\n");
        DELETE(node);
        return -1;
    }
    for (PathNode** link = &head; *link; link = &(*link)->next) {
        if ((*link)->id != uint32_t(id)) continue;
        node->next = *link;
        *link = node;
        return int32_t(node->id);
    }
    const int32_t handle = int32_t(node->id);
    DELETE(node);  // nothing to stand before: it would belong to no list
    return handle;
}

void PathList::Clear() {
    while (PathNode* node = head) {
        head = node->next;
        DELETE(node);
    }
}

void PathList::EnableAll() {
    for (PathNode* node = head; node; node = node->next) node->enabled = 1;
}

void PathList::DisableAll() {
    for (PathNode* node = head; node; node = node->next) node->enabled = 0;
}

void PathList::SetEnabled(int32_t id, uint16_t enabled) {
    for (PathNode* node = head; node; node = node->next) {
        if (node->id == uint32_t(id)) node->enabled = enabled;
    }
}

void PathList::Enable(int32_t id) {
    SetEnabled(id, 1);
}

void PathList::Disable(int32_t id) {
    SetEnabled(id, 0);
}

int PathList::FindFile(const char* name, char* out) const {
    for (const PathNode* node = head; node; node = node->next) {
        if (node->enabled && FileExistsAnyCase(node->value, name, out, PathBufferSize)) return 1;
    }
    return 0;
}
