#include "platform/ui/headless_ui.h"

#include "platform/ui/window_api.h"

namespace {
WindowId IdOf(HWND window) {
    return WindowId(reinterpret_cast<uintptr_t>(window));
}
}  // namespace

HeadlessUi::HeadlessUi() : previous(SetUiBackend(this)) {}

HeadlessUi::~HeadlessUi() {
    ResetWindowSystem();
    SetUiBackend(previous);
}

HeadlessUi::Native* HeadlessUi::Find(WindowId id) {
    auto found = windows.find(id);
    return found == windows.end() ? nullptr : &found->second;
}

const HeadlessUi::Native* HeadlessUi::Find(WindowId id) const {
    auto found = windows.find(id);
    return found == windows.end() ? nullptr : &found->second;
}

HeadlessUi::Native* HeadlessUi::Reachable(HWND dialog, int id, WindowId* controlId) {
    Native* window = Find(IdOf(dialog));
    if (!window || !window->visible || !window->enabled) return nullptr;
    WindowId control = IdOf(GetDlgItem(dialog, id));
    Native* native = Find(control);
    if (!native || !native->visible || !native->enabled) return nullptr;
    if (controlId) *controlId = control;
    return native;
}

bool HeadlessUi::Click(HWND dialog, int id) {
    WindowId control = 0;
    Native* native = Reachable(dialog, id, &control);
    if (!native) return false;
    switch (native->kind) {
        case ControlKind::AutoCheckBox:
            native->checked = !native->checked;
            [[fallthrough]];
        case ControlKind::PushButton:
        case ControlKind::DefaultPushButton:
            PostMessageA(dialog, WM_COMMAND, MAKEWPARAM(unsigned(id), BN_CLICKED), LPARAM(control));
            return true;
        default:
            return false;  // clicking elsewhere sends no command
    }
}

bool HeadlessUi::Type(HWND dialog, int id, const std::string& text) {
    Native* native = Reachable(dialog, id, nullptr);
    if (!native || native->kind != ControlKind::Edit) return false;
    native->text = text;
    return true;
}

bool HeadlessUi::Choose(HWND dialog, int id, int index) {
    WindowId control = 0;
    Native* native = Reachable(dialog, id, &control);
    if (!native || native->kind != ControlKind::DropDownList) return false;
    if (index < 0 || index >= int(native->entries.size())) return false;
    native->selection = index;
    PostMessageA(dialog, WM_COMMAND, MAKEWPARAM(unsigned(id), CBN_SELCHANGE), LPARAM(control));
    return true;
}

bool HeadlessUi::PressCloseBox(HWND window) {
    Native* native = Find(IdOf(window));
    if (!native || !native->visible || native->parent) return false;
    return PostMessageA(window, WM_CLOSE, 0, 0) != 0;
}

bool HeadlessUi::PressEscape(HWND dialog) {
    Native* native = Find(IdOf(dialog));
    if (!native || !native->isDialog || !native->visible) return false;
    return PostMessageA(dialog, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0) != 0;
}

void HeadlessUi::AddStep(std::function<void()> step) {
    steps.push_back(std::move(step));
}

void HeadlessUi::SetFolderPickerAnswer(const char* folder) {
    folderAnswered = folder != nullptr;
    folderAnswer = folder ? folder : "";
}

std::string HeadlessUi::Tooltip(HWND window) const {
    const Native* native = Find(IdOf(window));
    return native ? native->tooltip : std::string();
}

PixelRect HeadlessUi::Geometry(HWND window) const {
    const Native* native = Find(IdOf(window));
    return native ? native->geometry : PixelRect{};
}

void HeadlessUi::CreateDialogWindow(WindowId dialogId, const DialogTemplate& dialog,
                                    const WindowId* controlIds) {
    Native& window = windows[dialogId];
    window.isDialog = true;
    window.text = dialog.caption ? dialog.caption : "";
    window.geometry =
        DialogUnitsToPixels(0, 0, dialog.width, dialog.height, ClassicDialogBaseUnits);
    for (int i = 0; i < dialog.controlCount; ++i) {
        const ControlTemplate& control = dialog.controls[i];
        Native& native = windows[controlIds[i]];
        native.kind = control.kind;
        native.parent = dialogId;
        native.visible = true;  // shown with the dialog
        native.text = control.text ? control.text : "";
        native.geometry = DialogUnitsToPixels(control.x, control.y, control.width, control.height,
                                              ClassicDialogBaseUnits);
    }
}

void HeadlessUi::CreateTopWindow(WindowId id, const char* title, int x, int y, int width,
                                 int height) {
    Native& window = windows[id];
    window.text = title;
    window.geometry = {x, y, width, height};
}

