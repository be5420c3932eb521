#include "platform/ui/qt/qt_ui.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QCursor>
#include <QDialog>
#include <QFileDialog>
#include <QFontMetrics>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMouseEvent>
#include <QMoveEvent>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QResizeEvent>
#include <QStyleOptionFrame>
#include <algorithm>
#include <cassert>
#include <vector>

#include "platform/ui/shell_api.h"
#include "platform/ui/window_api.h"

namespace {

HWND Handle(WindowId id) {
    return reinterpret_cast<HWND>(uintptr_t(id));
}

QString FromText(const char* text) {
    return QString::fromUtf8(text ? text : "");
}
std::string ToText(const QString& text) {
    return text.toUtf8().toStdString();
}

void PostCommand(WindowId dialog, int controlId, int code, WindowId control) {
    PostMessageA(Handle(dialog), WM_COMMAND, MAKEWPARAM(unsigned(controlId), unsigned(code)),
                 LPARAM(control));
}

// The user's wish to close goes to the program, which decides; the window never closes itself.
template <typename Base>
class ClosedByProgram : public Base {
public:
    template <typename... Args>
    explicit ClosedByProgram(WindowId window, Args... args) : Base(args...), id(window) {}

protected:
    void closeEvent(QCloseEvent* event) override {
        event->ignore();
        PostMessageA(Handle(id), WM_CLOSE, 0, 0);
    }

    WindowId id;
};

class DialogWindow final : public ClosedByProgram<QDialog> {
public:
    explicit DialogWindow(WindowId window) : ClosedByProgram(window) {
        setWindowFlag(Qt::WindowContextHelpButtonHint, false);
        // Hints explain why a control is disabled, and the viewer has the focus while they are.
        setAttribute(Qt::WA_AlwaysShowToolTips);
    }

    void reject() override {  // Escape, which the desktop's dialogs turn into IDCANCEL
        PostCommand(id, IDCANCEL, BN_CLICKED, 0);
    }
};

// The desktop's virtual key code of a Qt key, or 0 for a key the program has no name for.
int VirtualKeyOf(int key) {
    if (key >= Qt::Key_A && key <= Qt::Key_Z) return 'A' + (key - Qt::Key_A);
    if (key >= Qt::Key_0 && key <= Qt::Key_9) return '0' + (key - Qt::Key_0);
    switch (key) {
        case Qt::Key_Backspace:
            return 8;
        case Qt::Key_Tab:
            return 9;
        case Qt::Key_Return:
        case Qt::Key_Enter:
            return 13;
        case Qt::Key_Shift:
            return VK_SHIFT;
        case Qt::Key_Control:
            return 17;
        case Qt::Key_Alt:
            return 18;
        case Qt::Key_Escape:
            return VK_ESCAPE;
        case Qt::Key_Space:
            return VK_SPACE;
        case Qt::Key_Left:
            return 37;
        case Qt::Key_Up:
            return 38;
        case Qt::Key_Right:
            return 39;
        case Qt::Key_Down:
            return 40;
        default:
            return 0;
    }
}

LPARAM PointParameter(int x, int y) {
    return LPARAM((uint32_t(y) & 0xFFFF) << 16 | (uint32_t(x) & 0xFFFF));
}

// The viewer's window: its keys, pointer, moves and sizes reach its procedure as the messages
// the desktop sends, with positions in its client area.
class TopWindow final : public ClosedByProgram<QWidget> {
public:
    explicit TopWindow(WindowId window)
        : ClosedByProgram(window, static_cast<QWidget*>(nullptr), Qt::Window) {
        setMouseTracking(true);  // moves without a button held count too
        setFocusPolicy(Qt::StrongFocus);
    }

    // The display layer's last present, painted over the whole client area until the next.
    void ShowFrame(QImage image) {
        frame = std::move(image);
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        if (frame.isNull()) return;
        QPainter painter(this);
        painter.drawImage(rect(), frame);
    }

    void Post(UINT message, WPARAM wParam, LPARAM lParam) {
        PostMessageA(Handle(id), message, wParam, lParam);
    }
    void PostKey(UINT message, QKeyEvent* event) {
        int key = VirtualKeyOf(event->key());
        if (key) Post(message, WPARAM(key), 0);
    }
    void PostButton(QMouseEvent* event, bool down) {
        UINT message = 0;
        if (event->button() == Qt::LeftButton) message = down ? WM_LBUTTONDOWN : WM_LBUTTONUP;
        if (event->button() == Qt::RightButton) message = down ? WM_RBUTTONDOWN : WM_RBUTTONUP;
        QPoint at = event->position().toPoint();
        if (message) Post(message, 0, PointParameter(at.x(), at.y()));
    }

