#include "base/Log.h"
#include "platform/linux/GlobalHotkeysX11.h"
#include "platform/linux/OtherClient.h"
#include "platform/linux/X11Tools.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QWindow>
#include <QtTest>

#include <memory>

using namespace quellora;

namespace {

constexpr Qt::KeyboardModifiers ctrlAltCmd =
    Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
constexpr quint16 xControl = XCB_MOD_MASK_CONTROL;
constexpr quint16 xAlt = XCB_MOD_MASK_1;
constexpr quint16 xSuper = XCB_MOD_MASK_4;
constexpr quint16 xNumLock = XCB_MOD_MASK_2;
constexpr quint16 xCapsLock = XCB_MOD_MASK_LOCK;
constexpr int badAccess = 10;
// Keycodes, named by the US layout.
constexpr int keyC = 54;
constexpr int keyX = 53;
constexpr int keyY = 29;
constexpr int keyZ = 52;
constexpr int key3 = 12;
constexpr int markerId = 99;

/// Counts the key presses that the server reports to this program.
class PressCounter : public QAbstractNativeEventFilter
{
public:
    // Event filters run in reverse order of installation, so this one runs first.
    PressCounter() { qGuiApp->installNativeEventFilter(this); }
    bool nativeEventFilter(const QByteArray &, void *message, qintptr *) override
    {
        const auto *event = static_cast<const xcb_generic_event_t *>(message);
        presses += (event->response_type & ~0x80) == XCB_KEY_PRESS;
        return false;
    }
    int presses = 0;
};

} // namespace

/// Key presses are sent by another process while another program's window has the focus.
class GlobalHotkeysX11Test : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void firesWhileOtherProgramHasFocus();
    void firesInOwnWindow();
    void lockKeysAreIgnored_data();
    void lockKeysAreIgnored();
    void modifiersMustMatchExactly();
    void distinguishesModifiers();
    void shiftedDigitGrabsBaseKey();
    void heldKeyFiresOnce();
    void quickPressesAllFire();
    void conflictIsBadAccess();
    void conflictOnOneLockVariantGrabsNothing();
    void registersAfterOtherProgramReleasesKey();
    void ownDuplicateIsRefused();
    void unsupportedKeyIsRefused();
    void unregisterReleasesKey();
    void unregisterIgnoresUnknownRegistration();
    void removedHandlerIsNotCalled();
    void handlerCanUnregisterAndRemoveItself();
    void destructorReleasesKeys();
    void keyboardGrabOfOtherProgramWins();
    void followsLayoutChange();
    void lettersWorkInCyrillicLayout();
    void lettersWorkInSecondLayout();
    void conflictAfterLayoutChangeIsLoggedAndRecovers();
    void keyNameReturnsCharacter();

private:
    void recordPresses();
    /// @param id appended to m_fired when the hot key is pressed
    /// @return 0 if it was refused
    GlobalHotkeys::Registration add(QKeyCombination combo, int id);
    bool pressMarker();
    bool isGrabbedByUs(int keycode, quint16 modifiers);
    void setLock(const QString &key, quint16 mask, bool on);

    std::unique_ptr<OtherClient> m_other;
    std::unique_ptr<GlobalHotkeysX11> m_hotkeys;
    QMap<GlobalHotkeys::Registration, int> m_ids;
    QList<int> m_fired;
    QStringList m_log;
};

void GlobalHotkeysX11Test::init()
{
    m_fired.clear();
    m_ids.clear();
    m_log.clear();
    Log::setSinkForTesting([this](const QString &line) { m_log << line; });
    m_other = std::make_unique<OtherClient>();
    QVERIFY(m_other->openFocusedWindow({0, 0, 400, 300}));
    m_hotkeys = std::make_unique<GlobalHotkeysX11>(*X11Connection::current());
    recordPresses();
}

void GlobalHotkeysX11Test::recordPresses()
{
    m_hotkeys->installHandler(
        [this](GlobalHotkeys::Registration registration) { m_fired << m_ids.value(registration); });
}

void GlobalHotkeysX11Test::cleanup()
{
    m_hotkeys.reset();
    m_other.reset();
    Log::setSinkForTesting({});
}

GlobalHotkeys::Registration GlobalHotkeysX11Test::add(QKeyCombination combo, int id)
{
    const GlobalHotkeys::Result result = m_hotkeys->registerHotkey(combo);
    if (!result)
        return 0;
    m_ids.insert(*result, id);
    return *result;
}

