#include "platform/ui/qt/qt_ui.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolTip>
#include <QWindow>
#include <functional>
#include <string>
#include <vector>

#include "platform/ui/shell_api.h"
#include "platform/ui/window_api.h"

namespace {

constexpr uintptr_t TemplateId = 9101;
constexpr ControlTemplate Controls[] = {
    {1, ControlKind::DefaultPushButton, "&Go", 5, 90, 65, 14},
    {2, ControlKind::PushButton, "E&xit", 75, 90, 50, 14},
    {10, ControlKind::Edit, "", 70, 5, 150, 12},
    {11, ControlKind::Static, "Name:", 5, 10, 50, 10},
    {15, ControlKind::Static, "A label wider than its room", 5, 60, 20, 10},
    {12, ControlKind::AutoCheckBox, "Show &Result", 5, 40, 170, 15},
    {13, ControlKind::DropDownList, "", 70, 20, 150, 55},
    {14, ControlKind::ProgressBar, "", 5, 75, 260, 10},
};
constexpr DialogTemplate Template = {"Test Dialog", "MS Sans Serif",         8, 272, 111,
                                     Controls,      int(std::size(Controls))};

INT_PTR QuietDialogProc(HWND, UINT, WPARAM, LPARAM) {
    return 0;
}

LRESULT ViewerProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    return message == WM_CLOSE ? 0 : DefWindowProcA(window, message, wParam, lParam);
}

// Runs `act` once a modal window is up, from inside its own event loop.
void WhenModal(std::function<void(QWidget*)> act) {
    auto* timer = new QTimer;
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, [timer, act] {
        if (QWidget* modal = QApplication::activeModalWidget()) {
            timer->stop();
            timer->deleteLater();
            act(modal);
        }
    });
    timer->start();
}

class QtDialogTest : public ::testing::Test {
protected:
    void SetUp() override {
        RegisterDialogTemplate(TemplateId, &Template);
        dialog =
            CreateDialogParamA(nullptr, MAKEINTRESOURCEA(TemplateId), nullptr, QuietDialogProc, 0);
        ASSERT_NE(dialog, nullptr);
        window = ui.Widget(dialog);
        ASSERT_NE(window, nullptr);
    }

    template <typename T>
    T* Control(int id) {
        return window->findChild<T*>(QStringLiteral("control%1").arg(id));
    }

    void ShowAndActivate() {
        ShowWindow(dialog, SW_SHOWNORMAL);
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    }

    // Everything the user's actions posted so far, after Qt has run what was pending.
    std::vector<MSG> Posted() {
        std::vector<MSG> messages;
        MSG message;
        while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE))
            if (message.message != WM_QUIT) messages.push_back(message);
        return messages;
    }

    QtUi ui;
    HWND dialog = nullptr;
    QWidget* window = nullptr;
};

::testing::AssertionResult IsCommand(const MSG& message, HWND dialog, int id, int code) {
    if (message.hwnd != dialog || message.message != WM_COMMAND)
        return ::testing::AssertionFailure() << "message " << message.message;
    if (int(LOWORD(message.wParam)) != id || int(HIWORD(message.wParam)) != code)
        return ::testing::AssertionFailure()
               << "id " << LOWORD(message.wParam) << " code " << HIWORD(message.wParam);
    return ::testing::AssertionSuccess();
}

