#include "tool/app/setup_dialog.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/resmanager.h"
#include "platform/crt/directory_search.h"
#include "platform/crt/file_status.h"
#include "platform/crt/paths.h"
#include "platform/crt/replacing_file.h"
#include "platform/ui/shell_api.h"
#include "platform/ui/window_api.h"
#include "tool/app/setup_dialog_template.h"
#include "tool/app/viewer_support.h"
#include "tool/bake/message_log.h"
#include "tool/bake/shadow_script.h"
#include "tool/run/app_state.h"
#include "tool/run/bake_run.h"

uint8_t NoFolderPicker = 0;

static const char* const LastShadowFile = "LastShadow.txt";
static const char* const MapFileName = "test.vbf";

static const char* LitFolder() {
    return Resources ? Resources->GetResourcePath("LIT") : nullptr;
}

// The whole first line, so a directory with a blank in its name comes back whole; the file holds
// nothing else.
static void ReadLastDirectory(char* dir, size_t size) {
    dir[0] = '\0';
    FILE* file = std::fopen(LastShadowFile, "r");
    if (!file) return;
    if (!std::fgets(dir, int(size), file)) dir[0] = '\0';
    std::fclose(file);
    dir[std::strcspn(dir, "\r\n")] = '\0';
}

static void WriteLastDirectory(const char* dir) {
    ReplacingFile file(LastShadowFile);  // a failed write leaves the old one in place
    if (file.Stream()) file.Commit(std::fputs(dir, file.Stream()) >= 0);
}

static bool IsDirectory(const char* path) {
    struct _stat status;
    return _stat(path, &status) == 0 && (status.st_mode & _S_IFMT) == _S_IFDIR;
}

static bool IsFile(const char* path) {
    struct _stat status;
    return _stat(path, &status) == 0 && (status.st_mode & _S_IFMT) != _S_IFDIR;
}

