#include "ui/ItemAccessible.h"

#include <QQuickItem>
#include <QQuickWindow>

namespace quellora {

namespace {

/// The attached `Accessible` object; its class is not public.
const QObject *attachedHelper(const QObject &item)
{
    for (const QObject *child : item.children()) {
        if (child->inherits("QQuickAccessibleAttached"))
            return child;
    }
    return nullptr;
}

void collect(const QQuickItem &item, QList<QAccessibleInterface *> &found)
{
    for (QQuickItem *child : item.childItems()) {
        const QObject *helper = attachedHelper(*child);
        const bool ignored = helper && helper->property("ignored").toBool();
        QAccessibleInterface *interface =
            ignored ? nullptr : QAccessible::queryAccessibleInterface(child);
        if (interface)
            found << interface;
        else
            collect(*child, found);
    }
}

} // namespace

ItemAccessible::ItemAccessible(QQuickItem *item) : QAccessibleObject(item) {}

QQuickItem *ItemAccessible::item() const
{
    return static_cast<QQuickItem *>(object());
}

QVariant ItemAccessible::attached(const char *name) const
{
    const QObject *helper = attachedHelper(*object());
    return helper ? helper->property(name) : QVariant();
}

QWindow *ItemAccessible::window() const
{
    return item()->window();
}

QAccessibleInterface *ItemAccessible::parent() const
{
    for (QQuickItem *up = item()->parentItem(); up; up = up->parentItem()) {
        if (QAccessibleInterface *found = QAccessible::queryAccessibleInterface(up))
            return found;
    }
    return QAccessible::queryAccessibleInterface(item()->window());
}

QList<QAccessibleInterface *> ItemAccessible::children() const
{
    QList<QAccessibleInterface *> found;
    collect(*item(), found);
    return found;
}

QAccessibleInterface *ItemAccessible::child(int index) const
{
    return children().value(index);
}

int ItemAccessible::childCount() const
{
    return int(children().size());
}

int ItemAccessible::indexOfChild(const QAccessibleInterface *child) const
{
    const QList<QAccessibleInterface *> all = children();
    for (int i = 0; i < all.size(); ++i) {
        if (all.at(i)->object() == child->object())
            return i;
    }
    return -1;
}

QAccessibleInterface *ItemAccessible::childAt(int x, int y) const
{
    for (QAccessibleInterface *found : children()) {
        if (found->rect().contains(x, y))
            return found;
    }
    return nullptr;
}

QRect ItemAccessible::rect() const
{
    const QPointF corner = item()->mapToGlobal(QPointF(0, 0));
    return QRectF(corner, QSizeF(item()->width(), item()->height())).toAlignedRect();
}

QAccessible::State ItemAccessible::state() const
{
    QAccessible::State state;
    const bool enabled = item()->isEnabled();
    state.disabled = !enabled;
    state.invisible = !item()->isVisible();
    state.focusable = enabled;
    state.focused = item()->hasActiveFocus();
    return state;
}

QString ItemAccessible::text(QAccessible::Text what) const
{
    if (what == QAccessible::Description) {
        // Qt Quick replaces the description of text fields with the placeholder, which may repeat
        // the name.
        const QString hint = property("hint").toString();
        const QString description = hint.isEmpty() ? attached("description").toString() : hint;
        return description == text(QAccessible::Name) ? QString() : description;
    }
    if (what != QAccessible::Name)
        return {};
    // The attached name is empty on fields with a hidden echo mode; our controls also have a `name`
    // property.
    for (const QVariant &name : {attached("name"), property("name"), property("placeholderText")}) {
        if (!name.toString().isEmpty())
            return name.toString();
    }
    return {};
}

void *ItemAccessible::interface_cast(QAccessible::InterfaceType type)
{
    if (type == QAccessible::ActionInterface)
        return static_cast<QAccessibleActionInterface *>(this);
    return nullptr;
}

QStringList ItemAccessible::actionNames() const
{
    return item()->isEnabled() ? QStringList{setFocusAction()} : QStringList{};
}

void ItemAccessible::doAction(const QString &action)
{
    if (action == setFocusAction() && item()->isEnabled())
        item()->forceActiveFocus(Qt::OtherFocusReason);
}

} // namespace quellora
