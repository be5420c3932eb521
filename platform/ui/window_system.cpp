// The window calls over the installed window system. Handles are numbers looked up in a table,
// so a stale or made-up handle is refused like the platform refuses it, never followed.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "platform/ui/shell_api.h"
#include "platform/ui/ui_backend.h"
#include "platform/ui/window_api.h"

namespace {

enum class WindowType { Dialog, Control, TopLevel };

struct WindowRecord {
    WindowType type = WindowType::Control;
    WindowId parent = 0;
    int controlId = 0;
    ControlKind kind = ControlKind::Static;
    DLGPROC dialogProc = nullptr;
    WNDPROC windowProc = nullptr;
    LONG_PTR userData = 0;
    std::vector<WindowId> controls;  // a dialog's, in template order
    PixelRect placement = {};        // a top-level window's, for a move that keeps its size
};

struct WindowSystem {
    UiBackend* backend = nullptr;
    std::map<WindowId, WindowRecord> windows;
    std::map<std::string, WNDCLASSA> classes;
    std::deque<MSG> queue;
    WindowId nextId = 1;
    WindowId focus = 0;
    bool quitPosted = false;
    int quitCode = 0;
    int cursorCount = 0;
    int comStarts = 0;
};

WindowSystem& System() {
    static WindowSystem system;
    return system;
}

HWND Handle(WindowId id) {
    return reinterpret_cast<HWND>(uintptr_t(id));
}
WindowId IdOf(HWND window) {
    return WindowId(reinterpret_cast<uintptr_t>(window));
}

WindowRecord* Find(HWND window) {
    auto found = System().windows.find(IdOf(window));
    return found == System().windows.end() ? nullptr : &found->second;
}

// The backend of a live window, or null where either is missing.
UiBackend* BackendFor(HWND window) {
    return Find(window) ? System().backend : nullptr;
}

WindowId NewId() {
    WindowSystem& system = System();
    while (system.nextId == 0 || system.windows.count(system.nextId)) ++system.nextId;
    return system.nextId++;
}

std::string ClassKey(LPCSTR name) {
    std::string key = name ? name : "";
    for (char& c : key) c = char(std::tolower((unsigned char)c));  // class names ignore case
    return key;
}

int CopyOut(const std::string& text, char* out, int size) {
    if (!out || size <= 0) return 0;
    int n = int(std::min(text.size(), size_t(size - 1)));
    std::memcpy(out, text.data(), size_t(n));
    out[n] = '\0';
    return n;
}

LRESULT ControlMessage(WindowId id, const WindowRecord& control, UINT message, WPARAM wParam,
                       LPARAM lParam) {
    UiBackend* ui = System().backend;
    switch (message) {
        case CB_ADDSTRING:
            return ui->AddListEntry(id, reinterpret_cast<const char*>(lParam));
        case CB_RESETCONTENT:
            ui->ClearList(id);
            return 0;
        case CB_GETCOUNT:
            return ui->ListCount(id);
        case CB_SETCURSEL:
            return ui->SelectListEntry(id, int(wParam)) ? LRESULT(int(wParam)) : LRESULT(CB_ERR);
        case CB_GETCURSEL:
            return ui->ListSelection(id);
        case CB_GETLBTEXTLEN: {
            int index = int(wParam);
            if (index < 0 || index >= ui->ListCount(id)) return CB_ERR;
            return LRESULT(ui->ListEntry(id, index).size());
        }
        case CB_GETLBTEXT: {
            int index = int(wParam);
            if (index < 0 || index >= ui->ListCount(id)) return CB_ERR;
            std::string entry = ui->ListEntry(id, index);
            std::strcpy(reinterpret_cast<char*>(lParam), entry.c_str());  // caller sized it
            return LRESULT(entry.size());
        }
        case PBM_SETRANGE:
            ui->SetProgressRange(id, int(LOWORD(uintptr_t(lParam))),
                                 int(HIWORD(uintptr_t(lParam))));
            return 0;
        case PBM_SETPOS: {
            int previous = ui->ProgressPosition(id);
            ui->SetProgressPosition(id, int(wParam));
            return previous;
        }
        case PBM_GETPOS:
            return ui->ProgressPosition(id);
        case BM_GETCHECK:
            return ui->IsChecked(id) ? BST_CHECKED : BST_UNCHECKED;
        case BM_SETCHECK:
            if (control.kind == ControlKind::AutoCheckBox)
                ui->SetChecked(id, wParam == BST_CHECKED);
            return 0;
        default:
            return 0;
    }
}

void Forget(WindowId id) {
    WindowSystem& system = System();
    auto found = system.windows.find(id);
    if (found == system.windows.end()) return;
    for (WindowId control : found->second.controls) system.windows.erase(control);
    system.windows.erase(found);
    if (system.focus == id || !system.windows.count(system.focus)) system.focus = 0;
    // Messages for a window that is gone are dropped, as the platform drops them.
    for (auto it = system.queue.begin(); it != system.queue.end();) {
        it = system.windows.count(IdOf(it->hwnd)) || !it->hwnd ? it + 1 : system.queue.erase(it);
    }
}

}  // namespace

