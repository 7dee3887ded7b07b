#include "ui/FocusTrap.h"

#include <QKeyEvent>
#include <QQuickWindow>

namespace quellora {

namespace {

/// Dynamic property that marks items with a trap.
constexpr char trapProperty[] = "_quellora_focusTrap";

} // namespace

FocusTrap::~FocusTrap()
{
    if (m_scope)
        m_scope->setProperty(trapProperty, QVariant());
}

void FocusTrap::setScope(QQuickItem *scope)
{
    if (m_scope == scope)
        return;
    if (m_scope) {
        m_scope->disconnect(this);
        m_scope->setProperty(trapProperty, QVariant());
    }
    m_scope = scope;
    if (scope) {
        scope->setProperty(trapProperty, true);
        connect(scope, &QQuickItem::windowChanged, this, &FocusTrap::watch);
    }
    watch(scope ? scope->window() : nullptr);
    Q_EMIT scopeChanged();
}

void FocusTrap::watch(QQuickWindow *window)
{
    if (m_window)
        m_window->removeEventFilter(this);
    m_window = window;
    // Controls handle Tab before their ancestors, so filter the events of the window.
    if (window)
        window->installEventFilter(this);
}

bool FocusTrap::isInnermostFor(const QQuickItem *item) const
{
    for (; item; item = item->parentItem()) {
        if (item->property(trapProperty).toBool())
            return item == m_scope;
    }
    return false;
}

void FocusTrap::moveFocus(QQuickItem &from, bool forward) const
{
    QQuickItem *next = from.nextItemInFocusChain(forward);
    while (next && next != &from && !m_scope->isAncestorOf(next))
        next = next->nextItemInFocusChain(forward);
    if (next && m_scope->isAncestorOf(next))
        next->forceActiveFocus(forward ? Qt::TabFocusReason : Qt::BacktabFocusReason);
}

bool FocusTrap::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress || watched != m_window || !m_scope)
        return QObject::eventFilter(watched, event);
    const auto *key = static_cast<QKeyEvent *>(event);
    const bool backward = key->key() == Qt::Key_Backtab ||
                          (key->key() == Qt::Key_Tab && key->modifiers() == Qt::ShiftModifier);
    const bool forward = key->key() == Qt::Key_Tab && key->modifiers() == Qt::NoModifier;
    QQuickItem *focused = m_window->activeFocusItem();
    if (!(forward || backward) || !m_scope->isEnabled() || !isInnermostFor(focused))
        return QObject::eventFilter(watched, event);
    moveFocus(*focused, forward);
    return true;
}

} // namespace quellora
