#pragma once

#include "platform/Platform.h"
#include "platform/linux/X11Connection.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QWindow>

namespace quellora {

/// Application-level integration on X11, which has no activation policy for programs: each window
/// except the ordinary ones is removed from the task bar and the pager individually.
class ApplicationShellX11 : public QObject, public ApplicationShell
{
    Q_OBJECT
public:
    explicit ApplicationShellX11(const X11Connection &x11) : m_x11(x11) {}

    /// BestEffort: applies to every window shown from now on.
    Capability becomeAccessory() override;
    /// BestEffort: the window manager may ignore the dark title bar.
    Capability makeOrdinary(QWindow &window) override;
    /// Nothing to install: Qt's text fields handle the standard shortcuts.
    Capability installEditMenu() override { return Capability::applied(); }
    /// BestEffort: the window manager may refuse the focus.
    Capability activate(QWindow &window) override;

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    X11Connection m_x11;
    bool m_accessory = false;
    QList<QPointer<QWindow>> m_ordinary;
};

} // namespace quellora
