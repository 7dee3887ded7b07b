#pragma once

#include <QAccessible>
#include <QAccessibleObject>
#include <QList>
#include <QVariant>

class QQuickItem;

namespace quellora {

/// What all our QML controls have in common for assistive programs: their place in the tree, their
/// area, name and basic state. Everything is read from the item at the moment of asking, so nothing
/// can go stale.
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
    /// A value set in QML through the attached `Accessible`.
    QVariant attached(const char *name) const;
    /// What lies in it, in the order of the tree.
    virtual QList<QAccessibleInterface *> children() const;
};

} // namespace quellora
