#pragma once

#include <QObject>
#include <QPointer>
#include <QQuickItem>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// Confines Tab and Shift+Tab to `scope` while it contains the focus, wrapping around at the ends.
/// Of nested traps, the innermost one applies.
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
    /// Whether this is the innermost trap that contains @p item.
    bool isInnermostFor(const QQuickItem *item) const;
    void moveFocus(QQuickItem &from, bool forward) const;

    QPointer<QQuickItem> m_scope;
    QPointer<QQuickWindow> m_window;
};

} // namespace quellora