// While a window system is installed, message boxes are its boxes, owned by their window.
static int PresentBox(void* owner, const char* text, const char* caption, unsigned type) {
    UiBackend* ui = System().backend;
    WindowId id = Find(static_cast<HWND>(owner)) ? IdOf(static_cast<HWND>(owner)) : 0;
    return ui ? ui->ShowMessageBox(id, text, caption, type) : int(IDOK);
}

UiBackend* SetUiBackend(UiBackend* backend) {
    UiBackend* previous = System().backend;
    System().backend = backend;
    SetMessageBoxPresenter(backend ? PresentBox : nullptr);
    return previous;
}

UiBackend* CurrentUiBackend() {
    return System().backend;
}

void ResetWindowSystem() {
    WindowSystem& system = System();
    std::vector<WindowId> tops;
    for (auto& [id, record] : system.windows)
        if (record.type != WindowType::Control) tops.push_back(id);
    for (WindowId id : tops) {
        if (system.backend) system.backend->DestroyNativeWindow(id);
        Forget(id);
    }
    UiBackend* backend = system.backend;
    system = WindowSystem{};
    system.backend = backend;
}

HWND CreateDialogParamA(HINSTANCE, LPCSTR templateName, HWND owner, DLGPROC procedure,
                        LPARAM initParam) {
    WindowSystem& system = System();
    const DialogTemplate* dialog = FindDialogTemplate(reinterpret_cast<uintptr_t>(templateName));
    if (!system.backend || !dialog || !procedure) return nullptr;
    WindowId id = NewId();
    WindowRecord record;
    record.type = WindowType::Dialog;
    record.parent = IdOf(owner);
    record.dialogProc = procedure;
    system.windows[id] = record;
    std::vector<WindowId> controls;
    for (int i = 0; i < dialog->controlCount; ++i) {
        WindowId control = NewId();
        WindowRecord child;
        child.parent = id;
        child.controlId = dialog->controls[i].id;
        child.kind = dialog->controls[i].kind;
        system.windows[control] = child;
        controls.push_back(control);
    }
    system.windows[id].controls = controls;
    system.backend->CreateDialogWindow(id, *dialog, controls.data());
    procedure(Handle(id), WM_INITDIALOG, 0, initParam);
    return Find(Handle(id)) ? Handle(id) : nullptr;
}

uint16_t RegisterClassA(const WNDCLASSA* windowClass) {
    if (!windowClass || !windowClass->lpszClassName || !windowClass->lpfnWndProc) return 0;
    std::string key = ClassKey(windowClass->lpszClassName);
    if (key.empty() || System().classes.count(key)) return 0;
    System().classes[key] = *windowClass;
    return uint16_t(0xC000 + System().classes.size());
}

BOOL UnregisterClassA(LPCSTR className, HINSTANCE) {
    return System().classes.erase(ClassKey(className)) ? 1 : 0;
}

