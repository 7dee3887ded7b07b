#include "platform/macos/HoverDelivery.h"

#include <QCoreApplication>
#include <QEnterEvent>
#include <QMouseEvent>
#include <QWindow>

namespace quellora {

void HoverDelivery::pointerMoved(const QPointF &pointer, bool isOver)
{
    const QPointF local = pointer - QPointF(m_window.position());
    if (isOver != m_isOver) {
        m_isOver = isOver;
        if (isOver) {
            QEnterEvent enter(local, local, pointer);
            QCoreApplication::sendEvent(&m_window, &enter);
        } else {
            QEvent leave(QEvent::Leave);
            QCoreApplication::sendEvent(&m_window, &leave);
        }
    }
    if (!isOver)
        return;
    QMouseEvent move(QEvent::MouseMove, local, local, pointer, Qt::NoButton, Qt::NoButton,
                     Qt::NoModifier);
    QCoreApplication::sendEvent(&m_window, &move);
}

} // namespace quellora
