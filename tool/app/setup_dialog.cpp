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
#include "tool/bake/bake_pass.h"
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

enum class PathKind { None, File, Directory };

static PathKind KindOf(const char* path) {
    struct _stat status;
    if (_stat(path, &status) != 0) return PathKind::None;
    return (status.st_mode & _S_IFMT) == _S_IFDIR ? PathKind::Directory : PathKind::File;
}

// Why the map directory and the script can't be baked, checked in the order the box always
// had; empty where they can.
static std::string InvalidInput(const char* dir, const char* mapFile, const char* script,
                                const char* scriptPath) {
    const char* lit = LitFolder();
    const size_t longest = _MAX_PATH - 2 - std::strlen(MapFileName);
    if (std::strlen(dir) > longest)
        return "The map directory's path is too long: at most " + std::to_string(longest) +
               " characters fit.";
    if (!*dir) return "No map directory is given.";
    PathKind kind = KindOf(dir);
    if (kind == PathKind::None) return "The directory " + std::string(dir) + " does not exist.";
    if (kind == PathKind::File) return std::string(dir) + " is a file, not a directory.";
    kind = KindOf(mapFile);
    if (kind == PathKind::None) return std::string(dir) + " holds no " + MapFileName + ".";
    if (kind == PathKind::Directory) return std::string(mapFile) + " is a directory, not a map.";
    if (!lit) return "resource.cfg names no LIT folder for the shadow scripts.";
    if (!*script) return "The folder " + std::string(lit) + " holds no shadow script (.ssf).";
    if (!ParseShadowScript(scriptPath))
        return "The script " + std::string(scriptPath) + " can't be read.";
    return {};
}

// "1.4 s", "0.04 s", "2 min 05 s": as precise as a glance needs.
static std::string Duration(double seconds) {
    char text[48];
    if (seconds >= 60)
        std::snprintf(text, sizeof text, "%d min %02d s", int(seconds / 60), int(seconds) % 60);
    else
        std::snprintf(text, sizeof text, seconds < 1 ? "%.2f s" : "%.1f s", seconds);
    return text;
}

// The shadow maps the current bake has written, for the word the dialog says when it ends.
static struct {
    std::string first;
    int count = 0;
    double seconds = 0;
} Written;

static void NoteMapBaked(const char*, const char* shadowMapPath, const BakeResult& result) {
    if (Written.count++ == 0) Written.first = shadowMapPath;
    Written.seconds += result.statistics.TotalSeconds();
}

SetupDialog::SetupDialog(HINSTANCE instance, int showMode) {
    if (!FindDialogTemplate(SetupDialogTemplateId))
        RegisterDialogTemplate(SetupDialogTemplateId, &SetupDialogTemplate);
    Window = CreateDialogParamA(instance, MAKEINTRESOURCEA(SetupDialogTemplateId), nullptr,
                                DialogProcedure, 0);
    SetWindowLongPtrA(Window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    FillScriptList();
    ShowViewerAvailability();
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

void SetupDialog::ShowViewerAvailability() {
    HWND box = GetDlgItem(Window, IdDisplayMap);
    EnableWindow(box, ViewerAvailable() ? 1 : 0);
    SetWindowTooltipA(box, ViewerAvailable() ? "" : NoViewerReason());
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
    std::string invalid = InvalidInput(dir, mapFile, script, scriptPath);
    if (!invalid.empty()) {
        invalid = "You must specify a valid map directory and script.\n\n" + invalid;
        MessageBoxA(Window, invalid.c_str(), "ERROR", MB_ICONERROR);
        return;
    }
    char mapPath[_MAX_PATH] = {};  // the validation kept the path within the buffer
    std::memcpy(mapPath, mapFile, std::min(std::strlen(mapFile), sizeof mapPath - 1));

    WriteLastDirectory(dir);
    EnableControls(false);
    SetDlgItemTextA(Window, IdProgressLabel, ProgressLabelText);
    Written = {};
    SetMapBakedCallback(NoteMapBaked);
    BakeRunResult result = BakeMap(mapPath, uint8_t(IsDlgButtonChecked(Window, IdDisplayMap)));
    SetMapBakedCallback(nullptr);
    std::string status = "Failed: " + std::string(mapPath);
    if (result.baked > 0) {
        status = "Done: " + Written.first;
        if (Written.count > 1) status += " and " + std::to_string(Written.count - 1) + " more";
        status += " in " + Duration(Written.seconds);
    }
    SetDlgItemTextA(Window, IdProgressLabel, status.c_str());
    // No viewer shows a failed bake: a map that could not be baked says why here.
    if (result.baked == 0 && MessageLogCount() > 0)
        MessageBoxA(Window, MessageLogLine(MessageLogCount() - 1), "ERROR", MB_ICONERROR);
}