    void keyPressEvent(QKeyEvent* event) override { PostKey(WM_KEYDOWN, event); }
    void keyReleaseEvent(QKeyEvent* event) override {
        if (!event->isAutoRepeat()) PostKey(WM_KEYUP, event);
    }
    void mouseMoveEvent(QMouseEvent* event) override {
        QPoint at = event->position().toPoint();
        Post(WM_MOUSEMOVE, 0, PointParameter(at.x(), at.y()));
    }
    void mousePressEvent(QMouseEvent* event) override { PostButton(event, true); }
    void mouseReleaseEvent(QMouseEvent* event) override { PostButton(event, false); }
    void moveEvent(QMoveEvent* event) override {
        Post(WM_MOVE, 0, PointParameter(event->pos().x(), event->pos().y()));
    }
    void resizeEvent(QResizeEvent* event) override {
        Post(WM_SIZE, 0, PointParameter(event->size().width(), event->size().height()));
    }

private:
    QImage frame;
};

// The end alone, where the cursor leaves a long path, rarely tells one map from another: while
// the user is elsewhere the field shows the start and the end. Only the drawing changes, so the
// program reads and the user edits the whole text.
class EditField final : public QLineEdit {
public:
    using QLineEdit::QLineEdit;

    QString Shown() const {
        if (hasFocus()) return text();
        return fontMetrics().elidedText(text(), Qt::ElideMiddle, TextArea().width());
    }

protected:
    void paintEvent(QPaintEvent* event) override {
        QString shown = Shown();
        if (shown == text()) return QLineEdit::paintEvent(event);
        QPainter painter(this);
        QStyleOptionFrame option;
        initStyleOption(&option);
        style()->drawPrimitive(QStyle::PE_PanelLineEdit, &option, &painter, this);
        painter.setPen(palette().color(QPalette::Text));  // the disabled colour while locked
        painter.drawText(TextArea(), Qt::AlignLeft | Qt::AlignVCenter, shown);
    }

private:
    QRect TextArea() const {
        QStyleOptionFrame option;
        initStyleOption(&option);
        const int margin = 2;  // QLineEdit's own, beside its text
        return style()
            ->subElementRect(QStyle::SE_LineEditContents, &option, this)
            .marginsRemoved(textMargins())
            .adjusted(margin, 0, -margin, 0);
    }
};

// A label takes the room its text needs, from its template width up to the room it has; a text
// longer still loses its middle, and the whole text shows as its hint.
class Label final : public QLabel {
public:
    explicit Label(QWidget* parent) : QLabel(parent) { setTextFormat(Qt::PlainText); }

    void SetRoom(int leastWidth, int mostWidth) {
        least = leastWidth;
        most = mostWidth;
    }
    void Show(const QString& text) {
        whole = text;
        setText(text);
        const int need = sizeHint().width();
        resize(std::min(std::max(least, need), most), height());
        if (need <= width()) return SetHint(QString());
        const int margins = need - fontMetrics().horizontalAdvance(text);
        setText(fontMetrics().elidedText(text, Qt::ElideMiddle, width() - margins));
        SetHint(text);
    }
    const QString& Whole() const { return whole; }

private:
    // The whole text as the hint of a cut one; a hint the program gave stays.
    void SetHint(const QString& hint) {
        if (toolTip() == hinted) setToolTip(hint);
        hinted = hint;
    }

    int least = 0, most = QWIDGETSIZE_MAX;
    QString whole, hinted;
};

QWidget* MakeControl(const ControlTemplate& control, WindowId dialogId, WindowId controlId,
                     QWidget* parent) {
    const int id = control.id;
    const QString text = FromText(control.text);
    auto postClick = [dialogId, id, controlId] {
        PostCommand(dialogId, id, BN_CLICKED, controlId);
    };
    switch (control.kind) {
        case ControlKind::PushButton:
        case ControlKind::DefaultPushButton: {
            auto* button = new QPushButton(text, parent);  // "&" makes the Alt shortcut
            if (control.kind == ControlKind::DefaultPushButton) {
                button->setAutoDefault(true);
                button->setDefault(true);
            }
            QObject::connect(button, &QAbstractButton::clicked, button, postClick);
            return button;
        }
        case ControlKind::AutoCheckBox: {
            auto* box = new QCheckBox(text, parent);
            QObject::connect(box, &QAbstractButton::clicked, box, postClick);
            return box;
        }
        case ControlKind::Edit:
            return new EditField(text, parent);
        case ControlKind::Static:
            return new Label(parent);  // its text comes once it has its room
        case ControlKind::DropDownList: {
            auto* combo = new QComboBox(parent);
            combo->setEditable(false);
            // Only a choice by the user notifies; one made by the program does not.
            QObject::connect(combo, &QComboBox::activated, combo, [dialogId, id, controlId] {
                PostCommand(dialogId, id, CBN_SELCHANGE, controlId);
            });
            return combo;
        }
        case ControlKind::ProgressBar: {
            auto* bar = new QProgressBar(parent);
            bar->setRange(0, 100);
            bar->setValue(0);
            bar->setTextVisible(false);
            return bar;
        }
    }
    return new QWidget(parent);
}

}  // namespace

