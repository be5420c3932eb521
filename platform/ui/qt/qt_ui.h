// The window system on Qt 6 Widgets: a dialog template becomes a QDialog with real controls, a
// top-level window a plain QWidget. What the user does with them comes back as posted messages,
// so the program sees the same stream as under any other window system.
#pragma once

#include <QImage>
#include <QPointer>
#include <QString>
#include <map>
#include <string>

#include "platform/ui/ui_backend.h"

class QFont;
class QWidget;

// The base units of a dialog drawn in this font: the average width of the 52 letters, rounded,
// and the font's line height.
DialogBaseUnits MeasureDialogBaseUnits(const QFont& font);

// What a dialog's edit field or label shows: its whole text, or a text too long for it with its
// middle left out (in a field only while the user is elsewhere). Empty for any other widget.
QString ShownText(const QWidget& control);

class QtUi : public UiBackend {
public:
    QtUi();            // needs a QApplication; installs itself while it lives
    ~QtUi() override;  // every window goes, and the previous window system comes back
    QtUi(const QtUi&) = delete;
    QtUi& operator=(const QtUi&) = delete;

    // The widget behind a handle, or null; controls are named "control<id>" in their dialog.
    QWidget* Widget(HWND window) const;
    // Paints frame over the top window's client area until the next; false for another handle.
    bool ShowFrame(HWND window, QImage frame);

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
    HRESULT StartComponentLibrary() override;
    void SetCursorVisible(bool visible) override;
    void SetCursorPosition(int x, int y) override;
    POINT CursorPosition() override;

private:
    struct Native {
        QPointer<QWidget> widget;  // null once Qt has deleted it with its dialog
        ControlKind kind = ControlKind::Static;
        bool isControl = false;
        WindowId dialog = 0;  // a control's dialog
    };
    const Native* Find(WindowId id) const;
    QWidget* WidgetOf(WindowId id) const;
    template <typename T>
    T* As(WindowId id) const;

    std::map<WindowId, Native> windows;
    bool componentLibraryStarted = false;
    bool cursorHidden = false;
    UiBackend* previous;
};
