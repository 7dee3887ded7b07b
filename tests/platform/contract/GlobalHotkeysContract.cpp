#include "platform/contract/GlobalHotkeysContract.h"

#include "hotkeys/HotkeyCombo.h"

#include <QSet>

namespace quellora {
namespace {

constexpr quint32 three = GlobalHotkeys::Control | GlobalHotkeys::Option | GlobalHotkeys::Command;
constexpr quint32 signature = 0x54455354; // "TEST"
constexpr quint32 markerId = 9999;
const QString c = QStringLiteral("c");
const QString x = QStringLiteral("x");
const QString marker = QStringLiteral("m");

} // namespace

void GlobalHotkeysContract::init()
{
    m_fired.clear();
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
    role().installHandler([this](quint32 id) {
        m_fired << id;
        m_elsewhere += QThread::currentThread() != thread();
    });
}

GlobalHotkeys::Result GlobalHotkeysContract::add(const QString &key, quint32 modifiers, quint32 id)
{
    return role().registerHotkey(key, HotkeyCombo::keyCodeFor(key).value(), modifiers, signature,
                                 id);
}

bool GlobalHotkeysContract::pressMarker()
{
    return add(marker, three, markerId).registration && harness().press({{marker, three}}) &&
           awaits([this] { return m_fired.contains(markerId); });
}

void GlobalHotkeysContract::pressDeliversItsIdOnce()
{
    const auto result = add(c, three, 41);
    QCOMPARE(result.status, 0);
    QVERIFY(result.registration != 0);
    QVERIFY2(m_fired.isEmpty(), "registering presses nothing");
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<quint32>{41});
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<quint32>{41, 41}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<quint32>{41, 41, markerId}));
    QCOMPARE(m_elsewhere, 0);
}

void GlobalHotkeysContract::pressReachesNobodyElse()
{
    QVERIFY(add(c, three, 1).registration);
    QVERIFY(harness().press({{c, three}, {x, 0}}));
    CONTRACT_TRY_COMPARE(m_other->keys(), QStringList{x});
    CONTRACT_TRY_COMPARE(m_fired, QList<quint32>{1});
}

void GlobalHotkeysContract::firesInOurOwnWindow()
{
    ProbeWindow own;
    own.resize(240, 200);
    QVERIFY(add(c, three, 1).registration);
    QVERIFY(hasHappened(platform().shell().activate(own)));
    QVERIFY(QTest::qWaitForWindowExposed(&own));
    CONTRACT_TRY_VERIFY(harness().isProgramInFront());
    QVERIFY(harness().press({{c, three}, {x, 0}}));
    CONTRACT_TRY_COMPARE(own.keys, QStringList{x});
    CONTRACT_TRY_COMPARE(m_fired, QList<quint32>{1});
}

