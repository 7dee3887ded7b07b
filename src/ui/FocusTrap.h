#pragma once

#include <QObject>
#include <QPointer>
#include <QQuickItem>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// Keeps Tab inside one item while the focus is there: from the last control it goes to the first.
/// Of nested traps the innermost one holds.
class FocusTrap : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QQuickItem *scope READ scope WRITE setScope NOTIFY scopeChanged)
public:
    using QObject::QObject;
    ~FocusTrap() override;

    QQuickItem *scope() const { return m_scope; }
    void setScope(QQuickItem *scope);

    bool eventFilter(QObject *watched, QEvent *event) override;

Q_SIGNALS:
    void scopeChanged();

private:
    void watch(QQuickWindow *window);
    bool isInnermostAround(const QQuickItem *item) const;
    void move(QQuickItem &from, bool forward) const;

    QPointer<QQuickItem> m_scope;
    QPointer<QQuickWindow> m_window;
};

} // namespace quellora
