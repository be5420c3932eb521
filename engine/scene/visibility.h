// The visibility test that a drawable's Collect runs: given the node and the valid flag of the
// walk, it sets the node's culled byte. Replaceable, so the render pipeline installs its frustum
// test and tests install their own.
#pragma once

#include <cstdint>

class CEntity;

using VisibilityTestFunction = void (*)(CEntity* entity, uint8_t valid);

void VisibilityTestNone(CEntity* entity, uint8_t valid);  // culled := 0

extern VisibilityTestFunction VisibilityTest;  // VisibilityTestNone until one is installed
