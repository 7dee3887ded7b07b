#include "platform/macos/EditMenu.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QTest>
#include <QWindow>

#include <functional>

using namespace quellora;

namespace {

/// Records the key events that it receives.
class Target : public QWindow
{
public:
    bool event(QEvent *event) override
    {
        switch (event->type()) {
        case QEvent::ShortcutOverride:
        case QEvent::KeyPress:
        case QEvent::KeyRelease: {
            const auto *key = static_cast<QKeyEvent *>(event);
            received << event->type();
            combinations << key->keyCombination();
            event->setAccepted(accepts);
            if (onEvent)
                onEvent();
            return true;
        }
        default:
            return QWindow::event(event);
        }
    }

    bool accepts = true;
    std::function<void()> onEvent;
    QList<QEvent::Type> received;
    QList<QKeyCombination> combinations;
};

const QList<QEvent::Type> completePress{QEvent::ShortcutOverride, QEvent::KeyPress,
                                        QEvent::KeyRelease};

} // namespace

class TestMacEditMenu : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void listsCommandsInMenuOrder()
    {
        QStringList lines;
        for (const EditCommand &command : editCommands) {
            lines << QStringLiteral("%1|%2|%3%4%5")
                         .arg(QLatin1String(command.title), QLatin1String(command.action),
                              command.withShift ? QStringLiteral("shift+") : QString(),
                              QString(QLatin1Char(command.key)),
                              command.endsGroup ? QStringLiteral("|---") : QString());
        }
        QCOMPARE(lines, (QStringList{"Undo|undo:|z", "Redo|redo:|shift+z|---", "Cut|cut:|x",
                                     "Copy|copy:|c", "Paste|paste:|v", "Select All|selectAll:|a"}));
    }

    void menuKeysMatchStandardKeys()
    {
        for (const EditCommand &command : editCommands) {
            const QKeySequence menu(
                QKeyCombination(command.withShift ? Qt::ControlModifier | Qt::ShiftModifier
                                                  : Qt::KeyboardModifiers(Qt::ControlModifier),
                                Qt::Key(QLatin1Char(command.key).toLatin1() - 'a' + Qt::Key_A)));
            QVERIFY2(QKeySequence::keyBindings(command.standardKey).contains(menu), command.title);
        }
    }

    void sendsPressAndRelease()
    {
        Target target;
        QVERIFY(sendStandardKey(target, QKeySequence::Copy));
        QCOMPARE(target.received, completePress);
        const QKeyCombination copy = QKeySequence(QKeySequence::Copy)[0];
        QCOMPARE(target.combinations, (QList<QKeyCombination>{copy, copy, copy}));
    }

    void returnsWhetherEventWasAccepted()
    {
        Target target;
        target.accepts = false;
        QVERIFY(!sendStandardKey(target, QKeySequence::Paste));
        QCOMPARE(target.received, completePress);
    }

    void ignoresRecursiveCall()
    {
        Target target;
        bool nestedResult = true;
        target.onEvent = [&] { nestedResult = sendStandardKey(target, QKeySequence::Copy); };
        QVERIFY(sendStandardKey(target, QKeySequence::Copy));
        QVERIFY(!nestedResult);
        QCOMPARE(target.received, completePress);
        // Later calls work again.
        target.onEvent = nullptr;
        QVERIFY(sendStandardKey(target, QKeySequence::Copy));
    }

    void windowCanBeDeletedByHandler()
    {
        auto *target = new Target;
        target->onEvent = [target] {
            if (target->received.constLast() == QEvent::KeyPress)
                delete target;
        };
        sendStandardKey(*target, QKeySequence::Cut);
    }
};

QUELLORA_TEST(QGuiApplication, TestMacEditMenu)
#include "test_edit_menu.moc"