/// Presses a marker hot key and waits for it. Events arrive in order, so all earlier presses have
/// been delivered by then.
bool GlobalHotkeysX11Test::pressMarker()
{
    if (!add(ctrlAltCmd | Qt::Key_M, markerId))
        return false;
    return xdotool(QStringLiteral("key ctrl+alt+super+58")) &&
           QTest::qWaitFor([this] { return m_fired.contains(markerId); });
}

/// Whether another program's grab of a combination is refused.
bool GlobalHotkeysX11Test::isGrabbedByUs(int keycode, quint16 modifiers)
{
    const int status = m_other->grabKey(keycode, modifiers);
    if (status == 0)
        m_other->ungrabKey(keycode, modifiers);
    return status == badAccess;
}

void GlobalHotkeysX11Test::setLock(const QString &key, quint16 mask, bool on)
{
    if (bool(m_other->modifierState() & mask) == on)
        return;
    QVERIFY(xdotool(QStringLiteral("key ") + key));
    QTRY_COMPARE(bool(m_other->modifierState() & mask), on);
}

void GlobalHotkeysX11Test::firesWhileOtherProgramHasFocus()
{
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    QVERIFY(xdotool(QStringLiteral("key ctrl+alt+super+c")));
    QTRY_COMPARE(m_fired, QList<int>{1});
    QCOMPARE(m_other->focusedWindow(), m_other->window());
    QCOMPARE(m_other->focusLosses(), 0);
    const auto keys = m_other->keys();
    QVERIFY(std::none_of(keys.begin(), keys.end(),
                         [](const OtherClient::Key &key) { return key.keycode == keyC; }));
}

void GlobalHotkeysX11Test::firesInOwnWindow()
{
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    QWindow window;
    window.resize(200, 200);
    window.show();
    window.requestActivate();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    QVERIFY(xdotool(QStringLiteral("key ctrl+alt+super+c")));
    QTRY_COMPARE(m_fired, QList<int>{1});
}

void GlobalHotkeysX11Test::lockKeysAreIgnored_data()
{
    QTest::addColumn<bool>("numLock");
    QTest::addColumn<bool>("capsLock");
    QTest::newRow("none") << false << false;
    QTest::newRow("Num Lock") << true << false;
    QTest::newRow("Caps Lock") << false << true;
    QTest::newRow("both") << true << true;
}

void GlobalHotkeysX11Test::lockKeysAreIgnored()
{
    QFETCH(bool, numLock);
    QFETCH(bool, capsLock);
    const auto registration = add(ctrlAltCmd | Qt::Key_C, 1);
    QVERIFY(registration);
    setLock(QStringLiteral("Num_Lock"), xNumLock, numLock);
    setLock(QStringLiteral("Caps_Lock"), xCapsLock, capsLock);
    const bool pressed = xdotool(QStringLiteral("key ctrl+alt+super+54"));
    const bool fired = QTest::qWaitFor([this] { return m_fired == QList<int>{1}; });

    m_hotkeys->unregisterHotkey(registration);
    m_other->clearInput();
    const bool pressedAgain = xdotool(QStringLiteral("key ctrl+alt+super+54"));
    const bool released = QTest::qWaitFor([this] {
        const auto keys = m_other->keys();
        return std::any_of(keys.begin(), keys.end(),
                           [](const OtherClient::Key &key) { return key.keycode == keyC; });
    });
    setLock(QStringLiteral("Num_Lock"), xNumLock, false);
    setLock(QStringLiteral("Caps_Lock"), xCapsLock, false);
    QVERIFY(pressed);
    QVERIFY(fired);
    QVERIFY(pressedAgain);
    QVERIFY2(released, "the key must not remain grabbed after unregistering");
    QCOMPARE(m_fired, QList<int>{1});
}

void GlobalHotkeysX11Test::modifiersMustMatchExactly()
{
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    for (const char *combo :
         {"c", "ctrl+c", "ctrl+alt+c", "alt+super+c", "ctrl+alt+super+shift+c", "ctrl+alt+super+x"})
        QVERIFY(xdotool(QStringLiteral("key ") + QString::fromLatin1(combo)));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<int>{markerId});
}

void GlobalHotkeysX11Test::distinguishesModifiers()
{
    QVERIFY(add(Qt::ControlModifier | Qt::AltModifier | Qt::Key_C, 1));
    QVERIFY(add(Qt::ControlModifier | Qt::ShiftModifier | Qt::Key_C, 2));
    QVERIFY(add(Qt::MetaModifier | Qt::Key_C, 3));
    QVERIFY(add(ctrlAltCmd | Qt::Key_BracketRight, 4));
    QVERIFY(add(ctrlAltCmd | Qt::Key_BracketLeft, 5));
    for (const char *combo : {"super+c", "ctrl+shift+c", "ctrl+alt+c", "ctrl+alt+super+bracketleft",
                              "ctrl+alt+super+bracketright"})
        QVERIFY(xdotool(QStringLiteral("key ") + QString::fromLatin1(combo)));
    QTRY_COMPARE(m_fired, (QList<int>{3, 2, 1, 5, 4}));
}

