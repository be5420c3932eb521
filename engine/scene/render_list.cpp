#include "engine/scene/render_list.h"

#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"

RenderList::~RenderList() {
    if (items) FREE(items);
}

void RenderList::Append(CEntity* entity) {
    if (count == capacity) {
        uint32_t grown = capacity + RenderListGrowth;
        CEntity** block = static_cast<CEntity**>(MALLOC(size_t(grown) * sizeof(CEntity*)));
        ASSERT(block);  // out of memory: the list keeps what it has and drops this node
        if (!block) return;
        if (items) std::memcpy(block, items, size_t(count) * sizeof(CEntity*));
        if (items) FREE(items);
        items = block;
        capacity = grown;
    }
    items[count++] = entity;
}