TEST_F(QtDialogTest, ControlsStandWhereTheTemplateSaysInTheApplicationFont) {
    EXPECT_EQ(window->windowTitle(), "Test Dialog");
    EXPECT_FALSE(window->windowFlags() & Qt::WindowContextHelpButtonHint);
    EXPECT_FALSE(window->isVisible());  // shown only by ShowWindow

    DialogBaseUnits units = MeasureDialogBaseUnits(QApplication::font());
    PixelRect size = DialogUnitsToPixels(0, 0, 272, 111, units);
    EXPECT_EQ(window->size(), QSize(size.width, size.height));
    EXPECT_EQ(window->minimumSize(), window->maximumSize());  // not resizable

    for (const ControlTemplate& control : Controls) {
        SCOPED_TRACE(control.id);
        QWidget* widget = window->findChild<QWidget*>(QStringLiteral("control%1").arg(control.id));
        ASSERT_NE(widget, nullptr);
        EXPECT_EQ(ui.Widget(GetDlgItem(dialog, control.id)), widget);
        PixelRect rect =
            DialogUnitsToPixels(control.x, control.y, control.width, control.height, units);
        EXPECT_EQ(widget->pos(), QPoint(rect.x, rect.y));
        if (control.kind == ControlKind::DropDownList) {
            // Its template height counts the open list; closed it takes its own height.
            EXPECT_EQ(widget->height(), widget->sizeHint().height());
            EXPECT_LT(widget->height(), rect.height);
        } else {
            EXPECT_EQ(widget->height(), rect.height);
        }
        // A label never cuts its text; other controls keep their width.
        if (control.kind == ControlKind::Static)
            EXPECT_EQ(widget->width(), std::max(rect.width, widget->sizeHint().width()));
        else
            EXPECT_EQ(widget->width(), rect.width);
    }
    EXPECT_GT(Control<QLabel>(15)->width(), DialogUnitsToPixels(5, 60, 20, 10, units).width);

    auto* start = Control<QPushButton>(1);
    ASSERT_NE(start, nullptr);
    EXPECT_TRUE(start->isDefault());
    EXPECT_FALSE(Control<QPushButton>(2)->isDefault());
    EXPECT_EQ(Control<QCheckBox>(12)->text(), "Show &Result");
    EXPECT_FALSE(Control<QComboBox>(13)->isEditable());
    EXPECT_FALSE(Control<QProgressBar>(14)->isTextVisible());

    ShowWindow(dialog, SW_SHOWNORMAL);
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(IsWindowVisible(GetDlgItem(dialog, 10)));
    EXPECT_EQ(ShowWindow(dialog, SW_HIDE), 1);
    EXPECT_FALSE(IsWindowVisible(GetDlgItem(dialog, 10)));
}

TEST_F(QtDialogTest, ClicksAndKeysPostCommandsToTheDialog) {
    ShowAndActivate();
    QTest::mouseClick(Control<QPushButton>(1), Qt::LeftButton);
    auto* check = Control<QCheckBox>(12);
    QTest::mouseClick(check, Qt::LeftButton, {}, QPoint(8, 8));  // on its box
    std::vector<MSG> posted = Posted();
    ASSERT_EQ(posted.size(), 2u);
    EXPECT_TRUE(IsCommand(posted[0], dialog, 1, BN_CLICKED));
    EXPECT_EQ(posted[0].lParam, LPARAM(GetDlgItem(dialog, 1)));
    // The check box has toggled itself by the time the program hears of the click.
    EXPECT_TRUE(IsCommand(posted[1], dialog, 12, BN_CLICKED));
    EXPECT_EQ(posted[1].lParam, LPARAM(GetDlgItem(dialog, 12)));
    EXPECT_EQ(IsDlgButtonChecked(dialog, 12), UINT(BST_CHECKED));

    // Enter in the edit presses the default button; the mnemonic presses its button.
    QTest::keyClick(Control<QLineEdit>(10), Qt::Key_Return);
    QTest::keyClick(window, Qt::Key_X, Qt::AltModifier);
    QTest::qWait(200);  // a shortcut animates the press first
    posted = Posted();
    ASSERT_EQ(posted.size(), 2u);
    EXPECT_TRUE(IsCommand(posted[0], dialog, 1, BN_CLICKED));
    EXPECT_TRUE(IsCommand(posted[1], dialog, 2, BN_CLICKED));

    // A choice by the user notifies, one by the program does not.
    HWND list = GetDlgItem(dialog, 13);
    SendMessageA(list, CB_ADDSTRING, 0, LPARAM("a.ssf"));
    SendMessageA(list, CB_ADDSTRING, 0, LPARAM("b.ssf"));
    SendMessageA(list, CB_SETCURSEL, 0, 0);
    EXPECT_TRUE(Posted().empty());
    QTest::keyClick(Control<QComboBox>(13), Qt::Key_Down);
    posted = Posted();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_TRUE(IsCommand(posted[0], dialog, 13, CBN_SELCHANGE));
    EXPECT_EQ(posted[0].lParam, LPARAM(list));
    EXPECT_EQ(SendMessageA(list, CB_GETCURSEL, 0, 0), 1);
}