void GlobalHotkeysX11Test::shiftedDigitGrabsBaseKey()
{
    const auto registration = add(Qt::MetaModifier | Qt::ShiftModifier | Qt::Key_3, 1);
    QCOMPARE(m_hotkeys->grabbedKeycode(registration), xcb_keycode_t(key3));
    QVERIFY(xdotool(QStringLiteral("key super+shift+12")));
    QTRY_COMPARE(m_fired, QList<int>{1});
}

void GlobalHotkeysX11Test::heldKeyFiresOnce()
{
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    // Fast auto-repeat; verified by the other program's window.
    QVERIFY(runTool(QStringLiteral("xset"), {QStringLiteral("r"), QStringLiteral("rate"),
                                             QStringLiteral("150"), QStringLiteral("50")}));
    QVERIFY(xdotool(QStringLiteral("keydown x")));
    QTRY_VERIFY(m_other->keys().size() > 10);
    QVERIFY(xdotool(QStringLiteral("keyup x")));

    PressCounter counter;
    QVERIFY(xdotool(QStringLiteral("keydown ctrl keydown alt keydown super keydown 54")));
    const bool repeated = QTest::qWaitFor([&counter] { return counter.presses > 10; });
    QVERIFY(xdotool(QStringLiteral("keyup 54 keyup super keyup alt keyup ctrl")));
    QVERIFY(repeated);
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, (QList<int>{1, markerId}));
}

void GlobalHotkeysX11Test::quickPressesAllFire()
{
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    // Without a delay several presses get the same server timestamp.
    QVERIFY(xdotool(QStringLiteral("key --delay 0 ctrl+alt+super+54 ctrl+alt+super+54 "
                                   "ctrl+alt+super+54 ctrl+alt+super+54")));
    QTRY_COMPARE(m_fired, (QList<int>{1, 1, 1, 1}));
}

void GlobalHotkeysX11Test::conflictIsBadAccess()
{
    QCOMPARE(m_other->grabKey(keyC, xControl | xAlt | xSuper), 0);
    const auto result = m_hotkeys->registerHotkey(ctrlAltCmd | Qt::Key_C);
    QVERIFY(!result);
    QCOMPARE(result.error().kind, GlobalHotkeys::Failure::Kind::Taken);
    QCOMPARE(result.error().status, badAccess);
    // Other combinations are not affected.
    QVERIFY(add(ctrlAltCmd | Qt::Key_X, 2));
    QVERIFY(xdotool(QStringLiteral("key ctrl+alt+super+c key ctrl+alt+super+x")));
    QTRY_COMPARE(m_fired, QList<int>{2});
}

void GlobalHotkeysX11Test::conflictOnOneLockVariantGrabsNothing()
{
    QCOMPARE(m_other->grabKey(keyC, xControl | xAlt | xSuper | xNumLock | xCapsLock), 0);
    QCOMPARE(m_hotkeys->registerHotkey(ctrlAltCmd | Qt::Key_C).error().status, badAccess);
    for (const int locks : {0, int(xNumLock), int(xCapsLock)})
        QVERIFY(!isGrabbedByUs(keyC, static_cast<quint16>(xControl | xAlt | xSuper | locks)));
}

void GlobalHotkeysX11Test::registersAfterOtherProgramReleasesKey()
{
    QCOMPARE(m_other->grabKey(keyC, xControl | xAlt | xSuper), 0);
    QCOMPARE(m_hotkeys->registerHotkey(ctrlAltCmd | Qt::Key_C).error().status, badAccess);
    m_other->ungrabKey(keyC, xControl | xAlt | xSuper);
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    QVERIFY(isGrabbedByUs(keyC, xControl | xAlt | xSuper));
    QVERIFY(isGrabbedByUs(keyC, xControl | xAlt | xSuper | xNumLock));
    QVERIFY(isGrabbedByUs(keyC, xControl | xAlt | xSuper | xCapsLock));
    QVERIFY(isGrabbedByUs(keyC, xControl | xAlt | xSuper | xNumLock | xCapsLock));
    QVERIFY(xdotool(QStringLiteral("key ctrl+alt+super+c")));
    QTRY_COMPARE(m_fired, QList<int>{1});
}

