// A window system without a screen: windows and controls are records, and a test plays the user
// by posting what a hand on the screen would make happen. Installs itself while it lives.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/ui/ui_backend.h"

class HeadlessUi : public UiBackend {
public:
    HeadlessUi();
    ~HeadlessUi() override;  // every window goes, and the previous window system comes back
    HeadlessUi(const HeadlessUi&) = delete;
    HeadlessUi& operator=(const HeadlessUi&) = delete;

    // What a user does. Each works only on an enabled, visible control of a visible dialog, as
    // on a screen, and says whether it could.
    bool Click(HWND dialog, int id);  // a check box toggles itself first
    bool Type(HWND dialog, int id, const std::string& text);
    bool Choose(HWND dialog, int id, int index);
    bool PressCloseBox(HWND window);
    bool PressEscape(HWND dialog);

    // Steps run one at a time whenever the program waits for input. Once they have run out, a
    // wait posts a quit, so a test can never hang; RanOutOfSteps says that it happened.
    void AddStep(std::function<void()> step);
    bool RanOutOfSteps() const { return ranOut; }
    // Runs at every pump of events, i.e. inside every message drain.
    void SetPumpHook(std::function<void()> hook) { pumpHook = std::move(hook); }
    int PumpCount() const { return pumps; }

    // Answers the user gives to the boxes and the folder picker; every box is answered IDOK.
    struct Box {
        WindowId owner;
        std::string text, caption;
        unsigned type;
    };
    const std::vector<Box>& Boxes() const { return boxes; }
    void SetFolderPickerAnswer(const char* folder);  // null: the user cancels
    int FolderPickerCalls() const { return folderPicks; }
    std::string FolderPickerTitle() const { return folderTitle; }
    void SetComponentLibraryResult(HRESULT result) { comResult = result; }

    // What the screen shows.
    std::string Tooltip(HWND window) const;
    PixelRect Geometry(HWND window) const;  // pixels, within the parent
    bool CursorVisible() const { return cursorVisible; }

    // UiBackend
    void CreateDialogWindow(WindowId dialogId, const DialogTemplate& dialog,
                            const WindowId* controlIds) override;
    void CreateTopWindow(WindowId id, const char* title, int x, int y, int width,
                         int height) override;
    void PlaceTopWindow(WindowId id, int x, int y, int width, int height) override;
    void DestroyNativeWindow(WindowId id) override;
    void SetText(WindowId id, const char* text) override;
    std::string Text(WindowId id) override;
    void SetEnabled(WindowId id, bool enabled) override;
    bool IsEnabled(WindowId id) override;
    void SetVisible(WindowId id, bool visible) override;
    bool IsVisible(WindowId id) override;
    void SetChecked(WindowId id, bool checked) override;
    bool IsChecked(WindowId id) override;
    void SetTooltip(WindowId id, const char* text) override;
    int AddListEntry(WindowId id, const char* text) override;
    void ClearList(WindowId id) override;
    int ListCount(WindowId id) override;
    std::string ListEntry(WindowId id, int index) override;
    bool SelectListEntry(WindowId id, int index) override;
    int ListSelection(WindowId id) override;
    void SetProgressRange(WindowId id, int low, int high) override;
    void SetProgressPosition(WindowId id, int position) override;
    int ProgressPosition(WindowId id) override;
    void SetFocus(WindowId id) override;
    void Repaint(WindowId id, bool now) override;
    void PumpEvents(bool wait) override;
    int ShowMessageBox(WindowId owner, const char* text, const char* caption,
                       unsigned type) override;
    bool PickFolder(WindowId owner, const char* title, std::string& folder) override;
    HRESULT StartComponentLibrary() override { return comResult; }
    void SetCursorVisible(bool visible) override { cursorVisible = visible; }
    void SetCursorPosition(int x, int y) override { cursor = {x, y}; }
    POINT CursorPosition() override { return cursor; }

private:
    struct Native {
        ControlKind kind = ControlKind::Static;
        bool isDialog = false;
        WindowId parent = 0;
        std::string text, tooltip;
        bool enabled = true, visible = false, checked = false;
        std::vector<std::string> entries;
        int selection = -1;
        int low = 0, high = 100, position = 0;
        PixelRect geometry = {};
    };
    Native* Find(WindowId id);
    const Native* Find(WindowId id) const;
    // The control id of a dialog, if the user could reach it now.
    Native* Reachable(HWND dialog, int id, WindowId* controlId);

    std::map<WindowId, Native> windows;
    std::vector<std::function<void()>> steps;
    size_t nextStep = 0;
    bool ranOut = false;
    std::function<void()> pumpHook;
    int pumps = 0;
    std::vector<Box> boxes;
    bool folderAnswered = false;
    std::string folderAnswer, folderTitle;
    int folderPicks = 0;
    HRESULT comResult = 0;
    bool cursorVisible = true;
    POINT cursor = {0, 0};
    UiBackend* previous;
};
