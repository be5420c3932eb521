// Dialog templates: what a dialog resource holds, registered by id, and the conversion of its
// dialog units into pixels for the font a platform draws the dialog with.
#pragma once

#include <cstdint>

enum class ControlKind : uint8_t {
    PushButton,
    DefaultPushButton,  // pressed by Enter anywhere in the dialog
    AutoCheckBox,       // toggles itself when clicked
    Edit,               // one line, scrolls sideways as the text grows
    Static,
    DropDownList,  // a choice from a list, no typing
    ProgressBar,   // 0 to 100 unless set otherwise
};

struct ControlTemplate {
    int id;
    ControlKind kind;
    const char* text;
    int x, y, width, height;  // dialog units
};

struct DialogTemplate {
    const char* caption;
    const char* fontName;  // the font the units were laid out for
    int fontPointSize;
    int width, height;  // dialog units
    const ControlTemplate* controls;
    int controlCount;
};

void RegisterDialogTemplate(uintptr_t id, const DialogTemplate* dialog);
const DialogTemplate* FindDialogTemplate(uintptr_t id);  // null if none was registered

// The font's average character width and its height in pixels: a horizontal dialog unit is a
// quarter of the first, a vertical one an eighth of the second.
struct DialogBaseUnits {
    int x, y;
};

// The units of the font the templates were laid out in, at 96 dots per inch.
constexpr DialogBaseUnits ClassicDialogBaseUnits = {6, 13};

struct PixelRect {
    int x, y, width, height;
};

// Rounds to the nearest pixel; each edge converts on its own, so neighbours stay flush.
PixelRect DialogUnitsToPixels(int x, int y, int width, int height, DialogBaseUnits units);
