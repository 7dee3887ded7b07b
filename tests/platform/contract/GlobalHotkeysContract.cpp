#include "platform/contract/GlobalHotkeysContract.h"

#include "hotkeys/HotkeyCombo.h"

#include <QSet>

namespace quellora {
namespace {

constexpr Qt::KeyboardModifiers ctrlAltCmd =
    Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
constexpr int markerId = 9999;
const QString c = QStringLiteral("c");
const QString x = QStringLiteral("x");
const QString marker = QStringLiteral("m");

} // namespace

void GlobalHotkeysContract::init()
{
    m_fired.clear();
    m_ids.clear();
    m_offMainThread = 0;
    makePlatform();
    CONTRACT_REQUIRES(Ability::GrabHotkeys);
    m_other = harness().openOther();
    QVERIFY(m_other);
    recordPresses();
}

void GlobalHotkeysContract::cleanup()
{
    m_other.reset();
    destroyPlatform();
}

void GlobalHotkeysContract::recordPresses()
{
    role().installHandler([this](GlobalHotkeys::Registration registration) {
        m_fired << m_ids.value(registration);
        m_offMainThread += QThread::currentThread() != thread();
    });
}

GlobalHotkeys::Result GlobalHotkeysContract::add(const QString &key,
                                                 Qt::KeyboardModifiers modifiers, int id)
{
    const auto result = role().registerHotkey(modifiers | HotkeyCombo::parse(key)->key());
    if (result)
        m_ids.insert(*result, id);
    return result;
}

bool GlobalHotkeysContract::pressMarker()
{
    return add(marker, ctrlAltCmd, markerId) && harness().press({{marker, ctrlAltCmd}}) &&
           waitFor([this] { return m_fired.contains(markerId); });
}

void GlobalHotkeysContract::pressIsDeliveredOnce()
{
    const auto result = add(c, ctrlAltCmd, 41);
    QVERIFY(result);
    QVERIFY(*result != 0);
    QVERIFY2(m_fired.isEmpty(), "registering must not fire");
    QVERIFY(harness().press({{c, ctrlAltCmd}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{41});
    QVERIFY(harness().press({{c, ctrlAltCmd}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<int>{41, 41}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<int>{41, 41, markerId}));
    QCOMPARE(m_offMainThread, 0);
}

void GlobalHotkeysContract::pressDoesNotReachFocusedWindow()
{
    QVERIFY(add(c, ctrlAltCmd, 1));
    QVERIFY(harness().press({{c, ctrlAltCmd}, {x, {}}}));
    CONTRACT_TRY_COMPARE(m_other->keys(), QStringList{x});
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{1});
}

void GlobalHotkeysContract::firesInOwnWindow()
{
    ProbeWindow ownWindow;
    ownWindow.resize(240, 200);
    QVERIFY(add(c, ctrlAltCmd, 1));
    QVERIFY(succeeded(platform().shell().activate(ownWindow)));
    QVERIFY(QTest::qWaitForWindowExposed(&ownWindow));
    CONTRACT_TRY_VERIFY(harness().isProgramActive());
    QVERIFY(harness().press({{c, ctrlAltCmd}, {x, {}}}));
    CONTRACT_TRY_COMPARE(ownWindow.keys, QStringList{x});
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{1});
}

void GlobalHotkeysContract::modifiersMustMatchExactly()
{
    QVERIFY(add(c, ctrlAltCmd, 1));
    QVERIFY(harness().press({{c, {}},
                             {c, Qt::ControlModifier},
                             {c, Qt::AltModifier | Qt::ControlModifier},
                             {c, Qt::AltModifier | Qt::MetaModifier},
                             {c, ctrlAltCmd | Qt::ShiftModifier},
                             {x, ctrlAltCmd}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<int>{markerId});
}

void GlobalHotkeysContract::distinguishesModifiers()
{
    const QList<Qt::KeyboardModifiers> sets{Qt::ControlModifier | Qt::AltModifier,
                                            Qt::ControlModifier | Qt::ShiftModifier,
                                            Qt::AltModifier | Qt::ShiftModifier,
                                            Qt::MetaModifier | Qt::AltModifier,
                                            ctrlAltCmd,
                                            ctrlAltCmd | Qt::ShiftModifier};
    QList<Combo> combos;
    QList<int> expected;
    for (qsizetype i = 0; i < sets.size(); ++i) {
        const auto id = static_cast<int>(i + 1);
        QVERIFY(add(x, sets.at(i), id));
        combos.prepend({x, sets.at(i)});
        expected.prepend(id);
    }
    QVERIFY(harness().press(combos));
    CONTRACT_TRY_COMPARE(m_fired, expected);
}

void GlobalHotkeysContract::everyBindableKeyWorks()
{
    QList<Combo> combos;
    QList<int> expected;
    for (const QString key : HotkeyCombo::bindableKeys) {
        const auto id = static_cast<int>(100 + expected.size());
        QVERIFY2(add(key, ctrlAltCmd, id), qPrintable(key));
        combos << Combo{key, ctrlAltCmd};
        expected << id;
    }
    QVERIFY(harness().press(combos));
    CONTRACT_TRY_COMPARE(m_fired.size(), expected.size());
    QCOMPARE(m_fired, expected);
}

void GlobalHotkeysContract::registrationsAreUnique()
{
    QSet<GlobalHotkeys::Registration> seen;
    for (const QString &key : {c, x, QStringLiteral("1"), QStringLiteral("]")}) {
        const auto result = add(key, ctrlAltCmd, 1);
        QVERIFY(result);
        seen << *result;
    }
    QCOMPARE(seen.size(), 4);
}

void GlobalHotkeysContract::unregisterReleasesKey()
{
    const auto first = add(c, ctrlAltCmd, 1).value();
    QVERIFY(add(x, ctrlAltCmd, 2));
    role().unregisterHotkey(first);
    QVERIFY(harness().press({{c, ctrlAltCmd}, {x, ctrlAltCmd}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{2});
    // The other program receives the key now.
    CONTRACT_TRY_COMPARE(m_other->keys(), QStringList{c});
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<int>{2, markerId}));
}

void GlobalHotkeysContract::unregisterIgnoresUnknownRegistration()
{
    const auto first = add(c, ctrlAltCmd, 1).value();
    const auto second = add(x, ctrlAltCmd, 2).value();
    role().unregisterHotkey(0);
    role().unregisterHotkey(first + second + 1000);
    role().unregisterHotkey(first);
    role().unregisterHotkey(first);
    QVERIFY(harness().press({{x, ctrlAltCmd}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{2});
}

void GlobalHotkeysContract::ownDuplicateIsRefused()
{
    QVERIFY(add(c, ctrlAltCmd, 1));
    const auto result = add(c, ctrlAltCmd, 2);
    QVERIFY(!result);
    QCOMPARE(result.error().kind, GlobalHotkeys::Failure::Kind::Taken);
    QVERIFY(harness().press({{c, ctrlAltCmd}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<int>{1, markerId}));
}

void GlobalHotkeysContract::canRegisterAgainAfterUnregister()
{
    role().unregisterHotkey(add(c, ctrlAltCmd, 1).value());
    QVERIFY(add(c, ctrlAltCmd, 2));
    QVERIFY(harness().press({{c, ctrlAltCmd}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<int>{2, markerId}));
}

void GlobalHotkeysContract::unsupportedKeyIsRefused()
{
    const auto refused = role().registerHotkey(ctrlAltCmd | Qt::Key_F5);
    QVERIFY(!refused);
    QCOMPARE(refused.error().kind, GlobalHotkeys::Failure::Kind::UnsupportedKey);
}

void GlobalHotkeysContract::otherProgramsHotkeyIsRefused()
{
    CONTRACT_REQUIRES(Ability::ClaimHotkeys);
    QVERIFY(harness().claimHotkey({c, ctrlAltCmd}));
    const auto refused = add(c, ctrlAltCmd, 1);
    QVERIFY(!refused);
    QCOMPARE(refused.error().kind, GlobalHotkeys::Failure::Kind::Taken);
    QVERIFY2(add(c, ctrlAltCmd | Qt::ShiftModifier, 2), "other combinations must remain available");
    QVERIFY(harness().press({{c, ctrlAltCmd}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<int>{markerId});
    QVERIFY(harness().releaseHotkey({c, ctrlAltCmd}));
    QVERIFY(add(c, ctrlAltCmd, 1));
    QVERIFY(harness().press({{c, ctrlAltCmd}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<int>{markerId, 1}));
}

void GlobalHotkeysContract::removedHandlerIsNotCalled()
{
    QVERIFY(add(c, ctrlAltCmd, 1));
    role().removeHandler();
    // The plain key is pressed after the hot key: once it has arrived, the hot key was handled.
    QVERIFY(harness().press({{c, ctrlAltCmd}, {x, {}}}));
    CONTRACT_TRY_VERIFY(m_other->keys().contains(x));
    role().removeHandler();
    recordPresses();
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<int>{markerId});
    QVERIFY(harness().press({{c, ctrlAltCmd}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<int>{markerId, 1}));
}

void GlobalHotkeysContract::handlerCanUnregisterAndRemoveItself()
{
    QVERIFY(add(c, ctrlAltCmd, 1));
    role().installHandler([this](GlobalHotkeys::Registration registration) {
        role().unregisterHotkey(registration);
        role().removeHandler();
        m_fired << m_ids.value(registration);
    });
    QVERIFY(harness().press({{c, ctrlAltCmd}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{1});
    QVERIFY(add(c, ctrlAltCmd, 2));
    recordPresses();
    QVERIFY(harness().press({{c, ctrlAltCmd}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<int>{1, 2}));
}

void GlobalHotkeysContract::destructorReleasesKeys()
{
    QVERIFY(add(c, ctrlAltCmd, 1));
    destroyPlatform();
    makePlatform();
    recordPresses();
    QVERIFY(harness().press({{c, ctrlAltCmd}, {x, {}}}));
    CONTRACT_TRY_COMPARE(m_other->keys(), (QStringList{c, x}));
    QVERIFY(add(c, ctrlAltCmd, 2));
    QVERIFY(harness().press({{c, ctrlAltCmd}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{2});
}

} // namespace quellora
