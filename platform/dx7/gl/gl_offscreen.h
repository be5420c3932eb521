// Between the context and the backend: whether the context in force is our own off-screen one.
// GL state cached by the backend is only trusted there; on a context the UI installed, its own
// drawing may have changed the bindings between two of our calls.
#pragma once

#include "platform/dx7/gl_context.h"

bool DxGlIsOffscreen(const DxGlContext* context);