HWND CreateWindowExA(uint32_t, LPCSTR className, LPCSTR title, uint32_t style, int x, int y,
                     int width, int height, HWND parent, void*, HINSTANCE, void*) {
    WindowSystem& system = System();
    auto found = system.classes.find(ClassKey(className));
    if (!system.backend || found == system.classes.end()) return nullptr;
    WindowId id = NewId();
    WindowRecord record;
    record.type = WindowType::TopLevel;
    record.parent = IdOf(parent);
    record.windowProc = found->second.lpfnWndProc;
    record.placement = {x, y, width, height};
    system.windows[id] = record;
    system.backend->CreateTopWindow(id, title ? title : "", x, y, width, height);
    if (style & WS_VISIBLE) system.backend->SetVisible(id, true);
    return Handle(id);
}

LRESULT DefWindowProcA(HWND window, UINT message, WPARAM, LPARAM) {
    if (message == WM_CLOSE) DestroyWindow(window);
    return 0;
}

BOOL DestroyWindow(HWND window) {
    WindowRecord* record = Find(window);
    if (!record || record->type == WindowType::Control) return 0;
    WindowId id = IdOf(window);
    // The procedure hears of its end while the window still answers calls.
    if (record->dialogProc) record->dialogProc(window, WM_DESTROY, 0, 0);
    if (record->windowProc) record->windowProc(window, WM_DESTROY, 0, 0);
    if (System().backend) System().backend->DestroyNativeWindow(id);
    Forget(id);
    return 1;
}

BOOL IsWindow(HWND window) {
    return Find(window) ? 1 : 0;
}

BOOL ShowWindow(HWND window, int showMode) {
    UiBackend* ui = BackendFor(window);
    if (!ui) return 0;
    bool was = ui->IsVisible(IdOf(window));
    ui->SetVisible(IdOf(window), showMode != SW_HIDE);
    return was ? 1 : 0;
}

BOOL IsWindowVisible(HWND window) {
    UiBackend* ui = BackendFor(window);
    return ui && ui->IsVisible(IdOf(window)) ? 1 : 0;
}

BOOL UpdateWindow(HWND window) {
    UiBackend* ui = BackendFor(window);
    if (!ui) return 0;
    ui->Repaint(IdOf(window), true);
    return 1;
}

BOOL InvalidateRect(HWND window, const RECT*, BOOL) {
    UiBackend* ui = BackendFor(window);
    if (!ui) return 0;
    ui->Repaint(IdOf(window), false);
    return 1;
}

HWND SetFocus(HWND window) {
    WindowSystem& system = System();
    HWND previous = Handle(system.focus);
    if (!window) {
        system.focus = 0;
        return previous;
    }
    UiBackend* ui = BackendFor(window);
    if (!ui) return nullptr;
    system.focus = IdOf(window);
    ui->SetFocus(system.focus);
    return previous;
}

HWND GetFocus() {
    return Handle(System().focus);
}

BOOL EnableWindow(HWND window, BOOL enable) {
    UiBackend* ui = BackendFor(window);
    if (!ui) return 0;
    bool wasDisabled = !ui->IsEnabled(IdOf(window));
    ui->SetEnabled(IdOf(window), enable != 0);
    return wasDisabled ? 1 : 0;
}

BOOL IsWindowEnabled(HWND window) {
    UiBackend* ui = BackendFor(window);
    return ui && ui->IsEnabled(IdOf(window)) ? 1 : 0;
}

// Only the user data slot exists: it is what the dialog keeps its object in.
LONG_PTR SetWindowLongPtrA(HWND window, int index, LONG_PTR value) {
    WindowRecord* record = Find(window);
    if (!record || index != GWLP_USERDATA) return 0;
    LONG_PTR previous = record->userData;
    record->userData = value;
    return previous;
}

LONG_PTR GetWindowLongPtrA(HWND window, int index) {
    WindowRecord* record = Find(window);
    return record && index == GWLP_USERDATA ? record->userData : 0;
}

// Window sizes here are client sizes: frames and menus belong to the desktop's window manager.
int GetSystemMetrics(int) {
    return 0;
}

