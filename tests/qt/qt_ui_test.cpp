// The Qt window system, shown on the setup dialog's own template.
#include "platform/ui/qt/qt_ui.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QWindow>
#include <string>
#include <vector>

#include "platform/ui/window_api.h"
#include "tool/app/setup_dialog.h"
#include "tool/app/setup_dialog_template.h"

namespace {

using Seen = std::vector<std::string>;

INT_PTR QuietDialogProc(HWND, UINT, WPARAM, LPARAM) {
    return 0;
}

HWND MakeDialog() {
    RegisterDialogTemplate(9101, &SetupDialogTemplate);
    return CreateDialogParamA(nullptr, MAKEINTRESOURCEA(9101), nullptr, QuietDialogProc, 0);
}

class QtDialogTest : public ::testing::Test {
protected:
    void SetUp() override {
        dialog = MakeDialog();
        window = ui.Widget(dialog);
        ASSERT_NE(window, nullptr);
    }

    template <typename T = QWidget>
    T* Control(int id) {
        return window->findChild<T*>(QStringLiteral("control%1").arg(id));
    }

    void ShowAndActivate() {
        ShowWindow(dialog, SW_SHOWNORMAL);
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    }

    // What the user's actions posted so far: "id:code" for a command to the dialog, else the
    // message's number.
    Seen Posted() {
        Seen seen;
        for (MSG m; PeekMessageA(&m, nullptr, 0, 0, PM_REMOVE);) {
            std::string what = m.message == WM_COMMAND ? std::to_string(LOWORD(m.wParam)) + ":" +
                                                             std::to_string(HIWORD(m.wParam))
                                                       : std::to_string(m.message);
            if (m.message != WM_QUIT) seen.push_back(m.hwnd == dialog ? what : "elsewhere " + what);
        }
        return seen;
    }

