#include "ui/TextAccessibility.h"

#include <QAccessible>
#include <QAccessibleObject>
#include <QQuickItem>
#include <QQuickWindow>

namespace quellora {

namespace {

constexpr QChar bullet(0x2022);

/// One QML text input as assistive programs see it. Everything is read from the item's own
/// properties at the moment of asking, so nothing can go stale.
class TextAccessible : public QAccessibleObject,
                       public QAccessibleTextInterface,
                       public QAccessibleEditableTextInterface,
                       public QAccessibleActionInterface
{
public:
    explicit TextAccessible(QQuickItem *item) : QAccessibleObject(item) {}

    // The place in the tree.

    QWindow *window() const override { return item()->window(); }
    QAccessibleInterface *parent() const override
    {
        for (QQuickItem *up = item()->parentItem(); up; up = up->parentItem()) {
            if (QAccessibleInterface *found = QAccessible::queryAccessibleInterface(up))
                return found;
        }
        return QAccessible::queryAccessibleInterface(item()->window());
    }
    QAccessibleInterface *child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface *) const override { return -1; }
    QAccessibleInterface *childAt(int, int) const override { return nullptr; }

    QRect rect() const override
    {
        const QPointF corner = item()->mapToGlobal(QPointF(0, 0));
        return QRectF(corner, QSizeF(item()->width(), item()->height())).toAlignedRect();
    }
    QAccessible::Role role() const override { return QAccessible::EditableText; }
    QAccessible::State state() const override
    {
        QAccessible::State state;
        const bool enabled = item()->isEnabled();
        state.disabled = !enabled;
        state.invisible = !item()->isVisible();
        state.focusable = enabled;
        state.focused = item()->hasActiveFocus();
        state.active = item()->hasActiveFocus();
        state.selectableText = true;
        state.multiLine = item()->inherits("QQuickTextEdit");
        state.readOnly = isReadOnly();
        state.editable = !isReadOnly();
        state.passwordEdit = isSecret();
        return state;
    }
    QString text(QAccessible::Text what) const override
    {
        switch (what) {
        case QAccessible::Name: {
            const QString name = attached("name").toString();
            return name.isEmpty() ? property("placeholderText").toString() : name;
        }
        case QAccessible::Description:
            return attached("description").toString();
        case QAccessible::Value:
            return visibleText();
        default:
            return {};
        }
    }
    void setText(QAccessible::Text what, const QString &text) override
    {
        if (what == QAccessible::Value)
            replaceText(0, characterCount(), text);
    }
    void *interface_cast(QAccessible::InterfaceType type) override
    {
        switch (type) {
        case QAccessible::TextInterface:
            return static_cast<QAccessibleTextInterface *>(this);
        case QAccessible::EditableTextInterface:
            return static_cast<QAccessibleEditableTextInterface *>(this);
        case QAccessible::ActionInterface:
            return static_cast<QAccessibleActionInterface *>(this);
        default:
            return nullptr;
        }
    }

    // Reading.

    void selection(int index, int *start, int *end) const override
    {
        *start = *end = 0;
        if (index == 0 && selectionCount() == 1) {
            *start = property("selectionStart").toInt();
            *end = property("selectionEnd").toInt();
        }
    }
    int selectionCount() const override
    {
        return property("selectionStart") != property("selectionEnd") ? 1 : 0;
    }
    void addSelection(int start, int end) override { setSelection(0, start, end); }
    void removeSelection(int) override { call("deselect"); }
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
        const QPointF local = item()->mapFromGlobal(QPointF(point));
        int offset = -1;
        if (item()->inherits("QQuickTextEdit")) {
            QMetaObject::invokeMethod(object(), "positionAt", Q_RETURN_ARG(int, offset),
                                      Q_ARG(qreal, local.x()), Q_ARG(qreal, local.y()));
            return offset;
        }
        const int count = characterCount();
        for (offset = 0; offset < count; ++offset) {
            if (characterRect(offset + 1).left() > point.x())
                return offset;
        }
        return count;
    }
    void scrollToSubstring(int start, int end) override { setSelection(0, start, end); }
    QString attributes(int, int *start, int *end) const override
    {
        *start = 0;
        *end = characterCount();
        return {};
    }

    // Editing.

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

    // Acting.

    QStringList actionNames() const override
    {
        return item()->isEnabled() ? QStringList{setFocusAction()} : QStringList{};
    }
    void doAction(const QString &action) override
    {
        if (action == setFocusAction() && item()->isEnabled())
            item()->forceActiveFocus(Qt::OtherFocusReason);
    }
    QStringList keyBindingsForAction(const QString &) const override { return {}; }

private:
    QQuickItem *item() const { return static_cast<QQuickItem *>(object()); }
    QVariant property(const char *name) const { return object()->property(name); }
    bool isReadOnly() const { return property("readOnly").toBool() || !item()->isEnabled(); }
    /// Any echo mode but the normal one hides what is typed.
    bool isSecret() const { return property("echoMode").toInt() != 0; }

    /// What a reader in front of the screen would see, as bullets where it is secret.
    QString visibleText() const
    {
        if (isSecret())
            return QString(property("length").toInt(), bullet);
        return property("text").toString();
    }
    /// A value set in QML through the attached `Accessible`.
    QVariant attached(const char *name) const
    {
        for (const QObject *helper : object()->children()) {
            if (helper->inherits("QQuickAccessibleAttached"))
                return helper->property(name);
        }
        return {};
    }
    template <typename... Args>
    void call(const char *method, Args... args)
    {
        QMetaObject::invokeMethod(object(), method, Q_ARG(Args, args)...);
    }
};

QAccessibleInterface *makeTextAccessible(const QString &className, QObject *object)
{
    if (className != QLatin1StringView("QQuickTextInput") &&
        className != QLatin1StringView("QQuickTextEdit"))
        return nullptr;
    auto *item = qobject_cast<QQuickItem *>(object);
    return item ? new TextAccessible(item) : nullptr;
}

} // namespace

void installTextAccessibility()
{
    // Only the newest factory is asked first, so ours goes before the toolkit's own.
    QAccessible::installFactory(makeTextAccessible);
}

} // namespace quellora
