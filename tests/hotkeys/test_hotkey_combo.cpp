#include "hotkeys/HotkeyCombo.h"
#include "platform/Platform.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSet>
#include <QtTest>

using namespace quellora;

class HotkeyComboTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void parsesTheWholeKeyTable_data();
    void parsesTheWholeKeyTable();
    void bindsNothingOutsideTheTable();
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

void HotkeyComboTest::parsesTheWholeKeyTable_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<quint32>("code");
    // Written as one text so that the table of the program is not its own witness.
    const QStringList rows =
        QStringLiteral("a 0|s 1|d 2|f 3|h 4|g 5|z 6|x 7|c 8|v 9|b 11|q 12|w 13|e 14|r 15|y 16|"
                       "t 17|1 18|2 19|3 20|4 21|6 22|5 23|= 24|9 25|7 26|- 27|8 28|0 29|] 30|"
                       "o 31|u 32|[ 33|i 34|p 35|l 37|j 38|' 39|k 40|; 41|\\ 42|, 43|/ 44|n 45|"
                       "m 46|. 47|` 50")
            .split(u'|');
    QCOMPARE(rows.size(), 47);
    for (const QString &row : rows) {
        const QStringList parts = row.split(u' ');
        QTest::newRow(qPrintable(row)) << parts.at(0) << parts.at(1).toUInt();
    }
}

void HotkeyComboTest::parsesTheWholeKeyTable()
{
    QFETCH(QString, key);
    QFETCH(quint32, code);
    const auto combo = HotkeyCombo::parse(QStringLiteral("cmd+") + key);
    QVERIFY(combo);
    QCOMPARE(combo->key, key);
    QCOMPARE(combo->keyCode, code);
    QCOMPARE(combo->modifiers, quint32(GlobalHotkeys::Command));
}

void HotkeyComboTest::bindsNothingOutsideTheTable()
{
    const QStringList names = HotkeyCombo::keyNames();
    QCOMPARE(names.size(), 47);
    QCOMPARE(QSet<QString>(names.begin(), names.end()).size(), 47);
    for (char16_t c = 0; c < 0x500; ++c) {
        const QString key{QChar(c)};
        QCOMPARE(HotkeyCombo::keyCodeFor(key).has_value(), names.contains(key));
    }
}

void HotkeyComboTest::parsesModifiers_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<quint32>("flag");
    QTest::newRow("cmd") << QStringLiteral("cmd") << 0x0100U;
    QTest::newRow("command") << QStringLiteral("command") << 0x0100U;
    QTest::newRow("shift") << QStringLiteral("shift") << 0x0200U;
    QTest::newRow("alt") << QStringLiteral("alt") << 0x0800U;
    QTest::newRow("option") << QStringLiteral("option") << 0x0800U;
    QTest::newRow("ctrl") << QStringLiteral("ctrl") << 0x1000U;
    QTest::newRow("control") << QStringLiteral("control") << 0x1000U;
}

void HotkeyComboTest::parsesModifiers()
{
    QFETCH(QString, word);
    QFETCH(quint32, flag);
    QCOMPARE(HotkeyCombo::parse(word + QStringLiteral("+c")),
             (HotkeyCombo{QStringLiteral("c"), 8, flag}));
    QCOMPARE(HotkeyCombo::parse(QStringLiteral("c+") + word),
             (HotkeyCombo{QStringLiteral("c"), 8, flag}));
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
    QCOMPARE(first, (HotkeyCombo{QStringLiteral("c"), 8, 0x0300}));
}

void HotkeyComboTest::takesTheLastKey()
{
    QCOMPARE(HotkeyCombo::parse(QStringLiteral("ctrl+a+b")),
             (HotkeyCombo{QStringLiteral("b"), 11, 0x1000}));
    QCOMPARE(HotkeyCombo::parse(QStringLiteral("a+ctrl+b+shift")),
             (HotkeyCombo{QStringLiteral("b"), 11, 0x1200}));
}

void HotkeyComboTest::skipsEmptyTokens()
{
    QCOMPARE(HotkeyCombo::parse(QStringLiteral("ctrl++c")),
             (HotkeyCombo{QStringLiteral("c"), 8, 0x1000}));
    QCOMPARE(HotkeyCombo::parse(QStringLiteral("+ctrl+c+")),
             (HotkeyCombo{QStringLiteral("c"), 8, 0x1000}));
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
