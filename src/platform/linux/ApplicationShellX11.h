#pragma once

#include "platform/Platform.h"
#include "platform/linux/X11Connection.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QWindow>

namespace quellora {

/// Application-level integration on X11, where programs have no activation policy: every window
/// but the ordinary ones is kept out of task bar and pager by itself.
class ApplicationShellX11 : public QObject, public ApplicationShell
{
    Q_OBJECT
public:
    explicit ApplicationShellX11(const X11Connection &x11) : m_x11(x11) {}

    /// BestEffort: acts on every window shown from now on.
    Capability becomeAccessory() override;
    /// BestEffort: whether the title bar is dark is the window manager's choice.
    Capability makeOrdinary(QWindow &window) override;
    /// Text fields bring the standard keys with them.
    Capability installEditMenu() override { return Capability::applied(); }
    /// BestEffort: the window manager has the last word about the focus.
    Capability activate(QWindow &window) override;

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    X11Connection m_x11;
    bool m_accessory = false;
    QList<QPointer<QWindow>> m_ordinary;
};

} // namespace quellora
