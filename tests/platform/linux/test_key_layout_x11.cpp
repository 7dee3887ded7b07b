#include "platform/linux/KeyLayoutX11.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QtTest>

using namespace quellora;

namespace {

using Symbols = KeyLayoutX11::Symbols;
using Keys = QHash<xcb_keycode_t, Symbols>;

/// The main block of a keyboard: one string per row and shift level.
Keys keyboard(const QStringList &plain, const QStringList &shifted)
{
    constexpr xcb_keycode_t firstCodes[] = {10, 24, 38, 52};
    Keys keys;
    for (int row = 0; row < 4; ++row) {
        for (int i = 0; i < plain.at(row).size(); ++i)
            keys.insert(static_cast<xcb_keycode_t>(firstCodes[row] + i),
                        {plain.at(row).at(i).unicode(), shifted.at(row).at(i).unicode()});
    }
    return keys;
}

Keys american()
{
    Keys keys = keyboard({QStringLiteral("1234567890-="), QStringLiteral("qwertyuiop[]"),
                          QStringLiteral("asdfghjkl;'"), QStringLiteral("zxcvbnm,./")},
                         {QStringLiteral("!@#$%^&*()_+"), QStringLiteral("QWERTYUIOP{}"),
                          QStringLiteral("ASDFGHJKL:\""), QStringLiteral("ZXCVBNM<>?")});
    keys.insert(49, {'`', '~'});
    keys.insert(51, {'\\', '|'});
    return keys;
}

Keys french()
{
    Keys keys = keyboard({QStringLiteral("&é\"'(-è_çà)="), QStringLiteral("azertyuiop^$"),
                          QStringLiteral("qsdfghjklmù"), QStringLiteral("wxcvbn,;:!")},
                         {QStringLiteral("1234567890°+"), QStringLiteral("AZERTYUIOP¨£"),
                          QStringLiteral("QSDFGHJKLM%"), QStringLiteral("WXCVBN?./§")});
    keys.insert(49, {0xb2, '~'});
    keys.insert(51, {'*', 0xb5});
    return keys;
}

/// A layout without Latin letters, such as Cyrillic.
Keys withoutLatin()
{
    Keys keys = american();
    for (auto it = keys.begin(); it != keys.end(); ++it) {
        if (it->plain >= 'a' && it->plain <= 'z')
            *it = {0x6c0U + it.key(), 0x6e0U + it.key()};
    }
    return keys;
}

Qt::Key keyNamed(QChar name)
{
    return static_cast<Qt::Key>(name.toUpper().unicode());
}

} // namespace

class KeyLayoutX11Test : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void usKeysAreAtTheirAnsiPositions();
    void symbolsTakePrecedenceOverPositions();
    void lettersFallBackToTheirPositions();
    void emptyMappingFallsBackToPositions();
    void displacedNamesUseShiftedSymbols();
    void keyNameIsTheInverseOfKeycode();
    void ansiPositionWinsAmongDuplicates();
    void translatesModifiers();
    void listsLockVariants();
    void ignoresLocksAndGroupsInEvents();
};

void KeyLayoutX11Test::usKeysAreAtTheirAnsiPositions()
{
    const KeyLayoutX11 layout(american(), {});
    QCOMPARE(layout.keycode(Qt::Key_C), xcb_keycode_t(54));
    QCOMPARE(layout.keycode(Qt::Key_3), xcb_keycode_t(12));
    QCOMPARE(layout.keycode(Qt::Key_QuoteLeft), xcb_keycode_t(49));
    QCOMPARE(layout.keycode(Qt::Key_BracketRight), xcb_keycode_t(35));
    QVERIFY(!layout.keycode(Qt::Key_F5));
    QVERIFY(!layout.keycode(Qt::Key(0)));
}

void KeyLayoutX11Test::symbolsTakePrecedenceOverPositions()
{
    const KeyLayoutX11 layout(french(), {});
    QCOMPARE(layout.keycode(Qt::Key_A), xcb_keycode_t(24));
    QCOMPARE(layout.keycode(Qt::Key_Q), xcb_keycode_t(38));
    QCOMPARE(layout.keycode(Qt::Key_M), xcb_keycode_t(47));
    QCOMPARE(layout.keycode(Qt::Key_Comma), xcb_keycode_t(58));
}

