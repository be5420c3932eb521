// A render list: the nodes of one layer that the frame walk found visible, in walk order. Its
// memory stays over frames (a steady frame allocates nothing); a frame empties it with Clear.
#pragma once

#include <cstdint>

class CEntity;

enum { RenderListGrowth = 256 };  // entries added each time a full list grows

struct RenderList {
    RenderList() = default;
    ~RenderList();
    RenderList(const RenderList&) = delete;
    RenderList& operator=(const RenderList&) = delete;

    void Append(CEntity* entity);
    void Clear() { count = 0; }

    CEntity** items = nullptr;
    uint32_t capacity = 0;
    uint32_t count = 0;
};