TEST_F(QtDialogTest, DisabledControlsIgnoreTheUser) {
    ShowAndActivate();
    Control<QPushButton>(1)->setFocus();
    // Disabled as a bake disables them: the focus leaves each in turn.
    for (int id : {10, 12, 1, 2}) EnableWindow(GetDlgItem(dialog, id), 0);
    QTest::mouseClick(Control<QPushButton>(1), Qt::LeftButton);
    QTest::mouseClick(Control<QCheckBox>(12), Qt::LeftButton, {}, QPoint(8, 8));
    QTest::keyClick(window, Qt::Key_Return);
    QTest::keyClick(window, Qt::Key_X, Qt::AltModifier);
    QTest::qWait(200);
    EXPECT_TRUE(Posted().empty());
    EXPECT_EQ(IsDlgButtonChecked(dialog, 12), UINT(BST_UNCHECKED));

    // Enabled again, Enter still means the default button, not the one the focus passed over.
    for (int id : {10, 12, 1, 2}) EnableWindow(GetDlgItem(dialog, id), 1);
    SetFocus(dialog);
    QTest::keyClick(Control<QLineEdit>(10), Qt::Key_Return);
    std::vector<MSG> posted = Posted();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_TRUE(IsCommand(posted[0], dialog, 1, BN_CLICKED));
}

TEST_F(QtDialogTest, CloseBoxAndEscapeLeaveTheDecisionToTheProgram) {
    ShowAndActivate();
    window->windowHandle()->close();  // what the window manager's close box does
    QTest::keyClick(window, Qt::Key_Escape);
    std::vector<MSG> posted = Posted();
    ASSERT_EQ(posted.size(), 2u);
    EXPECT_EQ(posted[0].hwnd, dialog);
    EXPECT_EQ(posted[0].message, UINT(WM_CLOSE));
    EXPECT_TRUE(IsCommand(posted[1], dialog, IDCANCEL, BN_CLICKED));
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(IsWindowVisible(dialog));
}

