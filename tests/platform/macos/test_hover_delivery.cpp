#include "platform/macos/HoverDelivery.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QTest>
#include <QWindow>

using namespace quellora;

namespace {

/// Records the hover events that it receives.
class Target : public QWindow
{
public:
    bool event(QEvent *event) override
    {
        switch (event->type()) {
        case QEvent::Enter:
        case QEvent::Leave:
            received << event->type();
            return true;
        case QEvent::MouseMove: {
            const auto *move = static_cast<QMouseEvent *>(event);
            received << event->type();
            position = move->position();
            globalPosition = move->globalPosition();
            buttons = move->buttons();
            return true;
        }
        default:
            return QWindow::event(event);
        }
    }

    QList<QEvent::Type> received;
    QPointF position;
    QPointF globalPosition;
    Qt::MouseButtons buttons;
};

} // namespace

class TestMacHover : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void sendsEnterMoveAndLeave()
    {
        Target target;
        target.setPosition(-200, 40);
        HoverDelivery hover(target);
        hover.pointerMoved({-190.5, 60}, true);
        QCOMPARE(target.received, (QList<QEvent::Type>{QEvent::Enter, QEvent::MouseMove}));
        QCOMPARE(target.position, QPointF(9.5, 20));
        QCOMPARE(target.globalPosition, QPointF(-190.5, 60));
        QCOMPARE(target.buttons, Qt::MouseButtons(Qt::NoButton));
        target.received.clear();
        hover.pointerMoved({-180, 60}, true);
        QCOMPARE(target.received, QList<QEvent::Type>{QEvent::MouseMove});
        target.received.clear();
        hover.pointerMoved({0, 0}, false);
        hover.pointerMoved({1, 0}, false);
        QCOMPARE(target.received, QList<QEvent::Type>{QEvent::Leave});
    }

    void sendsNothingOutsideWindow()
    {
        Target target;
        HoverDelivery hover(target);
        hover.pointerMoved({5, 5}, false);
        QCOMPARE(target.received, QList<QEvent::Type>());
    }

    void resetSendsNothing()
    {
        Target target;
        HoverDelivery hover(target);
        hover.pointerMoved({5, 5}, true);
        target.received.clear();
        hover.reset();
        hover.pointerMoved({500, 500}, false);
        QCOMPARE(target.received, QList<QEvent::Type>());
    }
};

QUELLORA_TEST(QGuiApplication, TestMacHover)
#include "test_hover_delivery.moc"
