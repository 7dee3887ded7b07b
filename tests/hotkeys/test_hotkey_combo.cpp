#include "hotkeys/HotkeyCombo.h"
#include "platform/Vocabulary.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QtTest>

using namespace quellora;

class HotkeyComboTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void parsesEveryBindableKey_data();
    void parsesEveryBindableKey();
    void parsesNoOtherKey();
    void parsesModifiers_data();
    void parsesModifiers();
    void rejects_data();
    void rejects();
    void ignoresCaseAndOrder();
    void takesTheLastKey();
    void skipsEmptyTokens();
    void displays_data();
    void displays();
};

void HotkeyComboTest::parsesEveryBindableKey_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<Qt::Key>("key");
    for (int i = 0; i < 26; ++i)
        QTest::addRow("%c", 'a' + i) << QString(QChar('a' + i)) << Qt::Key(Qt::Key_A + i);
    for (int i = 0; i < 10; ++i)
        QTest::addRow("%d", i) << QString::number(i) << Qt::Key(Qt::Key_0 + i);
    QTest::newRow("[") << "[" << Qt::Key_BracketLeft;
    QTest::newRow("]") << "]" << Qt::Key_BracketRight;
    QTest::newRow("-") << "-" << Qt::Key_Minus;
    QTest::newRow("=") << "=" << Qt::Key_Equal;
    QTest::newRow(";") << ";" << Qt::Key_Semicolon;
    QTest::newRow("'") << "'" << Qt::Key_Apostrophe;
    QTest::newRow(",") << "," << Qt::Key_Comma;
    QTest::newRow(".") << "." << Qt::Key_Period;
    QTest::newRow("/") << "/" << Qt::Key_Slash;
    QTest::newRow("\\") << "\\" << Qt::Key_Backslash;
    QTest::newRow("`") << "`" << Qt::Key_QuoteLeft;
}

void HotkeyComboTest::parsesEveryBindableKey()
{
    QFETCH(QString, name);
    QFETCH(Qt::Key, key);
    QVERIFY(HotkeyCombo::bindableKeys.contains(name));
    QCOMPARE(HotkeyCombo::parse(QStringLiteral("cmd+") + name), Qt::META | key);
}

void HotkeyComboTest::parsesNoOtherKey()
{
    QCOMPARE(HotkeyCombo::bindableKeys.size(), 47);
    for (char16_t c = 0; c < 0x500; ++c) {
        const QString key{QChar(c)};
        QCOMPARE(HotkeyCombo::parse(key).has_value(),
                 HotkeyCombo::bindableKeys.contains(key.toLower()));
    }
}

void HotkeyComboTest::parsesModifiers_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<Qt::KeyboardModifiers>("modifier");
    QTest::newRow("cmd") << QStringLiteral("cmd") << Qt::KeyboardModifiers(Qt::MetaModifier);
    QTest::newRow("command") << QStringLiteral("command")
                             << Qt::KeyboardModifiers(Qt::MetaModifier);
    QTest::newRow("shift") << QStringLiteral("shift") << Qt::KeyboardModifiers(Qt::ShiftModifier);
    QTest::newRow("alt") << QStringLiteral("alt") << Qt::KeyboardModifiers(Qt::AltModifier);
    QTest::newRow("option") << QStringLiteral("option") << Qt::KeyboardModifiers(Qt::AltModifier);
    QTest::newRow("ctrl") << QStringLiteral("ctrl") << Qt::KeyboardModifiers(Qt::ControlModifier);
    QTest::newRow("control") << QStringLiteral("control")
                             << Qt::KeyboardModifiers(Qt::ControlModifier);
}

void HotkeyComboTest::parsesModifiers()
{
    QFETCH(QString, word);
    QFETCH(Qt::KeyboardModifiers, modifier);
    QCOMPARE(HotkeyCombo::parse(word + QStringLiteral("+c")), modifier | Qt::Key_C);
    QCOMPARE(HotkeyCombo::parse(QStringLiteral("c+") + word), modifier | Qt::Key_C);
}

void HotkeyComboTest::rejects_data()
{
    QTest::addColumn<QString>("text");
    for (const char *text :
         {"ctrl+alt", "ctrl+f5", "", "+", "++", "cmd+space", "cmd+return", "cmd+tab", "cmd+left",
          "cmd+comma", "ctrl+ c", "meta+", "cmd+c+f1", "cmd+ä"})
        QTest::newRow(text) << QString::fromUtf8(text);
}

void HotkeyComboTest::rejects()
{
    QFETCH(QString, text);
    QVERIFY(!HotkeyCombo::parse(text));
}

void HotkeyComboTest::ignoresCaseAndOrder()
{
    const auto first = HotkeyCombo::parse(QStringLiteral("CMD+Shift+C"));
    QVERIFY(first);
    QCOMPARE(first, HotkeyCombo::parse(QStringLiteral("shift+cmd+c")));
    QCOMPARE(first, Qt::META | Qt::SHIFT | Qt::Key_C);
}

void HotkeyComboTest::takesTheLastKey()
{
    QCOMPARE(HotkeyCombo::parse(QStringLiteral("ctrl+a+b")), Qt::CTRL | Qt::Key_B);
    QCOMPARE(HotkeyCombo::parse(QStringLiteral("a+ctrl+b+shift")),
             Qt::CTRL | Qt::SHIFT | Qt::Key_B);
}

void HotkeyComboTest::skipsEmptyTokens()
{
    QCOMPARE(HotkeyCombo::parse(QStringLiteral("ctrl++c")), Qt::CTRL | Qt::Key_C);
    QCOMPARE(HotkeyCombo::parse(QStringLiteral("+ctrl+c+")), Qt::CTRL | Qt::Key_C);
}

void HotkeyComboTest::displays_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("onMacOS");
    QTest::addColumn<QString>("onLinux");
    const auto row = [](const char *text, const char *onMacOS, const char *onLinux) {
        QTest::newRow(text) << QString(text) << QString(onMacOS) << QString(onLinux);
    };
    row("ctrl+alt+cmd+shift+c", "Ctrl+Option+Cmd+Shift+C", "Ctrl+Alt+Super+Shift+C");
    row("CONTROL+OPTION+COMMAND+SHIFT+C", "Ctrl+Option+Cmd+Shift+C", "Ctrl+Alt+Super+Shift+C");
    row("shift+cmd+]", "Shift+Cmd+]", "Shift+Super+]");
    row("c+cmd", "C+Cmd", "C+Super");
    row("ctrl++c", "Ctrl+C", "Ctrl+C");
    row("ctrl+f5", "Ctrl+F5", "Ctrl+F5");
    row("ctrl+alt", "Ctrl+Option", "Ctrl+Alt");
    row("cmd+.", "Cmd+.", "Super+.");
    row("", "", "");
}

void HotkeyComboTest::displays()
{
    QFETCH(QString, text);
    QFETCH(QString, onMacOS);
    QFETCH(QString, onLinux);
    QCOMPARE(HotkeyCombo::displayString(text, Vocabulary::macOS()), onMacOS);
    QCOMPARE(HotkeyCombo::displayString(text, Vocabulary::linuxDesktop()), onLinux);
}

QUELLORA_TEST(QCoreApplication, HotkeyComboTest)
#include "test_hotkey_combo.moc"
