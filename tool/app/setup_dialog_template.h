// The layout of the setup dialog, in dialog units of the font it was drawn for.
#pragma once

#include "platform/ui/dialog_template.h"

extern const DialogTemplate SetupDialogTemplate;

// The progress bar's label, which says how the last bake went once it has ended.
extern const char* const ProgressLabelText;
