#include "platform/ui/dialog_template.h"

#include <map>

static std::map<uintptr_t, const DialogTemplate*>& Templates() {
    static std::map<uintptr_t, const DialogTemplate*> templates;
    return templates;
}

void RegisterDialogTemplate(uintptr_t id, const DialogTemplate* dialog) {
    Templates()[id] = dialog;
}

const DialogTemplate* FindDialogTemplate(uintptr_t id) {
    auto found = Templates().find(id);
    return found == Templates().end() ? nullptr : found->second;
}

// a · b / c rounded half away from zero, as the platform's MulDiv does.
static int MulDiv(int a, int b, int c) {
    long long product = (long long)a * b;
    long long half = c / 2;
    return int(product >= 0 ? (product + half) / c : (product - half) / c);
}

PixelRect DialogUnitsToPixels(int x, int y, int width, int height, DialogBaseUnits units) {
    int left = MulDiv(x, units.x, 4), top = MulDiv(y, units.y, 8);
    int right = MulDiv(x + width, units.x, 4), bottom = MulDiv(y + height, units.y, 8);
    return {left, top, right - left, bottom - top};
}