void KeyLayoutX11Test::lettersFallBackToTheirPositions()
{
    const KeyLayoutX11 layout(withoutLatin(), {});
    QCOMPARE(layout.keycode(Qt::Key_C), xcb_keycode_t(54));
    QCOMPARE(layout.keycode(Qt::Key_Q), xcb_keycode_t(24));
    QCOMPARE(layout.keyName(54), QStringLiteral("c"));
}

void KeyLayoutX11Test::emptyMappingFallsBackToPositions()
{
    const KeyLayoutX11 layout({}, {});
    for (const char16_t *name = u"abcdefghijklmnopqrstuvwxyz0123456789=-][';\\,/.`"; *name; ++name)
        QVERIFY(layout.keycode(keyNamed(QChar(*name))));
}

void KeyLayoutX11Test::displacedNamesUseShiftedSymbols()
{
    const KeyLayoutX11 layout(french(), {});
    // Digits need shift there, but no other bindable symbol is at their positions.
    QCOMPARE(layout.keycode(Qt::Key_1), xcb_keycode_t(10));
    QCOMPARE(layout.keycode(Qt::Key_3), xcb_keycode_t(12));
    // No other bindable symbol is at the position of "[".
    QCOMPARE(layout.keycode(Qt::Key_BracketLeft), xcb_keycode_t(34));

    // A name whose position is taken moves to the key that types it with shift.
    Keys keys = american();
    keys.insert(61, {'-', '_'});
    keys.insert(20, {0xdf, '/'});
    QCOMPARE(KeyLayoutX11(keys, {}).keycode(Qt::Key_Slash), xcb_keycode_t(20));
}

void KeyLayoutX11Test::keyNameIsTheInverseOfKeycode()
{
    for (const Keys &keys : {american(), french(), withoutLatin()}) {
        const KeyLayoutX11 layout(keys, {});
        for (quint32 code = 0; code < 300; ++code) {
            const QString name = layout.keyName(code);
            if (!name.isEmpty())
                QCOMPARE(layout.keycode(keyNamed(name.front())), static_cast<xcb_keycode_t>(code));
        }
        // A letter key is named after the letter that it types.
        for (auto it = keys.cbegin(); it != keys.cend(); ++it) {
            if (it->plain >= 'a' && it->plain <= 'z')
                QCOMPARE(layout.keyName(it.key()),
                         QString(QChar(static_cast<char16_t>(it->plain))));
        }
    }
}

void KeyLayoutX11Test::ansiPositionWinsAmongDuplicates()
{
    Keys keys = american();
    keys.insert(94, {'\\', '|'});
    keys.insert(8, {'\\', '|'});
    QCOMPARE(KeyLayoutX11(keys, {}).keycode(Qt::Key_Backslash), xcb_keycode_t(51));
    keys.insert(51, {'#', '~'});
    QCOMPARE(KeyLayoutX11(keys, {}).keycode(Qt::Key_Backslash), xcb_keycode_t(8));
}

void KeyLayoutX11Test::translatesModifiers()
{
    const KeyLayoutX11 layout(american(), {.alt = 8, .super = 64, .numLock = 16});
    QCOMPARE(layout.modifierBits({}), quint16(0));
    QCOMPARE(layout.modifierBits(Qt::ShiftModifier), quint16(1));
    QCOMPARE(layout.modifierBits(Qt::ControlModifier), quint16(4));
    QCOMPARE(layout.modifierBits(Qt::AltModifier), quint16(8));
    QCOMPARE(layout.modifierBits(Qt::MetaModifier), quint16(64));
    QCOMPARE(layout.modifierBits(Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier |
                                 Qt::MetaModifier),
             quint16(77));
}

void KeyLayoutX11Test::listsLockVariants()
{
    QCOMPARE(KeyLayoutX11({}, {.numLock = 16}).lockVariants(), (QList<quint16>{0, 2, 16, 18}));
    QCOMPARE(KeyLayoutX11({}, {.numLock = 0}).lockVariants(), (QList<quint16>{0, 2}));
}

void KeyLayoutX11Test::ignoresLocksAndGroupsInEvents()
{
    const KeyLayoutX11 layout({}, {.numLock = 16});
    // Control and Super with both locks, a mouse button and the second layout.
    QCOMPARE(layout.relevantState(0x2000 | 0x100 | 64 | 16 | 4 | 2), quint16(64 | 4));
}

QUELLORA_TEST(QCoreApplication, KeyLayoutX11Test)
#include "test_key_layout_x11.moc"
