// PathList: folders in a linked list with integer handles, searched in order for a file. A handle
// lets a folder be switched off for a while without losing its place in the order.
#pragma once

#include <cstdint>

enum { PathBufferSize = 260 };  // every path buffer of the engine

struct PathNode {
    const char* value;  // the folder; not owned, the caller keeps the string
    uint32_t id;        // handle, given out when the node is made
    uint16_t enabled;   // 0 leaves the folder out of searches
    PathNode* next;
};

class PathList {
public:
    PathList() : lastId(-1), head(nullptr) {}
    ~PathList() { Clear(); }
    PathList(const PathList&) = delete;
    PathList& operator=(const PathList&) = delete;

    int32_t Push(const char* value);  // appends; returns the new handle
    void Pop();                       // removes the last node
    void Remove(int32_t id);          // no node with that handle: nothing changes
    // Places a new node in front of the node with handle id and returns the new handle. The
    // handle is spent even where the node can't be placed; such a node is freed at once, and on
    // an empty list the result is -1.
    int32_t InsertBefore(const char* value, int32_t id);
    void Clear();

    void EnableAll();
    void DisableAll();
    void Enable(int32_t id);
    void Disable(int32_t id);

    // 1 with the path of the first enabled folder holding name copied to out, else 0. The name
    // is matched in any case; out holds PathBufferSize bytes and a longer path is not found.
    int FindFile(const char* name, char* out) const;

    int32_t lastId;  // the handle given out last; handles are never reused
    PathNode* head;  // null for an empty list

private:
    PathNode* MakeNode(const char* value);
    void SetEnabled(int32_t id, uint16_t enabled);
};

// The engine's texture folders, made when the engine opens; null before.
extern PathList* TexturePaths;
