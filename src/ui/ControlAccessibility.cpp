#include "ui/ControlAccessibility.h"

#include "ui/ItemAccessible.h"

#include <QQuickItem>

#include <algorithm>

namespace quellora {

namespace {

constexpr QChar bullet(0x2022);

/// Accessibility interface of a QML text input.
class TextAccessible : public ItemAccessible,
                       public QAccessibleTextInterface,
                       public QAccessibleEditableTextInterface
{
public:
    using ItemAccessible::ItemAccessible;

    QAccessible::Role role() const override { return QAccessible::EditableText; }
    QAccessible::State state() const override
    {
        QAccessible::State state = ItemAccessible::state();
        state.selectableText = true;
        state.multiLine = item()->inherits("QQuickTextEdit");
        state.readOnly = isReadOnly();
        state.editable = !isReadOnly();
        state.passwordEdit = isSecret();
        return state;
    }
    QString text(QAccessible::Text what) const override
    {
        return what == QAccessible::Value ? visibleText() : ItemAccessible::text(what);
    }
    void setText(QAccessible::Text what, const QString &text) override
    {
        if (what == QAccessible::Value)
            replaceText(0, characterCount(), text);
    }
    void *interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::TextInterface)
            return static_cast<QAccessibleTextInterface *>(this);
        if (type == QAccessible::EditableTextInterface)
            return static_cast<QAccessibleEditableTextInterface *>(this);
        return ItemAccessible::interface_cast(type);
    }
    int childCount() const override { return 0; }
    QAccessibleInterface *child(int) const override { return nullptr; }
    /// The visible part: a scrolling field is as high as its whole text.
    QRect rect() const override
    {
        QRectF area = item()->mapRectToScene(QRectF(0, 0, item()->width(), item()->height()));
        for (const QQuickItem *ancestor = item()->parentItem(); ancestor;
             ancestor = ancestor->parentItem()) {
            if (ancestor->clip())
                area &= ancestor->mapRectToScene(ancestor->clipRect());
        }
        const QPointF corner = item()->mapToGlobal(item()->mapFromScene(area.topLeft()));
        return QRectF(corner, area.size()).toAlignedRect();
    }

    // QAccessibleTextInterface

    void selection(int index, int *start, int *end) const override
    {
        const bool hasSelection = index == 0 && selectionCount() == 1;
        *start = hasSelection ? property("selectionStart").toInt() : 0;
        *end = hasSelection ? property("selectionEnd").toInt() : 0;
    }
    int selectionCount() const override
    {
        return property("selectionStart") != property("selectionEnd") ? 1 : 0;
    }
    void addSelection(int start, int end) override { call("select", start, end); }
    void removeSelection(int) override { QMetaObject::invokeMethod(object(), "deselect"); }
    void setSelection(int, int start, int end) override { call("select", start, end); }
    int cursorPosition() const override { return property("cursorPosition").toInt(); }
    void setCursorPosition(int position) override
    {
        object()->setProperty("cursorPosition", position);
    }
    QString text(int start, int end) const override
    {
        return visibleText().mid(start, end - start);
    }
    int characterCount() const override { return int(visibleText().size()); }
    QRect characterRect(int offset) const override
    {
        QRectF area;
        QMetaObject::invokeMethod(object(), "positionToRectangle", Q_RETURN_ARG(QRectF, area),
                                  Q_ARG(int, offset));
        return QRectF(item()->mapToGlobal(area.topLeft()), area.size()).toAlignedRect();
    }
    int offsetAtPoint(const QPoint &point) const override
    {
        const int count = characterCount();
        for (int offset = 0; offset < count; ++offset) {
            const QRect next = characterRect(offset + 1);
            if (next.bottom() >= point.y() && next.left() > point.x())
                return offset;
        }
        return count;
    }
    void scrollToSubstring(int start, int end) override { call("select", start, end); }
    QString attributes(int, int *start, int *end) const override
    {
        *start = 0;
        *end = characterCount();
        return {};
    }

    // QAccessibleEditableTextInterface

