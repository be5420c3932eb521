// The setup dialog on real widgets: what the mouse, the keyboard, the window manager and Qt's own
// boxes add to the dialog's rules, which the screenless tests cover on their own.
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QWindow>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/ui/qt/qt_ui.h"
#include "tests/support/app_fixture.h"

namespace {

struct SeenBox {
    QString text, title;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QWidget* parent = nullptr;
};

class SetupDialogQtTest : public AppFixture {
protected:
    void Open() {
        ASSERT_TRUE(ApplicationStart(nullptr, SW_SHOWNORMAL));
        window = ui.Widget(Dialog->Window);
        ASSERT_NE(window, nullptr);
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window));
    }
    void TearDown() override {
        if (Dialog) ApplicationEnd(nullptr);
        AppFixture::TearDown();
    }

    template <typename T = QWidget>
    T* Control(int id) const {
        return window->findChild<T*>(QStringLiteral("control%1").arg(id));
    }

    // Types the directory into the field as a user does, presses the button with the mouse and
    // lets the program run what that set off; any box that comes up is read and answered.
    std::vector<SeenBox> TypeAndCreate(const std::string& typed) {
        auto* edit = Control<QLineEdit>(IdMapDirectory);
        edit->clear();
        QTest::keyClicks(edit, QString::fromStdString(typed));
        std::vector<SeenBox> boxes;
        auto* watch = new QTimer(window);
        QObject::connect(watch, &QTimer::timeout, [&boxes] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box) return;
            boxes.push_back({box->text(), box->windowTitle(), box->icon(), box->parentWidget()});
            QTest::keyClick(box, Qt::Key_Return);
        });
        watch->start(10);
        QTest::mouseClick(Control(IdCreateShadows), Qt::LeftButton);
        DrainWindowMessages();
        delete watch;
        return boxes;
    }

    ::testing::AssertionResult Refused(const std::string& typed) {
        std::vector<SeenBox> boxes = TypeAndCreate(typed);
        if (boxes.size() != 1) return ::testing::AssertionFailure() << boxes.size() << " boxes";
        const SeenBox& box = boxes[0];
        if (box.text != ErrorText || box.title != "ERROR" || box.icon != QMessageBox::Critical ||
            box.parent != window)
            return ::testing::AssertionFailure()
                   << "box " << box.title.toStdString() << ": " << box.text.toStdString();
        return ::testing::AssertionSuccess();
    }

    QtUi ui;
    QWidget* window = nullptr;
};

TEST_F(SetupDialogQtTest, EveryTextFitsItsControlInTheApplicationFont) {
    Open();
    EXPECT_EQ(window->windowTitle(), "Parameters for Shadow Generator");
    const auto controls = window->findChildren<QWidget*>();
    ASSERT_EQ(controls.size(), 10);
    for (QWidget* control : controls) {
        SCOPED_TRACE(control->objectName().toStdString());
        EXPECT_TRUE(window->rect().contains(control->geometry()));
        if (auto* button = qobject_cast<QPushButton*>(control)) {
            QString text = button->text().remove('&');
            EXPECT_LT(button->fontMetrics().horizontalAdvance(text), button->width());
        } else if (qobject_cast<QLabel*>(control) || qobject_cast<QCheckBox*>(control)) {
            EXPECT_LE(control->sizeHint().width(), control->width());
        }
    }
    // Widened labels still end before the field they name.
    EXPECT_LT(Control(IdMapDirectoryLabel)->geometry().right(),
              Control(IdMapDirectory)->geometry().left());
    EXPECT_LT(Control(IdScriptLabel)->geometry().right(), Control(IdScript)->geometry().left());
    // The list of scripts opens below, over the check box; closed it stays clear of it.
    EXPECT_LT(Control(IdScript)->geometry().bottom(), Control(IdDisplayMap)->geometry().top());
}