BOOL SetWindowPos(HWND window, HWND, int x, int y, int width, int height, UINT flags) {
    WindowRecord* record = Find(window);
    if (!record || record->type != WindowType::TopLevel) return 0;
    PixelRect now = record->placement;
    if (!(flags & SWP_NOMOVE)) now.x = x, now.y = y;
    if (!(flags & SWP_NOSIZE)) now.width = width, now.height = height;
    record->placement = now;
    System().backend->PlaceTopWindow(IdOf(window), now.x, now.y, now.width, now.height);
    return 1;
}

// Stock objects are handles with no memory behind them: numbers that only compare.
static void* StockHandle(uintptr_t number) {
    return reinterpret_cast<void*>(number);
}

HICON LoadIconA(HINSTANCE instance, LPCSTR name) {
    return !instance && name == IDI_APPLICATION ? StockHandle(0x10000 + 32512) : nullptr;
}

HCURSOR LoadCursorA(HINSTANCE instance, LPCSTR name) {
    return !instance && name == IDC_ARROW ? StockHandle(0x20000 + 32512) : nullptr;
}

HGDIOBJ GetStockObject(int object) {
    return object == WHITE_BRUSH ? StockHandle(0x30000 + WHITE_BRUSH) : nullptr;
}

HWND GetDlgItem(HWND dialog, int id) {
    WindowRecord* record = Find(dialog);
    if (!record) return nullptr;
    for (WindowId control : record->controls)
        if (System().windows[control].controlId == id) return Handle(control);
    return nullptr;
}

int GetDlgCtrlID(HWND control) {
    WindowRecord* record = Find(control);
    return record && record->type == WindowType::Control ? record->controlId : 0;
}

int GetWindowTextA(HWND window, char* text, int size) {
    UiBackend* ui = BackendFor(window);
    if (!ui) return CopyOut("", text, size);
    return CopyOut(ui->Text(IdOf(window)), text, size);
}

BOOL SetWindowTextA(HWND window, LPCSTR text) {
    UiBackend* ui = BackendFor(window);
    if (!ui) return 0;
    ui->SetText(IdOf(window), text ? text : "");
    return 1;
}

UINT GetDlgItemTextA(HWND dialog, int id, char* text, int size) {
    return UINT(GetWindowTextA(GetDlgItem(dialog, id), text, size));
}

BOOL SetDlgItemTextA(HWND dialog, int id, LPCSTR text) {
    return SetWindowTextA(GetDlgItem(dialog, id), text);
}

UINT IsDlgButtonChecked(HWND dialog, int id) {
    return UINT(SendMessageA(GetDlgItem(dialog, id), BM_GETCHECK, 0, 0));
}

BOOL CheckDlgButton(HWND dialog, int id, UINT check) {
    HWND control = GetDlgItem(dialog, id);
    if (!control) return 0;
    SendMessageA(control, BM_SETCHECK, check, 0);
    return 1;
}

BOOL SetWindowTooltipA(HWND window, LPCSTR text) {
    UiBackend* ui = BackendFor(window);
    if (!ui) return 0;
    ui->SetTooltip(IdOf(window), text ? text : "");
    return 1;
}

LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    WindowRecord* record = Find(window);
    if (!record) return 0;
    switch (record->type) {
        case WindowType::Control:
            return System().backend ? ControlMessage(IdOf(window), *record, message, wParam, lParam)
                                    : 0;
        case WindowType::Dialog:
            return record->dialogProc(window, message, wParam, lParam);
        case WindowType::TopLevel:
            return record->windowProc(window, message, wParam, lParam);
    }
    return 0;
}

BOOL PostMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (window && !Find(window)) return 0;
    System().queue.push_back(MSG{window, message, wParam, lParam, 0, {0, 0}});
    return 1;
}

void PostQuitMessage(int exitCode) {
    System().quitPosted = true;
    System().quitCode = exitCode;
}

