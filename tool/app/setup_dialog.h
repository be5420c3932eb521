// The setup dialog: the map directory, the script, the button that starts a bake, its progress,
// and the last map directory remembered in "LastShadow.txt" for the next start.
#pragma once

#include <cstdint>

#include "platform/ui/win_types.h"

// The dialog's resource and its controls.
enum : int {
    SetupDialogTemplateId = 101,
    IdCreateShadows = 1,
    IdExit = 2,
    IdMapDirectory = 1000,
    IdMapDirectoryLabel = 1001,
    IdBrowse = 1002,
    IdDisplayMap = 1003,
    IdScriptLabel = 1004,
    IdScript = 1005,
    IdProgress = 1006,
    IdProgressLabel = 1007,
};

// Set when the component library the folder picker needs could not be started.
extern uint8_t NoFolderPicker;

class SetupDialog {
public:
    SetupDialog(HINSTANCE instance, int showMode);
    virtual ~SetupDialog();
    SetupDialog(const SetupDialog&) = delete;
    SetupDialog& operator=(const SetupDialog&) = delete;

    void SetProgress(int percent);
    void EnableControls(bool flag);
    void RunFinished();  // a bake or the viewer has ended: the dialog takes over again
    void TakeFocus();
    // The viewer's box follows the display device: it can be ticked while one is open.
    void ShowViewerAvailability();

    HWND Window;

private:
    static INT_PTR DialogProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    void FillScriptList();
    void PickFolder();
    void Start();
};
