#include "platform/linux/ShortcutGuideLinux.h"
#include "support/TestProgram.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace quellora;

class ShortcutGuideLinuxTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void eachDesktopHasItsGuide_data()
    {
        QTest::addColumn<QStringList>("desktops");
        QTest::addColumn<QString>("place");
        QTest::addColumn<QString>("line");
        const QString command("'/opt/a b/quellora' capture");
        QTest::newRow("GNOME") << QStringList{"GNOME"} << "Settings → Keyboard" << command;
        QTest::newRow("GNOME variant")
            << QStringList{"ubuntu", "GNOME"} << "Settings → Keyboard" << command;
        QTest::newRow("KDE") << QStringList{"KDE"} << "System Settings → Shortcuts" << command;
        QTest::newRow("sway") << QStringList{"sway"} << "~/.config/sway/config"
                              << "bindsym Ctrl+Mod1+Mod4+c exec " + command;
        QTest::newRow("other") << QStringList{"Phosh"} << "in your desktop's settings" << command;
        QTest::newRow("none") << QStringList() << "in your desktop's settings" << command;
    }
    void eachDesktopHasItsGuide()
    {
        QFETCH(QStringList, desktops);
        QFETCH(QString, place);
        QFETCH(QString, line);
        const ShortcutGuide guide =
            ShortcutGuideLinux::guideFor(desktops, QStringLiteral("'/opt/a b/quellora'"));
        QVERIFY2(guide.advice.contains(place), qPrintable(guide.advice));
        QCOMPARE(guide.line(QStringLiteral("ctrl+alt+cmd+c"), QStringLiteral("capture")), line);
    }

    void anActionWithoutComboLeavesTheKeyToTheUser()
    {
        const auto line = [](const char *desktop) {
            return ShortcutGuideLinux::guideFor({desktop}, QStringLiteral("quellora"))
                .line(QString(), QStringLiteral("toggle"));
        };
        // A comment until the user has put a key there.
        QCOMPARE(line("sway"), "# bindsym KEY exec quellora toggle");
        QCOMPARE(line("KDE"), "quellora toggle");
        QCOMPARE(line("GNOME"), "quellora toggle");
    }

    void swayCombosUseKeysymNames_data()
    {
        QTest::addColumn<QString>("combo");
        QTest::addColumn<QString>("sway");
        QTest::newRow("letter") << "cmd+n"
                                << "Mod4+n";
        QTest::newRow("bracket") << "ctrl+alt+cmd+]"
                                 << "Ctrl+Mod1+Mod4+bracketright";
        QTest::newRow("shift") << "ctrl+shift+1"
                               << "Ctrl+Shift+1";
        QTest::newRow("plus key") << "ctrl++"
                                  << "Ctrl+plus";
        QTest::newRow("named key") << "ctrl+space"
                                   << "Ctrl+space";
        QTest::newRow("function key") << "alt+f5"
                                      << "Mod1+F5";
        QTest::newRow("unknown name") << "alt+unknown"
                                      << "Mod1+unknown";
        QTest::newRow("empty") << ""
                               << "";
    }
    void swayCombosUseKeysymNames()
    {
        QFETCH(QString, combo);
        QFETCH(QString, sway);
        QCOMPARE(ShortcutGuideLinux::swayCombo(combo), sway);
    }

    void x11SessionNeedsNoGuide()
    {
        const QByteArray display = qgetenv("WAYLAND_DISPLAY");
        const QByteArray type = qgetenv("XDG_SESSION_TYPE");
        qunsetenv("WAYLAND_DISPLAY");
        qputenv("XDG_SESSION_TYPE", "x11");
        QVERIFY(ShortcutGuideLinux::current().advice.isEmpty());
        qputenv("XDG_SESSION_TYPE", "wayland");
        const ShortcutGuide guide = ShortcutGuideLinux::current();
        QVERIFY(!guide.advice.isEmpty());
        // The test program is not in the search path.
        QCOMPARE(guide.line(QString(), QStringLiteral("show")),
                 u'\'' + QCoreApplication::applicationFilePath() + QStringLiteral("' show"));
        // A launcher beside the program, linked into the search path.
        const QByteArray path = qgetenv("PATH");
        const QTemporaryDir bin;
        const QFileInfo program(QCoreApplication::applicationFilePath());
        QVERIFY(QFile::link(program.filePath(), bin.filePath(program.fileName())));
        qputenv("PATH", QFile::encodeName(bin.path()));
        QCOMPARE(ShortcutGuideLinux::current().line(QString(), QStringLiteral("show")),
                 program.fileName() + QStringLiteral(" show"));
        qputenv("PATH", path);
        qputenv("WAYLAND_DISPLAY", display);
        qputenv("XDG_SESSION_TYPE", type);
    }
};

QUELLORA_TEST(QCoreApplication, ShortcutGuideLinuxTest)
#include "test_shortcut_guide_linux.moc"
