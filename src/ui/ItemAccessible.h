#pragma once

#include <QAccessible>
#include <QAccessibleObject>
#include <QList>
#include <QVariant>

class QQuickItem;

namespace quellora {

/// Base of the accessibility interfaces of QML controls: position in the tree, rectangle, name and
/// basic state. Everything is read from the item on demand; nothing is cached.
class ItemAccessible : public QAccessibleObject, public QAccessibleActionInterface
{
public:
    explicit ItemAccessible(QQuickItem *item);

    QWindow *window() const override;
    QAccessibleInterface *parent() const override;
    QAccessibleInterface *child(int index) const override;
    int childCount() const override;
    int indexOfChild(const QAccessibleInterface *child) const override;
    QAccessibleInterface *childAt(int x, int y) const override;
    QRect rect() const override;
    QAccessible::State state() const override;
    QString text(QAccessible::Text what) const override;
    void *interface_cast(QAccessible::InterfaceType type) override;

    QStringList actionNames() const override;
    void doAction(const QString &action) override;
    QStringList keyBindingsForAction(const QString &) const override { return {}; }

protected:
    QQuickItem *item() const;
    QVariant property(const char *name) const { return object()->property(name); }
    /// A property of the `Accessible` object attached in QML.
    QVariant attached(const char *name) const;
    /// The nearest accessible descendants, in tree order.
    virtual QList<QAccessibleInterface *> children() const;
};

} // namespace quellora