    void deleteText(int start, int end) override
    {
        if (!isReadOnly())
            call("remove", start, end);
    }
    void insertText(int offset, const QString &text) override
    {
        if (!isReadOnly())
            QMetaObject::invokeMethod(object(), "insert", Q_ARG(int, offset), Q_ARG(QString, text));
    }
    void replaceText(int start, int end, const QString &text) override
    {
        deleteText(start, end);
        insertText(start, text);
    }

private:
    bool isReadOnly() const { return property("readOnly").toBool() || !item()->isEnabled(); }
    /// All echo modes except TextInput.Normal hide the text.
    bool isSecret() const { return property("echoMode").toInt() != 0; }
    /// The text as displayed on the screen.
    QString visibleText() const
    {
        if (isSecret())
            return QString(property("length").toInt(), bullet);
        return property("text").toString();
    }
    void call(const char *method, int first, int second)
    {
        QMetaObject::invokeMethod(object(), method, Q_ARG(int, first), Q_ARG(int, second));
    }
};

/// Accessibility interface of a button or switch. Actions call the handlers of its attached
/// `Accessible` object.
class ButtonAccessible : public ItemAccessible
{
public:
    using ItemAccessible::ItemAccessible;

    QAccessible::Role role() const override
    {
        // Qt Quick buttons reset the attached role when accessibility is activated, so our controls
        // have a property of their own.
        const int declared = property("role").toInt();
        const int role = declared == QAccessible::NoRole ? attached("role").toInt() : declared;
        return role == QAccessible::NoRole ? QAccessible::Button
                                           : static_cast<QAccessible::Role>(role);
    }
    QAccessible::State state() const override
    {
        QAccessible::State state = ItemAccessible::state();
        state.pressed = property("down").toBool();
        // Qt Quick buttons reset the attached states of a switch as well.
        state.checkable = attached("checkable").toBool() || property("checkable").toBool() ||
                          property("isSwitch").toBool();
        state.checked =
            state.checkable && (property("isOn").toBool() || property("checked").toBool());
        state.selectable = attached("selectable").toBool();
        state.selected = attached("selected").toBool();
        state.expandable = attached("expandable").toBool() || property("expandable").toBool();
        state.expanded = property("expanded").toBool();
        state.collapsed = state.expandable && !state.expanded;
        return state;
    }
    QString text(QAccessible::Text what) const override
    {
        if (what == QAccessible::Value)
            return property("value").toString();
        const QString text = ItemAccessible::text(what);
        return what == QAccessible::Name && text.isEmpty() ? property("text").toString() : text;
    }
    QStringList actionNames() const override
    {
        if (!item()->isEnabled())
            return {};
        QStringList names{pressAction(), setFocusAction()};
        if (state().checkable)
            names.prepend(toggleAction());
        return names;
    }
    void doAction(const QString &action) override
    {
        if (!item()->isEnabled())
            return;
        if (action == pressAction() || action == toggleAction())
            press(action == toggleAction());
        else
            ItemAccessible::doAction(action);
    }

private:
    void press(bool toggle)
    {
        for (QObject *child : object()->children()) {
            if (child->inherits("QQuickAccessibleAttached")) {
                QMetaObject::invokeMethod(child, toggle ? "toggleAction" : "pressAction");
                return;
            }
        }
    }
};

/// Accessibility interface of a list. Sorts its children by position, because views create section
/// headings after the rows and scrolled-in rows last.
class ListAccessible : public ItemAccessible
{
public:
    using ItemAccessible::ItemAccessible;

    QAccessible::Role role() const override { return QAccessible::List; }
    QAccessible::State state() const override
    {
        QAccessible::State state = ItemAccessible::state();
        state.focusable = item()->activeFocusOnTab() || item()->hasActiveFocus();
        return state;
    }

protected:
    QList<QAccessibleInterface *> children() const override
    {
        QList<QAccessibleInterface *> found = ItemAccessible::children();
        const auto top = [](const QAccessibleInterface *child) {
            return static_cast<QQuickItem *>(child->object())->mapToScene({}).y();
        };
        std::stable_sort(found.begin(), found.end(),
                         [&top](const auto *a, const auto *b) { return top(a) < top(b); });
        return found;
    }
};

QAccessibleInterface *makeControlAccessible(const QString &className, QObject *object)
{
    auto *item = qobject_cast<QQuickItem *>(object);
    if (!item)
        return nullptr;
    if (className == QLatin1StringView("QQuickTextInput") ||
        className == QLatin1StringView("QQuickTextEdit"))
        return new TextAccessible(item);
    if (className == QLatin1StringView("QQuickAbstractButton"))
        return new ButtonAccessible(item);
    if (className == QLatin1StringView("QQuickListView"))
        return new ListAccessible(item);
    return nullptr;
}

} // namespace

void installControlAccessibility()
{
    // The factory installed last takes precedence over that of Qt Quick.
    QAccessible::installFactory(makeControlAccessible);
}

} // namespace quellora