// Where the widgets' own habits differ from the window calls' promises.
TEST_F(QtDialogTest, WindowCallsReachTheWidgets) {
    char text[260];
    const char* path =
        "/maps/\xC3\xBC"
        "ber one";
    EXPECT_TRUE(SetDlgItemTextA(dialog, 10, path));
    EXPECT_EQ(Control<QLineEdit>(10)->text(), QString::fromUtf8(path));
    EXPECT_EQ(GetDlgItemTextA(dialog, 10, text, sizeof text), 15u);
    EXPECT_STREQ(text, path);
    Control<QLineEdit>(10)->setText("typed");  // as the user types
    GetDlgItemTextA(dialog, 10, text, sizeof text);
    EXPECT_STREQ(text, "typed");

    // Enabled state is each window's own, whatever its dialog's.
    HWND edit = GetDlgItem(dialog, 10);
    EXPECT_EQ(EnableWindow(edit, 0), 0);
    EXPECT_FALSE(Control<QLineEdit>(10)->isEnabled());
    EnableWindow(dialog, 0);
    EXPECT_TRUE(IsWindowEnabled(GetDlgItem(dialog, 1)));
    EnableWindow(dialog, 1);
    EXPECT_FALSE(IsWindowEnabled(edit));

    CheckDlgButton(dialog, 12, BST_CHECKED);
    EXPECT_TRUE(Control<QCheckBox>(12)->isChecked());
    EXPECT_EQ(IsDlgButtonChecked(dialog, 12), UINT(BST_CHECKED));

    // Adding entries leaves the choice to the program, unlike a bare QComboBox.
    HWND list = GetDlgItem(dialog, 13);
    EXPECT_EQ(SendMessageA(list, CB_ADDSTRING, 0, LPARAM("morning.ssf")), 0);
    EXPECT_EQ(SendMessageA(list, CB_ADDSTRING, 0, LPARAM("evening.ssf")), 1);
    EXPECT_EQ(SendMessageA(list, CB_GETCURSEL, 0, 0), CB_ERR);
    EXPECT_EQ(GetDlgItemTextA(dialog, 13, text, sizeof text), 0u);
    EXPECT_EQ(SendMessageA(list, CB_SETCURSEL, 1, 0), 1);
    GetDlgItemTextA(dialog, 13, text, sizeof text);
    EXPECT_STREQ(text, "evening.ssf");  // unsorted: in the order added
    EXPECT_EQ(SendMessageA(list, CB_SETCURSEL, 2, 0), CB_ERR);
    EXPECT_EQ(Control<QComboBox>(13)->currentIndex(), -1);

    // The bar clamps a position out of its range instead of ignoring it.
    HWND bar = GetDlgItem(dialog, 14);
    EXPECT_EQ(SendMessageA(bar, PBM_SETPOS, 40, 0), 0);
    EXPECT_EQ(Control<QProgressBar>(14)->value(), 40);
    EXPECT_EQ(SendMessageA(bar, PBM_SETPOS, 150, 0), 40);
    EXPECT_EQ(Control<QProgressBar>(14)->value(), 100);
    SendMessageA(bar, PBM_SETPOS, -5, 0);
    EXPECT_EQ(SendMessageA(bar, PBM_GETPOS, 0, 0), 0);
    SendMessageA(bar, PBM_SETPOS, 30, 0);
    SendMessageA(bar, PBM_SETRANGE, 0, LPARAM(MAKEWPARAM(50, 60)));
    EXPECT_EQ(SendMessageA(bar, PBM_GETPOS, 0, 0), 50);
}

// Hints say why a control is disabled, and they show while the viewer has the focus.
TEST_F(QtDialogTest, TooltipShowsOnADisabledControlOfAnInactiveDialog) {
    ShowAndActivate();
    HWND check = GetDlgItem(dialog, 12);
    SetWindowTooltipA(check, "Needs a finished bake");
    EXPECT_EQ(Control<QCheckBox>(12)->toolTip(), "Needs a finished bake");
    QWidget other;  // out of the dialog's way
    other.setGeometry(window->geometry().right() + 20, 0, 40, 40);
    other.show();
    other.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&other));
    EXPECT_FALSE(window->isActiveWindow());
    for (BOOL enabled : {1, 0}) {
        SCOPED_TRACE(enabled);
        EnableWindow(check, enabled);
        QToolTip::hideText();
        // The pointer itself moves, as a hand moves it.
        QCursor::setPos(window->mapToGlobal(QPoint(2, 2)));
        QTest::qWait(20);
        QCursor::setPos(Control<QCheckBox>(12)->mapToGlobal(QPoint(10, 5)));
        EXPECT_TRUE(QTest::qWaitFor([] { return QToolTip::isVisible(); }, 3000));
        EXPECT_EQ(QToolTip::text(), "Needs a finished bake");
    }
    QToolTip::hideText();
}

