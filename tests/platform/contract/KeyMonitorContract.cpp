#include "platform/contract/KeyMonitorContract.h"

#include "hotkeys/HotkeyCombo.h"

#include <QShortcut>

namespace quellora {
namespace {

constexpr Qt::KeyboardModifiers ctrlAltCmd =
    Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
const QString c = QStringLiteral("c");
const QString x = QStringLiteral("x");
const QString escape = QStringLiteral("escape");

} // namespace

bool KeyMonitorContract::preparePanel()
{
    m_keys.clear();
    return prepareScene() && showPanel() && succeeded(role().makeKey(panel())) &&
           waitFor([this] { return keyboardReceiver() == Receiver::Panel; }) &&
           (panel().keys.clear(), panel().overrides = 0, true);
}

void KeyMonitorContract::recordKeys()
{
    monitor().install([this](const KeyDown &key) {
        if (!key.character.isEmpty() || key.isEscape)
            m_keys << key;
    });
}

QStringList KeyMonitorContract::characters() const
{
    QStringList result;
    for (const KeyDown &key : m_keys)
        result << key.character;
    return result;
}

void KeyMonitorContract::interceptsKeysBeforeTextField()
{
    QVERIFY(preparePanel());
    recordKeys();
    QVERIFY(harness().press({{c, {}}, {x, Qt::ControlModifier | Qt::AltModifier}}));
    CONTRACT_TRY_COMPARE(characters(), (QStringList{c, x}));
    QCOMPARE(panel().keys, QStringList());
    QCOMPARE(panel().overrides, 0);
    monitor().remove();
}

void KeyMonitorContract::interceptsKeysBeforeShortcuts()
{
    QVERIFY(preparePanel());
    QShortcut shortcut(QKeySequence(Qt::CTRL | Qt::Key_J), &panel());
    shortcut.setContext(Qt::ApplicationShortcut);
    int activations = 0;
    connect(&shortcut, &QShortcut::activated, this, [&activations] { ++activations; });
    const Combo combo{QStringLiteral("j"), harness().editModifier()};
    // The shortcut works while no monitor is installed.
    QVERIFY(harness().press({combo}));
    CONTRACT_TRY_COMPARE(activations, 1);
    recordKeys();
    QVERIFY(harness().press({combo}));
    CONTRACT_TRY_COMPARE(characters(), QStringList{QStringLiteral("j")});
    monitor().remove();
    QCOMPARE(activations, 1);
    QVERIFY(harness().press({combo}));
    CONTRACT_TRY_COMPARE(activations, 2);
}

void KeyMonitorContract::ignoresKeysOfOtherPrograms()
{
    QVERIFY(preparePanel());
    recordKeys();
    QCOMPARE(clickOutsidePanel(), Receiver::Other);
    QVERIFY(harness().press({{c, {}}}));
    CONTRACT_TRY_COMPARE(other().keys(), QStringList{c});
    QVERIFY(m_keys.isEmpty());
}

void KeyMonitorContract::removeRestoresDelivery()
{
    QVERIFY(preparePanel());
    monitor().remove();
    recordKeys();
    QVERIFY(harness().press({{c, {}}}));
    CONTRACT_TRY_COMPARE(characters(), QStringList{c});
    monitor().remove();
    monitor().remove();
    QVERIFY(harness().press({{x, {}}}));
    CONTRACT_TRY_COMPARE(panel().keys, QStringList{x});
    QCOMPARE(m_keys.size(), 1);
}

void KeyMonitorContract::handlerCanRemoveMonitor()
{
    QVERIFY(preparePanel());
    monitor().install([this](const KeyDown &key) {
        monitor().remove();
        m_keys << key;
    });
    QVERIFY(harness().press({{c, {}}, {x, {}}}));
    CONTRACT_TRY_COMPARE(panel().keys, QStringList{x});
    QCOMPARE(characters(), QStringList{c});
}

void KeyMonitorContract::installReplacesHandler()
{
    QVERIFY(preparePanel());
    int first = 0;
    monitor().install([&first](const KeyDown &) { ++first; });
    recordKeys();
    QVERIFY(harness().press({{c, {}}}));
    CONTRACT_TRY_COMPARE(characters(), QStringList{c});
    QCOMPARE(first, 0);
    monitor().remove();
    QVERIFY(harness().press({{x, {}}}));
    CONTRACT_TRY_COMPARE(panel().keys, QStringList{x});
    QCOMPARE(first, 0);
}

void KeyMonitorContract::escapeIsFlagged()
{
    QVERIFY(preparePanel());
    recordKeys();
    QVERIFY(harness().press({{escape, {}}, {c, {}}}));
    CONTRACT_TRY_COMPARE(m_keys.size(), 2);
    QVERIFY(m_keys.at(0).isEscape);
    QCOMPARE(m_keys.at(0).character, QString());
    QVERIFY(!m_keys.at(1).isEscape);
    QCOMPARE(panel().keys, QStringList());
    monitor().remove();
}

void KeyMonitorContract::modifiersAreReported_data()
{
    QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
    QTest::newRow("none") << Qt::KeyboardModifiers();
    QTest::newRow("command") << Qt::KeyboardModifiers(Qt::MetaModifier);
    QTest::newRow("shift") << Qt::KeyboardModifiers(Qt::ShiftModifier);
    QTest::newRow("option") << Qt::KeyboardModifiers(Qt::AltModifier);
    QTest::newRow("control") << Qt::KeyboardModifiers(Qt::ControlModifier);
    QTest::newRow("all") << (Qt::ShiftModifier | ctrlAltCmd);
}

void KeyMonitorContract::modifiersAreReported()
{
    QFETCH(Qt::KeyboardModifiers, modifiers);
    QVERIFY(preparePanel());
    recordKeys();
    QVERIFY(harness().press({{c, modifiers}}));
    CONTRACT_TRY_COMPARE(m_keys.size(), 1);
    QCOMPARE(m_keys.first().modifiers, modifiers);
    QCOMPARE(m_keys.first().character, c);
    monitor().remove();
}

void KeyMonitorContract::shiftDoesNotChangeCharacter()
{
    QVERIFY(preparePanel());
    recordKeys();
    QVERIFY(harness().press({{QStringLiteral("3"), Qt::ShiftModifier},
                             {QStringLiteral("a"), Qt::ShiftModifier},
                             {QStringLiteral("/"), Qt::ShiftModifier}}));
    CONTRACT_TRY_COMPARE(
        characters(), (QStringList{QStringLiteral("3"), QStringLiteral("a"), QStringLiteral("/")}));
    monitor().remove();
}

void KeyMonitorContract::unbindableKeysHaveNoCharacter()
{
    QVERIFY(preparePanel());
    int others = 0;
    monitor().install([&](const KeyDown &key) {
        if (key.character.isEmpty())
            ++others;
        else
            m_keys << key;
    });
    QVERIFY(harness().press({{QStringLiteral("space"), {}}, {c, {}}}));
    CONTRACT_TRY_COMPARE(characters(), QStringList{c});
    QVERIFY2(others > 0, "the key must be intercepted nevertheless");
    QCOMPARE(panel().keys, QStringList());
    monitor().remove();
}

void KeyMonitorContract::everyBindableKeyReportsItsCharacter()
{
    QVERIFY(preparePanel());
    recordKeys();
    QList<Combo> combos;
    for (const QChar key : HotkeyCombo::bindableKeys)
        combos << Combo{key, Qt::ControlModifier};
    QVERIFY(harness().press(combos));
    CONTRACT_TRY_COMPARE(m_keys.size(), combos.size());
    QCOMPARE(characters().join(QString()), HotkeyCombo::bindableKeys.toString());
    monitor().remove();
}

} // namespace quellora