    QtUi ui;
    HWND dialog = nullptr;
    QWidget* window = nullptr;
};

// Controls stand where the template says in the application's font, and every text fits.
TEST_F(QtDialogTest, ControlsStandWhereTheTemplateSaysAndEveryTextFits) {
    EXPECT_EQ(window->windowTitle(), "Parameters for Shadow Generator");
    EXPECT_FALSE(window->isVisible());  // shown only by ShowWindow
    const DialogBaseUnits units = MeasureDialogBaseUnits(QApplication::font());
    PixelRect size = DialogUnitsToPixels(0, 0, 272, 111, units);
    EXPECT_EQ(window->size(), QSize(size.width, size.height));
    bool widened = false;
    for (int i = 0; i < SetupDialogTemplate.controlCount; ++i) {
        const ControlTemplate& control = SetupDialogTemplate.controls[i];
        SCOPED_TRACE(control.id);
        QWidget* widget = Control(control.id);
        ASSERT_NE(widget, nullptr);
        EXPECT_EQ(ui.Widget(GetDlgItem(dialog, control.id)), widget);
        PixelRect rect =
            DialogUnitsToPixels(control.x, control.y, control.width, control.height, units);
        // A label beside a field stands on the field's row, so that their texts are level.
        const int field = control.id == IdMapDirectoryLabel ? IdMapDirectory
                          : control.id == IdScriptLabel     ? IdScript
                                                            : 0;
        if (field) rect.y = Control(field)->y(), rect.height = Control(field)->height();
        EXPECT_EQ(widget->pos(), QPoint(rect.x, rect.y));
        // The list's template height counts it open; closed it takes its own height.
        const bool list = control.kind == ControlKind::DropDownList;
        EXPECT_EQ(widget->height(), list ? widget->sizeHint().height() : rect.height);
        // A label never cuts its text; other controls keep their width.
        const bool label = control.kind == ControlKind::Static;
        EXPECT_EQ(widget->width(),
                  label ? std::max(rect.width, widget->sizeHint().width()) : rect.width);
        widened = widened || widget->width() > rect.width;
        EXPECT_TRUE(window->rect().contains(widget->geometry()));
        if (auto* button = qobject_cast<QPushButton*>(widget)) {
            QString text = button->text().remove('&');
            EXPECT_LT(button->fontMetrics().horizontalAdvance(text), button->width());
        } else if (qobject_cast<QCheckBox*>(widget)) {
            EXPECT_LE(widget->sizeHint().width(), widget->width());
        }
    }
    EXPECT_TRUE(widened);
    // Widened labels still end before the field they name; the closed list clears the box below.
    auto at = [&](int id) { return Control(id)->geometry(); };
    EXPECT_LT(at(IdMapDirectoryLabel).right(), at(IdMapDirectory).left());
    EXPECT_LT(at(IdScriptLabel).right(), at(IdScript).left());
    EXPECT_LT(at(IdScript).bottom(), at(IdDisplayMap).top());
    EXPECT_TRUE(Control<QPushButton>(IdCreateShadows)->isDefault());
    EXPECT_FALSE(Control<QComboBox>(IdScript)->isEditable());
}

TEST_F(QtDialogTest, ClicksKeysAndTheCloseBoxPostCommandsToTheDialog) {
    ShowAndActivate();
    QTest::mouseClick(Control(IdBrowse), Qt::LeftButton);
    QTest::mouseClick(Control(IdDisplayMap), Qt::LeftButton, {}, QPoint(8, 8));  // on its box
    EXPECT_EQ(Posted(), (Seen{"1002:0", "1003:0"}));
    EXPECT_EQ(IsDlgButtonChecked(dialog, IdDisplayMap), UINT(BST_CHECKED));  // toggled itself
    // Enter in the edit presses the default button; the mnemonic presses its button.
    QTest::keyClick(Control(IdMapDirectory), Qt::Key_Return);
    QTest::keyClick(window, Qt::Key_X, Qt::AltModifier);
    QTest::qWait(200);  // a shortcut animates the press first
    EXPECT_EQ(Posted(), (Seen{"1:0", "2:0"}));
    // A choice by the user notifies, one by the program does not.
    HWND list = GetDlgItem(dialog, IdScript);
    for (const char* entry : {"a.ssf", "b.ssf"}) SendMessageA(list, CB_ADDSTRING, 0, LPARAM(entry));
    SendMessageA(list, CB_SETCURSEL, 0, 0);
    EXPECT_EQ(Posted(), Seen{});
    QTest::keyClick(Control(IdScript), Qt::Key_Down);
    EXPECT_EQ(Posted(), Seen{"1005:" + std::to_string(CBN_SELCHANGE)});
    EXPECT_EQ(SendMessageA(list, CB_GETCURSEL, 0, 0), 1);
    // The close box and Escape leave the decision to the program; a wait ends at the first.
    QTimer::singleShot(50, window, [&] { window->windowHandle()->close(); });
    EXPECT_TRUE(WaitMessage());
    QTest::keyClick(window, Qt::Key_Escape);
    EXPECT_EQ(Posted(), (Seen{std::to_string(WM_CLOSE), std::to_string(IDCANCEL) + ":0"}));
    EXPECT_TRUE(IsWindowVisible(dialog));
}

TEST_F(QtDialogTest, DisabledControlsIgnoreTheUserAndEnterStillMeansTheDefault) {
    ShowAndActivate();
    Control(IdCreateShadows)->setFocus();
    const int locked[] = {IdMapDirectory, IdBrowse,        IdScript,
                          IdDisplayMap,   IdCreateShadows, IdExit};
    for (int id : locked) EnableWindow(GetDlgItem(dialog, id), 0);  // as a bake does
    QTest::mouseClick(Control(IdCreateShadows), Qt::LeftButton);
    QTest::mouseClick(Control(IdDisplayMap), Qt::LeftButton, {}, QPoint(8, 8));
    QTest::keyClick(window, Qt::Key_Return);
    QTest::keyClick(window, Qt::Key_X, Qt::AltModifier);
    QTest::qWait(200);
    EXPECT_EQ(Posted(), Seen{});
    EXPECT_EQ(IsDlgButtonChecked(dialog, IdDisplayMap), UINT(BST_UNCHECKED));
    // The focus was pushed off the locked buttons; Enter still means the default one.
    for (int id : locked) EnableWindow(GetDlgItem(dialog, id), 1);
    SetFocus(dialog);
    QTest::keyClick(Control(IdMapDirectory), Qt::Key_Return);
    EXPECT_EQ(Posted(), Seen{"1:0"});
}

// Where the widgets' own habits differ from the window calls' promises.
TEST_F(QtDialogTest, WindowCallsReachTheWidgets) {
    char text[260];
    const char* path =
        "/maps/\xC3\xBC"
        "ber one";
    EXPECT_TRUE(SetDlgItemTextA(dialog, IdMapDirectory, path));
    EXPECT_EQ(Control<QLineEdit>(IdMapDirectory)->text(), QString::fromUtf8(path));
    EXPECT_EQ(GetDlgItemTextA(dialog, IdMapDirectory, text, sizeof text), 15u);
    EXPECT_STREQ(text, path);
    // Hidden while the count is below 0.
    EXPECT_EQ(ShowCursor(0), -1);
    ASSERT_NE(QGuiApplication::overrideCursor(), nullptr);
    EXPECT_EQ(QGuiApplication::overrideCursor()->shape(), Qt::BlankCursor);
    ShowCursor(1);
    EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
    // The bar clamps a position out of its range instead of ignoring it.
    HWND bar = GetDlgItem(dialog, IdProgress);
    std::vector<LRESULT> positions;
    for (int pos : {40, 150, -5})
        positions.push_back(SendMessageA(bar, PBM_SETPOS, WPARAM(pos), 0));
    positions.push_back(Control<QProgressBar>(IdProgress)->value());
    SendMessageA(bar, PBM_SETRANGE, 0, LPARAM(MAKEWPARAM(50, 60)));
    positions.push_back(SendMessageA(bar, PBM_GETPOS, 0, 0));
    EXPECT_EQ(positions, (std::vector<LRESULT>{0, 40, 100, 0, 50}));
    // A dialog takes its controls with it, and their handles go stale.
    HWND edit = GetDlgItem(dialog, IdMapDirectory);
    QPointer<QWidget> editWidget = Control(IdMapDirectory);
    EXPECT_TRUE(DestroyWindow(dialog));
    EXPECT_TRUE(editWidget.isNull());
    EXPECT_EQ(ui.Widget(edit), nullptr);
    EXPECT_FALSE(SetWindowTextA(edit, "gone"));
}

// A long path keeps its start and its end on the screen, and the program reads it whole.
TEST_F(QtDialogTest, LongTextsLoseTheirMiddleOnlyOnTheScreen) {
    ShowAndActivate();
    const std::string path = "/maps/" + std::string(90, 'x') + "/harbour/texture.dat",
                      status = "Done: " + path + " in 1.4 s";
    for (const auto& [id, text] : {std::pair{IdMapDirectory, path}, {IdProgressLabel, status}}) {
        SCOPED_TRACE(id);
        QWidget* widget = Control(id);
        SetDlgItemTextA(dialog, id, text.c_str());
        const std::string shown = ShownText(*widget).toStdString();
        EXPECT_EQ(shown.substr(0, 12), text.substr(0, 12));
        EXPECT_EQ(shown.substr(shown.size() - 12), text.substr(text.size() - 12));
        EXPECT_LT(widget->fontMetrics().horizontalAdvance(ShownText(*widget)), widget->width());
        EXPECT_TRUE(window->rect().contains(widget->geometry()));
        char whole[300];
        GetDlgItemTextA(dialog, id, whole, sizeof whole);
        EXPECT_EQ(whole, text);
    }
    EXPECT_EQ(Control(IdProgressLabel)->toolTip().toStdString(), status);
    SetDlgItemTextA(dialog, IdProgressLabel, "Done");
    EXPECT_EQ(Control(IdProgressLabel)->toolTip(), "");
    Control(IdMapDirectory)->setFocus();  // whole while the user edits it
    EXPECT_EQ(ShownText(*Control(IdMapDirectory)).toStdString(), path);
}

TEST_F(QtDialogTest, TheErrorBoxIsModalOverItsOwner) {
    ShowAndActivate();
    QString seen;
    QTimer::singleShot(50, [&] {  // the box runs its own loop; the user answers inside it
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr);
        seen = box->windowTitle() + "|" + box->text();
        EXPECT_EQ(box->icon(), QMessageBox::Critical);
        EXPECT_EQ(box->parentWidget(), window);
        QTest::keyClick(box, Qt::Key_Return);
    });
    EXPECT_EQ(MessageBoxA(dialog, "No map there.", "ERROR", MB_OK | MB_ICONERROR), int(IDOK));
    EXPECT_EQ(seen, "ERROR|No map there.");
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
}

}  // namespace