TEST_F(SetupDialogQtTest, BadInputGetsTheErrorBoxOverTheDialog) {
    std::string longest(250, 'd'), tooLong(251, 'e');
    WriteMap(longest);
    WriteMap(tooLong);
    std::filesystem::create_directories(dir.File("maps/empty"));
    std::filesystem::create_directories(dir.File("maps/folder/test.vbf"));
    Open();
    EXPECT_TRUE(Refused(tooLong));
    EXPECT_TRUE(Refused("maps/empty"));                  // no test.vbf
    EXPECT_TRUE(Refused("maps/folder"));                 // test.vbf is a directory
    std::filesystem::remove(dir.File("lit/quick.ssf"));  // after the list was filled
    EXPECT_TRUE(Refused("maps/good"));
    EXPECT_FALSE(Exists("LastShadow.txt"));
    EXPECT_TRUE(Control(IdCreateShadows)->isEnabled());

    WriteScript("quick.ssf", "LIGHT 1 2 1\nSCRIPT quick.lit\n");
    EXPECT_TRUE(TypeAndCreate(longest).empty());
    EXPECT_EQ(ReadWholeFile(dir.File("LastShadow.txt")), longest);
    EXPECT_TRUE(Exists(longest + "/texture.dat"));
}

// What the widgets show while the bake runs, read from inside it.
struct WidgetView {
    std::vector<int> bar;
    std::vector<std::vector<bool>> enabled;
};
std::function<void()> Look;
ProgressHooks AppHooks;

void WatchProgress(int percent) {
    AppHooks.setProgress(percent);
    Look();
}

TEST_F(SetupDialogQtTest, ABakeStartedWithEnterLocksTheWidgetsAndHandsThemBack) {
    Open();
    const int locked[] = {IdMapDirectory, IdBrowse,        IdScript,
                          IdDisplayMap,   IdCreateShadows, IdExit};
    auto enabledNow = [&] {
        std::vector<bool> state;
        for (int id : locked) state.push_back(Control(id)->isEnabled());
        return state;
    };
    WidgetView view;
    Look = [&] {
        view.bar.push_back(Control<QProgressBar>(IdProgress)->value());
        view.enabled.push_back(enabledNow());
    };
    AppHooks = SetProgressHooks(nullptr);
    ProgressHooks watch = AppHooks;
    watch.setProgress = WatchProgress;
    SetProgressHooks(&watch);

    auto* edit = Control<QLineEdit>(IdMapDirectory);
    QTest::keyClicks(edit, "maps/good");
    QTest::keyClick(edit, Qt::Key_Return);  // the default button
    DrainWindowMessages();
    SetProgressHooks(&AppHooks);

    EXPECT_EQ(view.bar, (std::vector<int>{0, 25, 50, 75}));
    for (const std::vector<bool>& state : view.enabled)
        EXPECT_EQ(state, std::vector<bool>(6, false));
    EXPECT_TRUE(Exists("maps/good/texture.dat"));

    EXPECT_EQ(enabledNow(), (std::vector<bool>{true, true, true, false, true, true}));
    EXPECT_EQ(Control<QProgressBar>(IdProgress)->value(), 0);
    // Enter still means "&Create Shadows", though the focus was pushed off the locked buttons.
    EXPECT_TRUE(Control<QPushButton>(IdCreateShadows)->isDefault());
    std::filesystem::remove(dir.File("maps/good/texture.dat"));
    QTest::keyClick(edit, Qt::Key_Return);
    DrainWindowMessages();
    EXPECT_TRUE(Exists("maps/good/texture.dat"));
}

TEST_F(SetupDialogQtTest, CloseBoxEscapeAndExitEndTheMainLoop) {
    const std::pair<const char*, std::function<void(QWidget*)>> ways[] = {
        {"close box", [](QWidget* dialog) { dialog->windowHandle()->close(); }},
        {"Escape", [](QWidget* dialog) { QTest::keyClick(dialog, Qt::Key_Escape); }},
        {"E&xit",
         [](QWidget* dialog) {
             QTest::mouseClick(dialog->findChild<QWidget*>("control2"), Qt::LeftButton);
         }},
    };
    for (const auto& [name, act] : ways) {
        SCOPED_TRACE(name);
        QuitRequested = 0;
        Open();
        QWidget* dialog = window;
        bool gaveUp = false;
        // A copy by name: clang before 16 can't capture a structured binding.
        QTimer::singleShot(20, window, [dialog, act = act] { act(dialog); });
        QTimer::singleShot(10000, window, [&gaveUp] {  // so a failure can't hang the run
            gaveUp = true;
            PostQuitMessage(0);
        });
        MainLoop();
        EXPECT_FALSE(gaveUp);
        EXPECT_TRUE(QuitRequested);
        EXPECT_TRUE(window->isVisible());  // the program takes it down, at its end
        ApplicationEnd(nullptr);
    }
}

}  // namespace
