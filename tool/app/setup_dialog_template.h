// The layout of the setup dialog, in dialog units of the font it was drawn for.
#pragma once

#include "platform/ui/dialog_template.h"

extern const DialogTemplate SetupDialogTemplate;