QString ShownText(const QWidget& control) {
    if (auto* edit = dynamic_cast<const EditField*>(&control)) return edit->Shown();
    if (auto* label = dynamic_cast<const Label*>(&control)) return label->text();
    return {};
}

DialogBaseUnits MeasureDialogBaseUnits(const QFont& font) {
    QFontMetrics metrics(font);
    int advance = metrics.horizontalAdvance(
        QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"));
    return {(advance + 26) / 52, metrics.height()};
}

QtUi::QtUi() : previous(SetUiBackend(this)) {
    assert(QApplication::instance());  // the program makes its QApplication first
}

QtUi::~QtUi() {
    ResetWindowSystem();
    for (auto& [id, native] : windows)
        if (!native.isControl) delete native.widget.data();
    windows.clear();
    SetCursorVisible(true);
    SetUiBackend(previous);
}

const QtUi::Native* QtUi::Find(WindowId id) const {
    auto found = windows.find(id);
    return found == windows.end() ? nullptr : &found->second;
}

QWidget* QtUi::WidgetOf(WindowId id) const {
    const Native* native = Find(id);
    return native ? native->widget.data() : nullptr;
}

template <typename T>
T* QtUi::As(WindowId id) const {
    return qobject_cast<T*>(WidgetOf(id));
}

QWidget* QtUi::Widget(HWND window) const {
    return WidgetOf(WindowId(reinterpret_cast<uintptr_t>(window)));
}

void QtUi::CreateDialogWindow(WindowId dialogId, const DialogTemplate& dialog,
                              const WindowId* controlIds) {
    auto* window = new DialogWindow(dialogId);
    window->setWindowTitle(FromText(dialog.caption));
    DialogBaseUnits units = MeasureDialogBaseUnits(window->font());
    PixelRect size = DialogUnitsToPixels(0, 0, dialog.width, dialog.height, units);
    window->setFixedSize(size.width, size.height);
    windows[dialogId] = {window, ControlKind::Static, false, 0};

    struct Placed {
        Label* label;
        PixelRect rect;
        QString text;
    };
    std::vector<Placed> labels;
    std::vector<QWidget*> others;
    for (int i = 0; i < dialog.controlCount; ++i) {
        const ControlTemplate& control = dialog.controls[i];
        QWidget* widget = MakeControl(control, dialogId, controlIds[i], window);
        widget->setObjectName(QStringLiteral("control%1").arg(control.id));
        PixelRect rect =
            DialogUnitsToPixels(control.x, control.y, control.width, control.height, units);
        windows[controlIds[i]] = {widget, control.kind, true, dialogId};
        if (auto* label = dynamic_cast<Label*>(widget)) {
            labels.push_back({label, rect, FromText(control.text)});
            continue;
        }
        // A drop-down list's template height includes its open list.
        if (control.kind == ControlKind::DropDownList) rect.height = widget->sizeHint().height();
        // The units fit the average letter, and a text's letters may be wider than average in
        // this font: such a text takes the room it needs rather than lose its end.
        if (control.kind == ControlKind::AutoCheckBox)
            rect.width =
                std::min(std::max(rect.width, widget->sizeHint().width()), size.width - rect.x);
        widget->setGeometry(rect.x, rect.y, rect.width, rect.height);
        others.push_back(widget);
    }
    // A label names the nearest control to its right on its row, and is drawn on that control's
    // row: the control centres its text in a height Qt makes its own, and the label's text must
    // stand level with it. Its room ends short of that control, or at the dialog's margin.
    for (const Placed& placed : labels) {
        const PixelRect& rect = placed.rect;
        const QWidget* field = nullptr;
        for (const QWidget* other : others)
            if (other->x() > rect.x && other->y() < rect.y + rect.height &&
                other->y() + other->height() > rect.y && (!field || other->x() < field->x()))
                field = other;
        int most = field ? field->x() - units.x / 2 - rect.x : size.width - 2 * rect.x;
        placed.label->SetRoom(std::min(rect.width, most), most);
        placed.label->setGeometry(rect.x, field ? field->y() : rect.y, rect.width,
                                  field ? field->height() : rect.height);
        placed.label->Show(placed.text);
    }
}

void QtUi::CreateTopWindow(WindowId id, const char* title, int x, int y, int width, int height) {
    auto* window = new TopWindow(id);
    window->setWindowTitle(FromText(title));
    window->resize(std::max(width, 1), std::max(height, 1));
    window->move(x, y);
    windows[id] = {window, ControlKind::Static, false, 0};
}

void QtUi::PlaceTopWindow(WindowId id, int x, int y, int width, int height) {
    auto found = windows.find(id);
    if (found == windows.end() || found->second.isControl || !found->second.widget) return;
    found->second.widget->resize(std::max(width, 1), std::max(height, 1));
    found->second.widget->move(x, y);
}

bool QtUi::ShowFrame(HWND window, QImage frame) {
    auto found = windows.find(WindowId(reinterpret_cast<uintptr_t>(window)));
    if (found == windows.end() || found->second.isControl) return false;
    auto* top = dynamic_cast<TopWindow*>(found->second.widget.data());
    if (!top) return false;
    top->ShowFrame(std::move(frame));
    return true;
}

void QtUi::DestroyNativeWindow(WindowId id) {
    auto found = windows.find(id);
    if (found == windows.end()) return;
    delete found->second.widget.data();  // Qt deletes a dialog's controls with it
    for (auto it = windows.begin(); it != windows.end();)
        it = it->second.dialog == id ? windows.erase(it) : std::next(it);
    windows.erase(id);
}

void QtUi::SetText(WindowId id, const char* text) {
    QWidget* widget = WidgetOf(id);
    QString value = FromText(text);
    if (!widget) return;
    if (widget->isWindow()) {
        widget->setWindowTitle(value);
    } else if (auto* button = qobject_cast<QAbstractButton*>(widget)) {
        button->setText(value);
    } else if (auto* edit = qobject_cast<QLineEdit*>(widget)) {
        edit->setText(value);
    } else if (auto* label = dynamic_cast<Label*>(widget)) {
        label->Show(value);
    }
    // A drop-down list and a progress bar have no text of their own.
}

std::string QtUi::Text(WindowId id) {
    QWidget* widget = WidgetOf(id);
    if (!widget) return {};
    if (widget->isWindow()) return ToText(widget->windowTitle());
    if (auto* button = qobject_cast<QAbstractButton*>(widget)) return ToText(button->text());
    if (auto* edit = qobject_cast<QLineEdit*>(widget)) return ToText(edit->text());
    if (auto* label = dynamic_cast<Label*>(widget)) return ToText(label->Whole());
    if (auto* combo = qobject_cast<QComboBox*>(widget))
        return combo->currentIndex() >= 0 ? ToText(combo->currentText()) : std::string();
    return {};
}

void QtUi::SetEnabled(WindowId id, bool enabled) {
    if (QWidget* widget = WidgetOf(id)) widget->setEnabled(enabled);
}

// A window's own flag, as the platform answers, not whether its dialog lets it take input.
bool QtUi::IsEnabled(WindowId id) {
    QWidget* widget = WidgetOf(id);
    return widget && !widget->testAttribute(Qt::WA_ForceDisabled);
}

void QtUi::SetVisible(WindowId id, bool visible) {
    QWidget* widget = WidgetOf(id);
    if (!widget) return;
    widget->setVisible(visible);
    if (visible && widget->isWindow()) {
        widget->activateWindow();
    }
}

bool QtUi::IsVisible(WindowId id) {
    QWidget* widget = WidgetOf(id);
    return widget && widget->isVisible();
}

void QtUi::SetChecked(WindowId id, bool checked) {
    if (auto* box = As<QCheckBox>(id)) box->setChecked(checked);
}

bool QtUi::IsChecked(WindowId id) {
    auto* box = As<QCheckBox>(id);
    return box && box->isChecked();
}

void QtUi::SetTooltip(WindowId id, const char* text) {
    if (QWidget* widget = WidgetOf(id)) widget->setToolTip(FromText(text));
}

int QtUi::AddListEntry(WindowId id, const char* text) {
    auto* combo = As<QComboBox>(id);
    if (!combo) return CB_ERR;
    int selection = combo->currentIndex();
    combo->addItem(FromText(text));
    // Qt chooses the first entry of an empty list by itself; here the program chooses.
    if (selection < 0) combo->setCurrentIndex(-1);
    return combo->count() - 1;
}

void QtUi::ClearList(WindowId id) {
    if (auto* combo = As<QComboBox>(id)) combo->clear();
}

int QtUi::ListCount(WindowId id) {
    auto* combo = As<QComboBox>(id);
    return combo ? combo->count() : 0;
}

std::string QtUi::ListEntry(WindowId id, int index) {
    auto* combo = As<QComboBox>(id);
    if (!combo || index < 0 || index >= combo->count()) return {};
    return ToText(combo->itemText(index));
}

bool QtUi::SelectListEntry(WindowId id, int index) {
    auto* combo = As<QComboBox>(id);
    if (!combo) return false;
    bool inRange = index >= 0 && index < combo->count();
    combo->setCurrentIndex(inRange ? index : -1);  // a bad index clears the choice
    return inRange;
}

int QtUi::ListSelection(WindowId id) {
    auto* combo = As<QComboBox>(id);
    return combo ? combo->currentIndex() : -1;
}

void QtUi::SetProgressRange(WindowId id, int low, int high) {
    auto* bar = As<QProgressBar>(id);
    if (!bar) return;
    int position = ProgressPosition(id);
    bar->setRange(low, high);  // may reset the bar below its range
    SetProgressPosition(id, position);
}

// The bar clamps like the platform's instead of ignoring a position out of range.
void QtUi::SetProgressPosition(WindowId id, int position) {
    if (auto* bar = As<QProgressBar>(id))
        bar->setValue(std::clamp(position, bar->minimum(), bar->maximum()));
}

int QtUi::ProgressPosition(WindowId id) {
    auto* bar = As<QProgressBar>(id);
    return bar ? std::max(bar->value(), bar->minimum()) : 0;
}

void QtUi::SetFocus(WindowId id) {
    QWidget* widget = WidgetOf(id);
    if (!widget) return;
    if (widget->isWindow()) {
        widget->activateWindow();
        if (!widget->focusWidget()) widget->setFocus(Qt::OtherFocusReason);
    } else {
        widget->setFocus(Qt::OtherFocusReason);
    }
}

void QtUi::Repaint(WindowId id, bool now) {
    QWidget* widget = WidgetOf(id);
    if (!widget) return;
    if (now)
        widget->repaint();
    else
        widget->update();
}

void QtUi::PumpEvents(bool wait) {
    QEventLoop::ProcessEventsFlags flags = QEventLoop::AllEvents;
    if (wait) flags |= QEventLoop::WaitForMoreEvents;
    QCoreApplication::processEvents(flags);
    // The program's loop is not Qt's, so objects deleted later would otherwise wait forever.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

int QtUi::ShowMessageBox(WindowId owner, const char* text, const char* caption, unsigned type) {
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    switch (type & 0xF0) {
        case 0x10:
            icon = QMessageBox::Critical;
            break;
        case 0x20:
            icon = QMessageBox::Question;
            break;
        case 0x30:
            icon = QMessageBox::Warning;
            break;
        case 0x40:
            icon = QMessageBox::Information;
            break;
        default:
            break;
    }
    QWidget* parent = WidgetOf(owner);
    QMessageBox box(icon, FromText(caption), FromText(text), QMessageBox::Ok,
                    parent ? parent->window() : nullptr);
    box.exec();
    return IDOK;
}

bool QtUi::PickFolder(WindowId owner, const char* title, std::string& folder) {
    QWidget* parent = WidgetOf(owner);
    QString picked = QFileDialog::getExistingDirectory(
        parent ? parent->window() : nullptr, FromText(title), QString(), QFileDialog::ShowDirsOnly);
    if (picked.isEmpty()) return false;
    folder = ToText(picked);
    return true;
}

HRESULT QtUi::StartComponentLibrary() {
    HRESULT result = componentLibraryStarted ? S_FALSE : S_OK;
    componentLibraryStarted = true;
    return result;
}

void QtUi::SetCursorVisible(bool visible) {
    if (visible != cursorHidden) return;
    if (visible)
        QGuiApplication::restoreOverrideCursor();
    else
        QGuiApplication::setOverrideCursor(Qt::BlankCursor);
    cursorHidden = !visible;
}

void QtUi::SetCursorPosition(int x, int y) {
    QCursor::setPos(x, y);
}

POINT QtUi::CursorPosition() {
    QPoint position = QCursor::pos();
    return {position.x(), position.y()};
}