TEST_F(QtDialogTest, MessageBoxIsModalOverItsOwner) {
    ShowAndActivate();
    QString text, title;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QWidget* parent = nullptr;
    WhenModal([&](QWidget* modal) {
        auto* box = qobject_cast<QMessageBox*>(modal);
        ASSERT_NE(box, nullptr);
        text = box->text();
        title = box->windowTitle();
        icon = box->icon();
        parent = box->parentWidget();
        QTest::keyClick(box, Qt::Key_Return);
    });
    EXPECT_EQ(MessageBoxA(dialog, "You must specify a valid map directory and script.", "ERROR",
                          MB_OK | MB_ICONERROR),
              int(IDOK));
    EXPECT_EQ(text, "You must specify a valid map directory and script.");
    EXPECT_EQ(title, "ERROR");
    EXPECT_EQ(icon, QMessageBox::Critical);
    EXPECT_EQ(parent, window);
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
}

TEST_F(QtDialogTest, FolderPickerGivesThePickedPathOrNothing) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    ASSERT_TRUE(QDir(folder.path()).mkdir("map"));
    QString title;
    auto pick = [&](bool accept) {
        WhenModal([&, accept](QWidget* modal) {
            auto* picker = qobject_cast<QFileDialog*>(modal);
            ASSERT_NE(picker, nullptr);
            title = picker->windowTitle();
            EXPECT_EQ(picker->fileMode(), QFileDialog::Directory);
            picker->setDirectory(folder.path() + "/map");
            if (accept)
                static_cast<QDialog*>(picker)->accept();
            else
                picker->reject();
        });
    };
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    char path[260] = {};
    BROWSEINFOA info = {dialog,  nullptr, nullptr, "Select Map Directory", BIF_RETURNONLYFSDIRS,
                        nullptr, 0,       0};
    pick(true);
    LPITEMIDLIST list = SHBrowseForFolderA(&info);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(title, "Select Map Directory");
    EXPECT_TRUE(SHGetPathFromIDListA(list, path));
    EXPECT_EQ(QString::fromUtf8(path), folder.path() + "/map");
    IMalloc* allocator = nullptr;
    ASSERT_EQ(SHGetMalloc(&allocator), S_OK);
    allocator->Free(list);

    pick(false);
    EXPECT_EQ(SHBrowseForFolderA(&info), nullptr);
    CoUninitialize();
}

TEST(QtUi, TopWindowPumpCursorAndCleanUp) {
    auto* before = CurrentUiBackend();
    QPointer<QWidget> viewer;
    {
        QtUi ui;
        EXPECT_EQ(CurrentUiBackend(), &ui);
        WNDCLASSA windowClass = {};
        windowClass.lpfnWndProc = ViewerProc;
        windowClass.lpszClassName = "QtTestViewer";
        ASSERT_NE(RegisterClassA(&windowClass), 0);
        HWND window = CreateWindowExA(0, "QtTestViewer", "Viewer", WS_POPUP, 0, 0, 320, 200,
                                      nullptr, nullptr, nullptr, nullptr);
        ASSERT_NE(window, nullptr);
        viewer = ui.Widget(window);
        ASSERT_NE(viewer, nullptr);
        EXPECT_TRUE(viewer->isWindow());
        EXPECT_FALSE(viewer->isVisible());
        EXPECT_EQ(viewer->size(), QSize(320, 200));
        EXPECT_EQ(viewer->windowTitle(), "Viewer");
        ShowWindow(window, SW_SHOW);
        EXPECT_TRUE(QTest::qWaitForWindowExposed(viewer));

        // A wait ends once the user does something that posts.
        MSG message;
        while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
        }  // showing moved and sized it
        QTimer::singleShot(50, viewer, [&] { viewer->windowHandle()->close(); });
        EXPECT_TRUE(WaitMessage());
        ASSERT_TRUE(PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE));
        EXPECT_EQ(message.hwnd, window);
        EXPECT_EQ(message.message, UINT(WM_CLOSE));
        EXPECT_TRUE(viewer->isVisible());

        // Hidden while the count is below 0, and shown again when the window system ends.
        EXPECT_EQ(ShowCursor(0), -1);
        ASSERT_NE(QGuiApplication::overrideCursor(), nullptr);
        EXPECT_EQ(QGuiApplication::overrideCursor()->shape(), Qt::BlankCursor);
        ShowCursor(0);
        ShowCursor(1);
        EXPECT_NE(QGuiApplication::overrideCursor(), nullptr);
    }
    EXPECT_TRUE(viewer.isNull());
    EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
    EXPECT_EQ(CurrentUiBackend(), before);
}