SetupDialog::SetupDialog(HINSTANCE instance, int showMode) {
    if (!FindDialogTemplate(SetupDialogTemplateId))
        RegisterDialogTemplate(SetupDialogTemplateId, &SetupDialogTemplate);
    Window = CreateDialogParamA(instance, MAKEINTRESOURCEA(SetupDialogTemplateId), nullptr,
                                DialogProcedure, 0);
    SetWindowLongPtrA(Window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    FillScriptList();
    if (!ViewerAvailable()) {
        EnableWindow(GetDlgItem(Window, IdDisplayMap), 0);
        SetWindowTooltipA(GetDlgItem(Window, IdDisplayMap), NoViewerReason);
    }
    ShowWindow(Window, showMode);
    UpdateWindow(Window);
    SetFocus(Window);

    char dir[_MAX_PATH];
    ReadLastDirectory(dir, sizeof dir);
    SetDlgItemTextA(Window, IdMapDirectory, dir);

    HRESULT started = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    NoFolderPicker = (started == S_OK || started == S_FALSE) ? 0 : 1;
    EnableWindow(GetDlgItem(Window, IdBrowse), NoFolderPicker ? 0 : 1);
}

SetupDialog::~SetupDialog() {
    DestroyWindow(Window);
    CoUninitialize();
}

void SetupDialog::FillScriptList() {
    HWND list = GetDlgItem(Window, IdScript);
    const char* lit = LitFolder();
    char pattern[_MAX_PATH * 2];
    std::snprintf(pattern, sizeof pattern, "%s/*.ssf", lit ? lit : ".");
    WIN32_FIND_DATAA found;
    HANDLE search = lit ? FindFirstFileA(pattern, &found) : INVALID_HANDLE_VALUE;
    if (search != INVALID_HANDLE_VALUE) {
        do {
            SendMessageA(list, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(found.cFileName));
        } while (FindNextFileA(search, &found));
        FindClose(search);
    }
    SendMessageA(list, CB_SETCURSEL, 0, 0);
}

void SetupDialog::SetProgress(int percent) {
    SendMessageA(GetDlgItem(Window, IdProgress), PBM_SETPOS, WPARAM(percent), 0);
}

void SetupDialog::EnableControls(bool flag) {
    static const int Order[] = {IdMapDirectory, IdBrowse,        IdScript,
                                IdDisplayMap,   IdCreateShadows, IdExit};
    for (int id : Order) {
        bool enable = flag;
        if (id == IdBrowse) enable = flag && !NoFolderPicker;
        if (id == IdDisplayMap) enable = flag && ViewerAvailable();
        EnableWindow(GetDlgItem(Window, id), enable ? 1 : 0);
    }
}

void SetupDialog::RunFinished() {
    SetProgress(0);
    EnableControls(true);
    ShowCursor(1);
    SetFocus(Window);
    _chdir(StartDirectory);
}

void SetupDialog::TakeFocus() {
    SetFocus(Window);
}

INT_PTR SetupDialog::DialogProcedure(HWND window, UINT message, WPARAM wParam, LPARAM) {
    auto* dialog = reinterpret_cast<SetupDialog*>(GetWindowLongPtrA(window, GWLP_USERDATA));
    if (!dialog) return 0;
    switch (message) {
        case WM_DESTROY:
        case WM_CLOSE:
            PostQuitMessage(0);
            break;
        case WM_COMMAND:
            switch (LOWORD(wParam)) {
                case IdCreateShadows:
                    dialog->Start();
                    break;
                case IdExit:
                    PostQuitMessage(0);
                    break;
                case IdBrowse:
                    if (!NoFolderPicker) dialog->PickFolder();
                    break;
                default:
                    break;
            }
            break;
        default:
            break;
    }
    return 0;
}

void SetupDialog::PickFolder() {
    BROWSEINFOA info = {};
    info.hwndOwner = Window;
    info.lpszTitle = "Select Map Directory";
    info.ulFlags = BIF_RETURNONLYFSDIRS;
    LPITEMIDLIST list = SHBrowseForFolderA(&info);
    if (!list) return;
    char path[_MAX_PATH] = {};
    if (SHGetPathFromIDListA(list, path)) SetDlgItemTextA(Window, IdMapDirectory, path);
    IMalloc* allocator = nullptr;
    if (SHGetMalloc(&allocator) == S_OK && allocator) {
        allocator->Free(list);
        allocator->Release();
    }
}

void SetupDialog::Start() {
    char dir[_MAX_PATH] = {}, script[_MAX_PATH] = {}, scriptPath[_MAX_PATH * 2] = {};
    GetDlgItemTextA(Window, IdMapDirectory, dir, sizeof dir);
    GetDlgItemTextA(Window, IdScript, script, sizeof script);
    const char* lit = LitFolder();
    std::snprintf(scriptPath, sizeof scriptPath, "%s/%s", lit ? lit : "", script);

    char mapFile[_MAX_PATH * 2] = {};
    std::snprintf(mapFile, sizeof mapFile, "%s/%s", dir, MapFileName);
    bool valid = std::strlen(MapFileName) + std::strlen(dir) + 2 <= _MAX_PATH && IsDirectory(dir) &&
                 IsFile(mapFile) && ParseShadowScript(scriptPath);
    if (!valid) {
        MessageBoxA(Window, "You must specify a valid map directory and script.", "ERROR",
                    MB_ICONERROR);
        return;
    }
    char mapPath[_MAX_PATH] = {};  // the validation kept the path within the buffer
    std::memcpy(mapPath, mapFile, std::min(std::strlen(mapFile), sizeof mapPath - 1));

    WriteLastDirectory(dir);
    EnableControls(false);
    BakeRunResult result = BakeMap(mapPath, uint8_t(IsDlgButtonChecked(Window, IdDisplayMap)));
    // Without the viewer nothing shows the message log: a map that could not be baked says why.
    if (result.baked == 0 && MessageLogCount() > 0)
        MessageBoxA(Window, MessageLogLine(MessageLogCount() - 1), "ERROR", MB_ICONERROR);
}