// The quit comes out only behind every posted message, as on the desktop.
BOOL PeekMessageA(MSG* message, HWND, UINT, UINT, UINT remove) {
    WindowSystem& system = System();
    if (system.backend) system.backend->PumpEvents(false);
    if (!system.queue.empty()) {
        if (message) *message = system.queue.front();
        if (remove & PM_REMOVE) system.queue.pop_front();
        return 1;
    }
    if (system.quitPosted) {
        if (message) *message = MSG{nullptr, WM_QUIT, WPARAM(system.quitCode), 0, 0, {0, 0}};
        if (remove & PM_REMOVE) system.quitPosted = false;
        return 1;
    }
    return 0;
}

BOOL WaitMessage() {
    WindowSystem& system = System();
    while (system.queue.empty() && !system.quitPosted) {
        if (!system.backend) return 0;  // nothing could ever arrive
        system.backend->PumpEvents(true);
    }
    return 1;
}

// Key presses arrive as the messages they mean; there is nothing to translate.
BOOL TranslateMessage(const MSG*) {
    return 0;
}

LRESULT DispatchMessageA(const MSG* message) {
    if (!message) return 0;
    WindowRecord* record = Find(message->hwnd);
    if (!record) return 0;
    if (record->type == WindowType::Dialog)
        return record->dialogProc(message->hwnd, message->message, message->wParam,
                                  message->lParam);
    if (record->type == WindowType::TopLevel)
        return record->windowProc(message->hwnd, message->message, message->wParam,
                                  message->lParam);
    return 0;
}

int ShowCursor(BOOL show) {
    WindowSystem& system = System();
    bool was = system.cursorCount >= 0;
    system.cursorCount += show ? 1 : -1;
    bool now = system.cursorCount >= 0;
    if (was != now && system.backend) system.backend->SetCursorVisible(now);
    return system.cursorCount;
}

BOOL SetCursorPos(int x, int y) {
    if (!System().backend) return 0;
    System().backend->SetCursorPosition(x, y);
    return 1;
}

BOOL GetCursorPos(POINT* point) {
    if (!point || !System().backend) return 0;
    *point = System().backend->CursorPosition();
    return 1;
}

HRESULT CoInitializeEx(void*, uint32_t) {
    constexpr HRESULT NoComponentLibrary = HRESULT(0x80004005u);
    if (!System().backend) return NoComponentLibrary;
    HRESULT result = System().backend->StartComponentLibrary();
    if (result == S_OK || result == S_FALSE) ++System().comStarts;
    return result;
}

void CoUninitialize() {
    if (System().comStarts > 0) --System().comStarts;
}

// A picked folder travels as its path in a block of the shell's allocator.
struct ITEMIDLIST {
    char path[260];
};

LPITEMIDLIST SHBrowseForFolderA(BROWSEINFOA* info) {
    if (!info || !System().backend || System().comStarts == 0) return nullptr;
    std::string folder;
    if (!System().backend->PickFolder(IdOf(info->hwndOwner), info->lpszTitle ? info->lpszTitle : "",
                                      folder))
        return nullptr;
    if (folder.size() >= sizeof(ITEMIDLIST::path)) return nullptr;  // no such path fits here
    auto* list = new ITEMIDLIST;
    std::snprintf(list->path, sizeof list->path, "%s", folder.c_str());
    if (info->pszDisplayName) {
        const char* slash = std::strrchr(list->path, '/');
        std::snprintf(info->pszDisplayName, 260, "%s", slash ? slash + 1 : list->path);
    }
    return list;
}

BOOL SHGetPathFromIDListA(LPCITEMIDLIST list, char* path) {
    if (!list || !path) return 0;
    std::snprintf(path, 260, "%s", list->path);
    return 1;
}

namespace {
class ShellAllocator final : public IMalloc {
public:
    void Free(void* block) override { delete static_cast<ITEMIDLIST*>(block); }
    uint32_t Release() override { return 1; }
};
}  // namespace

HRESULT SHGetMalloc(IMalloc** allocator) {
    static ShellAllocator shared;
    if (!allocator) return HRESULT(0x80070057u);  // invalid argument
    *allocator = &shared;
    return S_OK;
}
