#include "engine/scene/visibility.h"

#include "engine/scene/entity.h"

// No frustum yet: everything counts as visible until the render pipeline installs its test.
void VisibilityTestNone(CEntity* entity, uint8_t /*valid*/) {
    entity->culled = 0;
}

VisibilityTestFunction VisibilityTest = VisibilityTestNone;
