#include "platform/EventFilterKeyMonitor.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QTest>

using namespace quellora;

namespace {

/// Records the types of the events that it receives.
class Target : public QObject
{
public:
    bool event(QEvent *event) override
    {
        received << event->type();
        return true;
    }
    QList<QEvent::Type> received;
};

bool send(QObject &target, QEvent::Type type, int key = Qt::Key_F6,
          Qt::KeyboardModifiers modifiers = {}, quint32 scanCode = 0)
{
    QKeyEvent event(type, key, modifiers, scanCode, 0, 0);
    event.ignore();
    QCoreApplication::sendEvent(&target, &event);
    return event.isAccepted();
}

QString keyName(quint32 scanCode)
{
    return scanCode == 12 ? QStringLiteral("3") : QString();
}

} // namespace

class TestEventFilterKeyMonitor : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void interceptsAllKeysWhileInstalled()
    {
        Target target;
        EventFilterKeyMonitor monitor(keyName);
        QList<KeyDown> keys;
        monitor.install([&keys](const KeyDown &key) { keys << key; });
        QVERIFY(send(target, QEvent::ShortcutOverride));
        send(target, QEvent::KeyPress, Qt::Key_NumberSign, Qt::ControlModifier, 12);
        send(target, QEvent::KeyRelease, Qt::Key_NumberSign, Qt::ControlModifier, 12);
        send(target, QEvent::KeyPress, Qt::Key_Escape);
        QCOMPARE(target.received, QList<QEvent::Type>());
        QCOMPARE(keys.size(), 2);
        QCOMPARE(keys[0].character, "3");
        QCOMPARE(keys[0].modifiers, Qt::KeyboardModifiers(Qt::ControlModifier));
        QVERIFY(!keys[0].isEscape);
        QVERIFY(keys[1].isEscape);
        QCOMPARE(keys[1].character, QString());

        monitor.remove();
        monitor.remove();
        send(target, QEvent::ShortcutOverride);
        send(target, QEvent::KeyPress);
        QCOMPARE(target.received,
                 (QList<QEvent::Type>{QEvent::ShortcutOverride, QEvent::KeyPress}));
        QCOMPARE(keys.size(), 2);
    }

    void otherEventsPassThrough()
    {
        Target target;
        EventFilterKeyMonitor monitor(keyName);
        monitor.install([](const KeyDown &) {});
        QEvent other(QEvent::User);
        QCoreApplication::sendEvent(&target, &other);
        QCOMPARE(target.received, QList<QEvent::Type>{QEvent::User});
    }

    void handlerCanRemoveMonitor()
    {
        Target target;
        EventFilterKeyMonitor monitor(keyName);
        int presses = 0;
        monitor.install([&](const KeyDown &) {
            ++presses;
            monitor.remove();
        });
        send(target, QEvent::KeyPress);
        send(target, QEvent::KeyPress);
        QCOMPARE(presses, 1);
        QCOMPARE(target.received, QList<QEvent::Type>{QEvent::KeyPress});
    }

    void destructorRemovesEventFilter()
    {
        Target target;
        {
            EventFilterKeyMonitor monitor(keyName);
            monitor.install([](const KeyDown &) { QFAIL("the handler outlived the monitor"); });
        }
        send(target, QEvent::KeyPress);
        QCOMPARE(target.received, QList<QEvent::Type>{QEvent::KeyPress});
    }

    void keypadAndGroupSwitchModifiersAreDropped()
    {
        const Qt::KeyboardModifiers all =
            Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier | Qt::ShiftModifier;
        const QKeyEvent event(QEvent::KeyPress, Qt::Key_NumberSign,
                              all | Qt::KeypadModifier | Qt::GroupSwitchModifier, 12, 0, 0);
        const KeyDown key = EventFilterKeyMonitor::keyDown(event, keyName);
        QCOMPARE(key.modifiers, all);
        QCOMPARE(key.character, "3");
        QVERIFY(!key.isEscape);
    }
};

QUELLORA_TEST(QGuiApplication, TestEventFilterKeyMonitor)
#include "test_event_filter_key_monitor.moc"