void GlobalHotkeysContract::modifiersMustMatchExactly()
{
    QVERIFY(add(c, three, 1).registration);
    QVERIFY(harness().press({{c, 0},
                             {c, GlobalHotkeys::Control},
                             {c, GlobalHotkeys::Option | GlobalHotkeys::Control},
                             {c, GlobalHotkeys::Option | GlobalHotkeys::Command},
                             {c, three | GlobalHotkeys::Shift},
                             {x, three}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<quint32>{markerId});
}

void GlobalHotkeysContract::modifiersAreToldApart()
{
    const QList<quint32> sets{GlobalHotkeys::Control | GlobalHotkeys::Option,
                              GlobalHotkeys::Control | GlobalHotkeys::Shift,
                              GlobalHotkeys::Option | GlobalHotkeys::Shift,
                              GlobalHotkeys::Command | GlobalHotkeys::Option,
                              three,
                              three | GlobalHotkeys::Shift};
    QList<Combo> combos;
    QList<quint32> expected;
    for (qsizetype i = 0; i < sets.size(); ++i) {
        const auto id = static_cast<quint32>(i + 1);
        QCOMPARE(add(x, sets.at(i), id).status, 0);
        combos.prepend({x, sets.at(i)});
        expected.prepend(id);
    }
    QVERIFY(harness().press(combos));
    CONTRACT_TRY_COMPARE(m_fired, expected);
}

void GlobalHotkeysContract::everyKeyOfTheTableWorks()
{
    QList<Combo> combos;
    QList<quint32> expected;
    const QStringList keys = HotkeyCombo::keyNames();
    for (const QString &key : keys) {
        const auto id = static_cast<quint32>(100 + expected.size());
        const auto result = add(key, three, id);
        QVERIFY2(result.status == 0 && result.registration != 0, qPrintable(key));
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
        // The same id for all: it names the action, not the registration.
        const auto registration = add(key, three, 1).registration;
        QVERIFY(registration != 0);
        seen << registration;
    }
    QCOMPARE(seen.size(), 4);
}

void GlobalHotkeysContract::unregisteredKeyIsSilentAndFree()
{
    const auto first = add(c, three, 1).registration;
    QVERIFY(add(x, three, 2).registration);
    role().unregisterHotkey(first);
    QVERIFY(harness().press({{c, three}, {x, three}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<quint32>{2});
    // The other program gets it now.
    CONTRACT_TRY_COMPARE(m_other->keys(), QStringList{c});
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<quint32>{2, markerId}));
}

void GlobalHotkeysContract::unregisteringWhatIsNotRegisteredIsNoError()
{
    const auto first = add(c, three, 1).registration;
    const auto second = add(x, three, 2).registration;
    role().unregisterHotkey(0);
    role().unregisterHotkey(first + second + 1000);
    role().unregisterHotkey(first);
    role().unregisterHotkey(first);
    QVERIFY(harness().press({{x, three}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<quint32>{2});
}

void GlobalHotkeysContract::ourOwnDuplicateIsRefused()
{
    QVERIFY(add(c, three, 1).registration);
    const auto result = add(c, three, 2);
    QVERIFY(result.status != 0);
    QCOMPARE(result.registration, GlobalHotkeys::Registration(0));
    QVERIFY(harness().press({{c, three}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<quint32>{1, markerId}));
}

void GlobalHotkeysContract::mayBeRegisteredAgain()
{
    role().unregisterHotkey(add(c, three, 1).registration);
    QCOMPARE(add(c, three, 2).status, 0);
    QVERIFY(harness().press({{c, three}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<quint32>{2, markerId}));
}

void GlobalHotkeysContract::anotherProgramsHotkeyIsRefused()
{
    CONTRACT_NEEDS(Ability::ClaimHotkeys);
    QVERIFY(harness().claimHotkey({c, three}));
    const auto refused = add(c, three, 1);
    QVERIFY(refused.status != 0);
    QCOMPARE(refused.registration, GlobalHotkeys::Registration(0));
    QVERIFY2(add(c, three | GlobalHotkeys::Shift, 2).registration, "other combinations are free");
    QVERIFY(harness().press({{c, three}}));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<quint32>{markerId});
    QVERIFY(harness().releaseHotkey({c, three}));
    const auto later = add(c, three, 1);
    QCOMPARE(later.status, 0);
    QVERIFY(later.registration != 0);
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<quint32>{markerId, 1}));
}

void GlobalHotkeysContract::removedHandlerHearsNothing()
{
    QVERIFY(add(c, three, 1).registration);
    role().removeHandler();
    // The other program's key comes after the hot key, which by then was nobody's.
    QVERIFY(harness().press({{c, three}, {x, 0}}));
    CONTRACT_TRY_VERIFY(m_other->keys().contains(x));
    role().removeHandler();
    listen();
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<quint32>{markerId});
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<quint32>{markerId, 1}));
}

void GlobalHotkeysContract::handlerMayUnregisterAndRemoveItself()
{
    const auto registration = add(c, three, 1).registration;
    role().installHandler([this, registration](quint32 id) {
        role().unregisterHotkey(registration);
        role().removeHandler();
        m_fired << id;
    });
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<quint32>{1});
    QCOMPARE(add(c, three, 2).status, 0);
    listen();
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, (QList<quint32>{1, 2}));
}

void GlobalHotkeysContract::endReleasesTheKeys()
{
    QVERIFY(add(c, three, 1).registration);
    destroyPlatform();
    makePlatform();
    listen();
    QVERIFY(harness().press({{c, three}, {x, 0}}));
    CONTRACT_TRY_COMPARE(m_other->keys(), (QStringList{c, x}));
    QCOMPARE(add(c, three, 2).status, 0);
    QVERIFY(harness().press({{c, three}}));
    CONTRACT_TRY_COMPARE(m_fired, QList<quint32>{2});
}

} // namespace quellora
