#include "platform/contract/GlobalHotkeysContract.h"

#include "hotkeys/HotkeyCombo.h"

#include <QSet>

namespace quellora {
namespace {

constexpr Qt::KeyboardModifiers three = Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
constexpr int markerId = 9999;
const QString c = QStringLiteral("c");
const QString x = QStringLiteral("x");
const QString marker = QStringLiteral("m");

} // namespace

void GlobalHotkeysContract::init()
{
    m_fired.clear();
    m_ids.clear();
    m_elsewhere = 0;
    makePlatform();
    m_other = harness().openOther();
    QVERIFY(m_other);
    listen();
}

void GlobalHotkeysContract::cleanup()
{
    m_other.reset();
    destroyPlatform();
}

void GlobalHotkeysContract::listen()
{
    role().installHandler([this](GlobalHotkeys::Registration registration) {
        m_fired << m_ids.value(registration);
        m_elsewhere += QThread::currentThread() != thread();
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
    return add(marker, three, markerId) && harness().press({{marker, three}}) &&
           awaits([this] { return m_fired.contains(markerId); });
}

void GlobalHotkeysContract::aPressIsDeliveredOnce()
{
    const auto result = add(c, three, 41);
    QVERIFY(result);
    QVERIFY(*result != 0);
    QVERIFY2(m_fired.isEmpty(), "registering presses nothing");
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{41});
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<int>{41, 41}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<int>{41, 41, markerId}));
    QCOMPARE(m_elsewhere, 0);
}

void GlobalHotkeysContract::pressReachesNobodyElse()
{
    QVERIFY(add(c, three, 1));
    QVERIFY(harness().press({{c, three}, {x, {}}}));
    CONTRACT_TRY_COMPARE(m_other->keys(), QStringList{x});
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{1});
}

void GlobalHotkeysContract::firesInOurOwnWindow()
{
    ProbeWindow own;
    own.resize(240, 200);
    QVERIFY(add(c, three, 1));
    QVERIFY(hasHappened(platform().shell().activate(own)));
    QVERIFY(QTest::qWaitForWindowExposed(&own));
    CONTRACT_TRY_VERIFY(harness().isProgramInFront());
    QVERIFY(harness().press({{c, three}, {x, {}}}));
    CONTRACT_TRY_COMPARE(own.keys, QStringList{x});
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{1});
}

void GlobalHotkeysContract::modifiersMustMatchExactly()
{
    QVERIFY(add(c, three, 1));
    QVERIFY(harness().press({{c, {}},
                             {c, Qt::ControlModifier},
                             {c, Qt::AltModifier | Qt::ControlModifier},
                             {c, Qt::AltModifier | Qt::MetaModifier},
                             {c, three | Qt::ShiftModifier},
                             {x, three}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<int>{markerId});
}

void GlobalHotkeysContract::modifiersAreToldApart()
{
    const QList<Qt::KeyboardModifiers> sets{Qt::ControlModifier | Qt::AltModifier,
                                            Qt::ControlModifier | Qt::ShiftModifier,
                                            Qt::AltModifier | Qt::ShiftModifier,
                                            Qt::MetaModifier | Qt::AltModifier,
                                            three,
                                            three | Qt::ShiftModifier};
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
        QVERIFY2(add(key, three, id), qPrintable(key));
        combos << Combo{key, three};
        expected << id;
    }
    QVERIFY(harness().press(combos));
    CONTRACT_TRY_COMPARE(m_fired.size(), expected.size());
    QCOMPARE(m_fired, expected);
}

void GlobalHotkeysContract::registrationsAreDistinct()
{
    QSet<GlobalHotkeys::Registration> seen;
    for (const QString &key : {c, x, QStringLiteral("1"), QStringLiteral("]")}) {
        const auto result = add(key, three, 1);
        QVERIFY(result);
        seen << *result;
    }
    QCOMPARE(seen.size(), 4);
}

void GlobalHotkeysContract::unregisteredKeyIsSilentAndFree()
{
    const auto first = add(c, three, 1).value();
    QVERIFY(add(x, three, 2));
    role().unregisterHotkey(first);
    QVERIFY(harness().press({{c, three}, {x, three}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{2});
    // The other program gets it now.
    CONTRACT_TRY_COMPARE(m_other->keys(), QStringList{c});
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<int>{2, markerId}));
}

void GlobalHotkeysContract::unregisteringWhatIsNotRegisteredIsNoError()
{
    const auto first = add(c, three, 1).value();
    const auto second = add(x, three, 2).value();
    role().unregisterHotkey(0);
    role().unregisterHotkey(first + second + 1000);
    role().unregisterHotkey(first);
    role().unregisterHotkey(first);
    QVERIFY(harness().press({{x, three}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{2});
}

void GlobalHotkeysContract::ourOwnDuplicateIsRefused()
{
    QVERIFY(add(c, three, 1));
    const auto result = add(c, three, 2);
    QVERIFY(!result);
    QCOMPARE(result.error().kind, GlobalHotkeys::Failure::Kind::Taken);
    QVERIFY(harness().press({{c, three}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<int>{1, markerId}));
}

void GlobalHotkeysContract::mayBeRegisteredAgain()
{
    role().unregisterHotkey(add(c, three, 1).value());
    QVERIFY(add(c, three, 2));
    QVERIFY(harness().press({{c, three}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<int>{2, markerId}));
}

void GlobalHotkeysContract::unsupportedKeyIsRefused()
{
    const auto refused = role().registerHotkey(three | Qt::Key_F5);
    QVERIFY(!refused);
    QCOMPARE(refused.error().kind, GlobalHotkeys::Failure::Kind::UnsupportedKey);
}

void GlobalHotkeysContract::anotherProgramsHotkeyIsRefused()
{
    CONTRACT_NEEDS(Ability::ClaimHotkeys);
    QVERIFY(harness().claimHotkey({c, three}));
    const auto refused = add(c, three, 1);
    QVERIFY(!refused);
    QCOMPARE(refused.error().kind, GlobalHotkeys::Failure::Kind::Taken);
    QVERIFY2(add(c, three | Qt::ShiftModifier, 2), "other combinations are free");
    QVERIFY(harness().press({{c, three}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<int>{markerId});
    QVERIFY(harness().releaseHotkey({c, three}));
    QVERIFY(add(c, three, 1));
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<int>{markerId, 1}));
}

void GlobalHotkeysContract::removedHandlerHearsNothing()
{
    QVERIFY(add(c, three, 1));
    role().removeHandler();
    // The other program's key comes after the hot key, which by then was nobody's.
    QVERIFY(harness().press({{c, three}, {x, {}}}));
    CONTRACT_TRY_VERIFY(m_other->keys().contains(x));
    role().removeHandler();
    listen();
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<int>{markerId});
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<int>{markerId, 1}));
}

void GlobalHotkeysContract::handlerMayUnregisterAndRemoveItself()
{
    QVERIFY(add(c, three, 1));
    role().installHandler([this](GlobalHotkeys::Registration registration) {
        role().unregisterHotkey(registration);
        role().removeHandler();
        m_fired << m_ids.value(registration);
    });
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{1});
    QVERIFY(add(c, three, 2));
    listen();
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<int>{1, 2}));
}

void GlobalHotkeysContract::endReleasesTheKeys()
{
    QVERIFY(add(c, three, 1));
    destroyPlatform();
    makePlatform();
    listen();
    QVERIFY(harness().press({{c, three}, {x, {}}}));
    CONTRACT_TRY_COMPARE(m_other->keys(), (QStringList{c, x}));
    QVERIFY(add(c, three, 2));
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<int>{2});
}

} // namespace quellora
