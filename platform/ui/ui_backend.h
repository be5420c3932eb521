// What a window system implementation does for the window calls: native windows and controls,
// their state, the native event pump, boxes, the folder picker and the pointer. The message
// queue, handles, window data and dispatch are common to all (window_system.cpp); an
// implementation reports its users' actions by posting messages with PostMessageA.
#pragma once

#include <cstdint>
#include <string>

#include "platform/ui/dialog_template.h"
#include "platform/ui/win_types.h"

using WindowId = uint32_t;  // the number behind an HWND; 0 is none

class UiBackend {
public:
    virtual ~UiBackend() = default;

    // The dialog with its controls, hidden; controlIds[i] belongs to dialog.controls[i].
    virtual void CreateDialogWindow(WindowId dialogId, const DialogTemplate& dialog,
                                    const WindowId* controlIds) = 0;
    // A top-level window of the given client size, hidden.
    virtual void CreateTopWindow(WindowId id, const char* title, int x, int y, int width,
                                 int height) = 0;
    virtual void PlaceTopWindow(WindowId id, int x, int y, int width, int height) = 0;
    virtual void DestroyNativeWindow(WindowId id) = 0;  // a dialog takes its controls with it

    virtual void SetText(WindowId id, const char* text) = 0;
    virtual std::string Text(WindowId id) = 0;  // a list gives its chosen entry
    virtual void SetEnabled(WindowId id, bool enabled) = 0;
    virtual bool IsEnabled(WindowId id) = 0;
    virtual void SetVisible(WindowId id, bool visible) = 0;
    virtual bool IsVisible(WindowId id) = 0;
    virtual void SetChecked(WindowId id, bool checked) = 0;
    virtual bool IsChecked(WindowId id) = 0;
    virtual void SetTooltip(WindowId id, const char* text) = 0;

    virtual int AddListEntry(WindowId id, const char* text) = 0;  // its index
    virtual void ClearList(WindowId id) = 0;
    virtual int ListCount(WindowId id) = 0;
    virtual std::string ListEntry(WindowId id, int index) = 0;
    virtual bool SelectListEntry(WindowId id, int index) = 0;  // -1 clears; false if out of range
    virtual int ListSelection(WindowId id) = 0;                // -1 if none

    virtual void SetProgressRange(WindowId id, int low, int high) = 0;
    virtual void SetProgressPosition(WindowId id, int position) = 0;
    virtual int ProgressPosition(WindowId id) = 0;

    virtual void SetFocus(WindowId id) = 0;
    virtual void Repaint(WindowId id, bool now) = 0;  // now: paint before returning

    // Runs the native events that are pending; with wait, first blocks until there is one.
    virtual void PumpEvents(bool wait) = 0;

    virtual int ShowMessageBox(WindowId owner, const char* text, const char* caption,
                               unsigned type) = 0;
    // The user's chosen folder, or false if the picker was cancelled.
    virtual bool PickFolder(WindowId owner, const char* title, std::string& folder) = 0;
    // What starting the component library gives: 0 or 1 when the folder picker can be used.
    virtual HRESULT StartComponentLibrary() = 0;

    virtual void SetCursorVisible(bool visible) = 0;
    virtual void SetCursorPosition(int x, int y) = 0;
    virtual POINT CursorPosition() = 0;
};

// Installs the implementation the window calls go to (null: none, every call fails) and returns
// the previous one. Windows made under one implementation must be gone before it is replaced.
UiBackend* SetUiBackend(UiBackend* backend);
UiBackend* CurrentUiBackend();

// Destroys every window, empties the queue and forgets classes, cursor count and quit request:
// a clean window system for the next test or the next implementation.
void ResetWindowSystem();