// Keys, buttons and moves of the viewer's window reach its procedure as the desktop's messages.
TEST(QtUi, TheViewerWindowsInputArrivesAsItsMessages) {
    QtUi ui;
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = ViewerProc;
    windowClass.lpszClassName = "QtInputViewer";
    ASSERT_NE(RegisterClassA(&windowClass), 0);
    HWND window = CreateWindowExA(0, "QtInputViewer", "Viewer", WS_POPUP, 0, 0, 320, 200, nullptr,
                                  nullptr, nullptr, nullptr);
    QWidget* viewer = ui.Widget(window);
    ASSERT_NE(viewer, nullptr);
    ShowWindow(window, SW_SHOW);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(viewer));
    MSG message;
    bool sized = false;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE))
        sized = sized || (message.message == WM_SIZE && LOWORD(uintptr_t(message.lParam)) == 320 &&
                          HIWORD(uintptr_t(message.lParam)) == 200);
    EXPECT_TRUE(sized);

    QTest::keyPress(viewer, Qt::Key_Shift);
    QTest::keyRelease(viewer, Qt::Key_Shift);
    QTest::keyClick(viewer, Qt::Key_K);
    QTest::keyClick(viewer, Qt::Key_F5);  // a key the program has no name for posts nothing
    QTest::keyClick(viewer, Qt::Key_Escape);
    QTest::mousePress(viewer, Qt::RightButton, {}, QPoint(30, 40));
    QTest::mouseRelease(viewer, Qt::RightButton, {}, QPoint(30, 40));
    std::vector<std::pair<UINT, WPARAM>> keys;
    std::vector<std::pair<UINT, LPARAM>> buttons;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
        EXPECT_EQ(message.hwnd, window);
        if (message.message == WM_KEYDOWN || message.message == WM_KEYUP)
            keys.push_back({message.message, message.wParam});
        if (message.message == WM_RBUTTONDOWN || message.message == WM_RBUTTONUP)
            buttons.push_back({message.message, message.lParam});
    }
    using Key = std::pair<UINT, WPARAM>;
    EXPECT_EQ(keys, (std::vector<Key>{{WM_KEYDOWN, 16},
                                      {WM_KEYUP, 16},
                                      {WM_KEYDOWN, 'K'},
                                      {WM_KEYUP, 'K'},
                                      {WM_KEYDOWN, 27},
                                      {WM_KEYUP, 27}}));
    const LPARAM at = LPARAM(40 << 16 | 30);
    using Button = std::pair<UINT, LPARAM>;
    EXPECT_EQ(buttons, (std::vector<Button>{{WM_RBUTTONDOWN, at}, {WM_RBUTTONUP, at}}));
}

TEST(QtUi, DestroyingADialogTakesItsControls) {
    QtUi ui;
    RegisterDialogTemplate(TemplateId, &Template);
    HWND dialog =
        CreateDialogParamA(nullptr, MAKEINTRESOURCEA(TemplateId), nullptr, QuietDialogProc, 0);
    ASSERT_NE(dialog, nullptr);
    QPointer<QWidget> window = ui.Widget(dialog);
    QPointer<QWidget> edit = ui.Widget(GetDlgItem(dialog, 10));
    ASSERT_FALSE(edit.isNull());
    HWND editHandle = GetDlgItem(dialog, 10);
    EXPECT_TRUE(DestroyWindow(dialog));
    EXPECT_TRUE(window.isNull());
    EXPECT_TRUE(edit.isNull());
    EXPECT_EQ(ui.Widget(editHandle), nullptr);
    EXPECT_FALSE(SetWindowTextA(editHandle, "gone"));
}

}  // namespace