void GlobalHotkeysX11Test::ownDuplicateIsRefused()
{
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    QCOMPARE(m_hotkeys->registerHotkey(ctrlAltCmd | Qt::Key_C).error().status, badAccess);
    QVERIFY(xdotool(QStringLiteral("key ctrl+alt+super+c")));
    QTRY_COMPARE(m_fired, QList<int>{1});
}

void GlobalHotkeysX11Test::unsupportedKeyIsRefused()
{
    const auto result = m_hotkeys->registerHotkey(ctrlAltCmd | Qt::Key_F5);
    QVERIFY(!result);
    QCOMPARE(result.error().kind, GlobalHotkeys::Failure::Kind::UnsupportedKey);
}

void GlobalHotkeysX11Test::unregisterReleasesKey()
{
    const auto first = add(ctrlAltCmd | Qt::Key_C, 1);
    QVERIFY(add(ctrlAltCmd | Qt::Key_X, 2));
    m_hotkeys->unregisterHotkey(first);
    QVERIFY(xdotool(QStringLiteral("key ctrl+alt+super+c")));
    const auto pressedC = [](const OtherClient::Key &key) { return key.keycode == keyC; };
    QTRY_VERIFY([&] {
        const auto keys = m_other->keys();
        return std::any_of(keys.begin(), keys.end(), pressedC);
    }());
    QVERIFY(!isGrabbedByUs(keyC, xControl | xAlt | xSuper));
    QVERIFY(isGrabbedByUs(keyX, xControl | xAlt | xSuper));
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<int>{markerId});
}

void GlobalHotkeysX11Test::unregisterIgnoresUnknownRegistration()
{
    const auto registration = add(ctrlAltCmd | Qt::Key_C, 1);
    m_hotkeys->unregisterHotkey(0);
    m_hotkeys->unregisterHotkey(registration + 7);
    QVERIFY(isGrabbedByUs(keyC, xControl | xAlt | xSuper));
    m_hotkeys->unregisterHotkey(registration);
    m_hotkeys->unregisterHotkey(registration);
    QVERIFY(!isGrabbedByUs(keyC, xControl | xAlt | xSuper));
}

void GlobalHotkeysX11Test::removedHandlerIsNotCalled()
{
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    m_hotkeys->removeHandler();
    PressCounter counter;
    QVERIFY(xdotool(QStringLiteral("key ctrl+alt+super+c")));
    QTRY_COMPARE(counter.presses, 1);
    recordPresses();
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<int>{markerId});
}

void GlobalHotkeysX11Test::handlerCanUnregisterAndRemoveItself()
{
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    m_hotkeys->installHandler([this](GlobalHotkeys::Registration registration) {
        m_fired << m_ids.value(registration);
        m_hotkeys->unregisterHotkey(registration);
        m_hotkeys->removeHandler();
    });
    QVERIFY(xdotool(QStringLiteral("key ctrl+alt+super+c")));
    QTRY_COMPARE(m_fired, QList<int>{1});
    QVERIFY(!isGrabbedByUs(keyC, xControl | xAlt | xSuper));
}

void GlobalHotkeysX11Test::destructorReleasesKeys()
{
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    QVERIFY(isGrabbedByUs(keyC, xControl | xAlt | xSuper));
    m_hotkeys.reset();
    QTRY_VERIFY(!isGrabbedByUs(keyC, xControl | xAlt | xSuper));
}

void GlobalHotkeysX11Test::keyboardGrabOfOtherProgramWins()
{
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    QVERIFY(m_other->grabKeyboard());
    QVERIFY(xdotool(QStringLiteral("key ctrl+alt+super+c")));
    const auto pressedC = [](const OtherClient::Key &key) { return key.keycode == keyC; };
    QTRY_VERIFY([&] {
        const auto keys = m_other->keys();
        return std::any_of(keys.begin(), keys.end(), pressedC);
    }());
    m_other->ungrabKeyboard();
    QVERIFY(pressMarker());
    QCOMPARE(m_fired, QList<int>{markerId});
    QVERIFY(xdotool(QStringLiteral("key ctrl+alt+super+c")));
    QTRY_COMPARE(m_fired, (QList<int>{markerId, 1}));
}