void HeadlessUi::PlaceTopWindow(WindowId id, int x, int y, int width, int height) {
    if (Native* window = Find(id)) window->geometry = {x, y, width, height};
}

void HeadlessUi::DestroyNativeWindow(WindowId id) {
    for (auto it = windows.begin(); it != windows.end();)
        it = it->second.parent == id ? windows.erase(it) : std::next(it);
    windows.erase(id);
}

void HeadlessUi::SetText(WindowId id, const char* text) {
    if (Native* native = Find(id)) native->text = text;
}

std::string HeadlessUi::Text(WindowId id) {
    Native* native = Find(id);
    if (!native) return {};
    if (native->kind == ControlKind::DropDownList)
        return native->selection >= 0 ? native->entries[size_t(native->selection)] : "";
    return native->text;
}

void HeadlessUi::SetEnabled(WindowId id, bool enabled) {
    if (Native* native = Find(id)) native->enabled = enabled;
}

bool HeadlessUi::IsEnabled(WindowId id) {
    Native* native = Find(id);
    return native && native->enabled;
}

void HeadlessUi::SetVisible(WindowId id, bool visible) {
    if (Native* native = Find(id)) native->visible = visible;
}

// A control shows only while its dialog does.
bool HeadlessUi::IsVisible(WindowId id) {
    Native* native = Find(id);
    if (!native || !native->visible) return false;
    return !native->parent || IsVisible(native->parent);
}

void HeadlessUi::SetChecked(WindowId id, bool checked) {
    if (Native* native = Find(id)) native->checked = checked;
}

bool HeadlessUi::IsChecked(WindowId id) {
    Native* native = Find(id);
    return native && native->checked;
}

void HeadlessUi::SetTooltip(WindowId id, const char* text) {
    if (Native* native = Find(id)) native->tooltip = text;
}

int HeadlessUi::AddListEntry(WindowId id, const char* text) {
    Native* native = Find(id);
    if (!native || native->kind != ControlKind::DropDownList) return CB_ERR;
    native->entries.push_back(text ? text : "");
    return int(native->entries.size()) - 1;
}

void HeadlessUi::ClearList(WindowId id) {
    if (Native* native = Find(id)) {
        native->entries.clear();
        native->selection = -1;
    }
}

int HeadlessUi::ListCount(WindowId id) {
    Native* native = Find(id);
    return native ? int(native->entries.size()) : 0;
}

std::string HeadlessUi::ListEntry(WindowId id, int index) {
    Native* native = Find(id);
    if (!native || index < 0 || index >= int(native->entries.size())) return {};
    return native->entries[size_t(index)];
}

bool HeadlessUi::SelectListEntry(WindowId id, int index) {
    Native* native = Find(id);
    if (!native) return false;
    if (index < -1 || index >= int(native->entries.size())) {
        native->selection = -1;  // the platform clears the choice on a bad index
        return false;
    }
    native->selection = index;
    return index >= 0;
}

int HeadlessUi::ListSelection(WindowId id) {
    Native* native = Find(id);
    return native ? native->selection : -1;
}

void HeadlessUi::SetProgressRange(WindowId id, int low, int high) {
    if (Native* native = Find(id)) {
        native->low = low;
        native->high = high;
    }
}

void HeadlessUi::SetProgressPosition(WindowId id, int position) {
    if (Native* native = Find(id))
        native->position = std::min(std::max(position, native->low), native->high);
}

int HeadlessUi::ProgressPosition(WindowId id) {
    Native* native = Find(id);
    return native ? native->position : 0;
}

void HeadlessUi::SetFocus(WindowId) {}

void HeadlessUi::Repaint(WindowId, bool) {}

void HeadlessUi::PumpEvents(bool wait) {
    ++pumps;
    if (pumpHook) pumpHook();
    if (!wait) return;
    if (nextStep < steps.size()) {
        // The step may add steps: take it out before it runs.
        std::function<void()> step = std::move(steps[nextStep++]);
        step();
    } else {
        ranOut = true;
        PostQuitMessage(0);
    }
}

int HeadlessUi::ShowMessageBox(WindowId owner, const char* text, const char* caption,
                               unsigned type) {
    boxes.push_back({owner, text ? text : "", caption ? caption : "", type});
    return IDOK;
}

bool HeadlessUi::PickFolder(WindowId, const char* title, std::string& folder) {
    ++folderPicks;
    folderTitle = title;
    if (!folderAnswered) return false;
    folder = folderAnswer;
    return true;
}