void GlobalHotkeysX11Test::followsLayoutChange()
{
    const auto z = add(ctrlAltCmd | Qt::Key_Z, 1);
    const auto c = add(ctrlAltCmd | Qt::Key_C, 2);
    QCOMPARE(m_hotkeys->grabbedKeycode(z), xcb_keycode_t(keyZ));
    QVERIFY(setLayout(QStringLiteral("de")));
    const bool moved = QTest::qWaitFor([&] { return m_hotkeys->grabbedKeycode(z) == keyY; });
    const bool pressed = xdotool(QStringLiteral("key ctrl+alt+super+52 key ctrl+alt+super+29"));
    const bool fired = QTest::qWaitFor([this] { return m_fired == QList<int>{1}; });
    const bool freed = !isGrabbedByUs(keyZ, xControl | xAlt | xSuper);
    const xcb_keycode_t unmoved = m_hotkeys->grabbedKeycode(c);
    QVERIFY(setLayout(QStringLiteral("us")));
    QTRY_COMPARE(m_hotkeys->grabbedKeycode(z), xcb_keycode_t(keyZ));
    QVERIFY(moved);
    QVERIFY(pressed);
    QVERIFY(fired);
    QVERIFY(freed);
    QCOMPARE(unmoved, xcb_keycode_t(keyC));
    QCOMPARE(m_log, QStringList());
}

void GlobalHotkeysX11Test::lettersWorkInCyrillicLayout()
{
    const auto z = add(ctrlAltCmd | Qt::Key_Z, 1);
    QVERIFY(setLayout(QStringLiteral("de")));
    const bool german = QTest::qWaitFor([&] { return m_hotkeys->grabbedKeycode(z) == keyY; });
    QVERIFY(setLayout(QStringLiteral("ru")));
    const bool cyrillic = QTest::qWaitFor([&] { return m_hotkeys->grabbedKeycode(z) == keyZ; });
    const auto c = add(ctrlAltCmd | Qt::Key_C, 2);
    const bool pressed = xdotool(QStringLiteral("key ctrl+alt+super+52 key ctrl+alt+super+54"));
    const bool fired = QTest::qWaitFor([this] { return m_fired == QList<int>{1, 2}; });
    QVERIFY(setLayout(QStringLiteral("us")));
    QTRY_COMPARE(m_hotkeys->keyName(34), QStringLiteral("["));
    QVERIFY(german);
    QVERIFY(cyrillic);
    QVERIFY(c);
    QVERIFY(pressed);
    QVERIFY2(fired, "letters must work in a non-Latin layout");
}

void GlobalHotkeysX11Test::lettersWorkInSecondLayout()
{
    QVERIFY(setLayout(QStringLiteral("us,ru")));
    QVERIFY(add(ctrlAltCmd | Qt::Key_C, 1));
    // xdotool switches to the second layout, the only one that has this letter.
    const bool pressed = xdotool(QStringLiteral("key ctrl+alt+super+Cyrillic_es"));
    const bool fired = QTest::qWaitFor([this] { return m_fired == QList<int>{1}; });
    QVERIFY(setLayout(QStringLiteral("us")));
    QVERIFY(pressed);
    QVERIFY(fired);
}

void GlobalHotkeysX11Test::conflictAfterLayoutChangeIsLoggedAndRecovers()
{
    const auto z = add(ctrlAltCmd | Qt::Key_Z, 1);
    QCOMPARE(m_other->grabKey(keyY, xControl | xAlt | xSuper), 0);
    QVERIFY(setLayout(QStringLiteral("de")));
    const bool logged = QTest::qWaitFor([this] { return !m_log.isEmpty(); });
    const xcb_keycode_t during = m_hotkeys->grabbedKeycode(z);
    QVERIFY(setLayout(QStringLiteral("us")));
    QTRY_COMPARE(m_hotkeys->grabbedKeycode(z), xcb_keycode_t(keyZ));
    QVERIFY(logged);
    QCOMPARE(during, xcb_keycode_t(0));
    QVERIFY2(m_log.first().startsWith(QStringLiteral("[GlobalHotkeys] WARNING: Key 'z'")),
             qPrintable(m_log.first()));
    QVERIFY(xdotool(QStringLiteral("key ctrl+alt+super+52")));
    QTRY_COMPARE(m_fired, QList<int>{1});
}

void GlobalHotkeysX11Test::keyNameReturnsCharacter()
{
    QCOMPARE(m_hotkeys->keyName(keyC), QStringLiteral("c"));
    QCOMPARE(m_hotkeys->keyName(key3), QStringLiteral("3"));
    QCOMPARE(m_hotkeys->keyName(51), QStringLiteral("\\"));
    QCOMPARE(m_hotkeys->keyName(65), QString()); // space
    QCOMPARE(m_hotkeys->keyName(9), QString());  // escape
    QCOMPARE(m_hotkeys->keyName(89), QString()); // keypad 3
    QCOMPARE(m_hotkeys->keyName(0), QString());
}

QUELLORA_TEST(QGuiApplication, GlobalHotkeysX11Test)
#include "test_global_hotkeys_x11.moc"
