#include "app/CommandLine.h"
#include "base/AppConfig.h"
#include "history/CaptureSession.h"
#include "support/TestProgram.h"

#include <QTest>

using namespace quellora;

class TestCommandLine : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void startsWithoutArguments() { QCOMPARE(CommandLine::parse({}).mode, CommandLine::Mode::Run); }

    void toolkitArgumentsStart()
    {
        QCOMPARE(CommandLine::parse({"-platform", "offscreen"}).mode, CommandLine::Mode::Run);
    }

    void sendsEveryCommand()
    {
        for (const RemoteCommand &command : remoteCommands) {
            QByteArrayList arguments{command.name};
            if (command.takesOperand())
                arguments.append("Explain");
            const CommandLine line = CommandLine::parse(arguments);
            QCOMPARE(line.mode, CommandLine::Mode::Send);
            QCOMPARE(line.command, &command);
            QCOMPARE(line.operand, arguments.value(1));
            QVERIFY(!line.startsIfNotRunning);
        }
    }

    void operandIsOneLineOfText()
    {
        const CommandLine line =
            CommandLine::parse({"--or-start", "prompt", "  F\xc3\xbcr\n  mich "});
        QCOMPARE(line.operand, QByteArray("F\xc3\xbcr mich"));
        QVERIFY(line.startsIfNotRunning);
        // A prompt may be named like a command or an option.
        QCOMPARE(CommandLine::parse({"prompt", "capture"}).operand, QByteArray("capture"));
        QCOMPARE(CommandLine::parse({"prompt", "--or-start"}).operand, QByteArray("--or-start"));
        for (const QByteArrayList &wrong :
             {QByteArrayList{"prompt"},
              {"prompt", " "},
              {"prompt", "a", "b"},
              {"prompt", QByteArray(RemoteCommand::maximumOperand + 1, 'x')}})
            QCOMPARE(CommandLine::parse(wrong).mode, CommandLine::Mode::Refuse);
    }

    void everyActionHasOneCommand()
    {
        for (const HotkeyActionInfo &info : hotkeyActions) {
            QCOMPARE(std::count_if(remoteCommands.begin(), remoteCommands.end(),
                                   [&](const RemoteCommand &command) {
                                       return command.kind == RemoteCommand::Kind::Action &&
                                              command.action == info.action;
                                   }),
                     1);
        }
    }

    void orStartStartsTheProgram()
    {
        for (const QByteArrayList &arguments :
             {QByteArrayList{"--or-start", "toggle"}, QByteArrayList{"toggle", "--or-start"}}) {
            const CommandLine line = CommandLine::parse(arguments);
            QCOMPARE(line.mode, CommandLine::Mode::Send);
            QVERIFY(line.startsIfNotRunning);
        }
    }

    void printsHelpAndVersion_data()
    {
        QTest::addColumn<QByteArray>("option");
        QTest::addColumn<QByteArray>("start");
        const QByteArray version = QByteArray("quellora ") + AppConfig::appVersion + '\n';
        QTest::newRow("--help") << QByteArray("--help") << QByteArray("Usage: quellora ");
        QTest::newRow("-h") << QByteArray("-h") << QByteArray("Usage: quellora ");
        QTest::newRow("--version") << QByteArray("--version") << version;
        QTest::newRow("-v") << QByteArray("-v") << version;
    }
    void printsHelpAndVersion()
    {
        QFETCH(QByteArray, option);
        QFETCH(QByteArray, start);
        const CommandLine line = CommandLine::parse({option});
        QCOMPARE(line.mode, CommandLine::Mode::Print);
        QVERIFY(line.text.startsWith(start));
        QCOMPARE(CommandLine::parse({"capture", option}).mode, CommandLine::Mode::Print);
    }

    void helpListsEveryCommand()
    {
        const QByteArray help = CommandLine::parse({"--help"}).text;
        for (const RemoteCommand &command : remoteCommands)
            QVERIFY(help.contains(QByteArray("  ") + command.name + ' '));
        for (const QByteArray &line : help.split('\n'))
            QVERIFY2(line.size() <= 100, line.constData());
    }

    void exports()
    {
        const QUuid id = QUuid::createUuid();
        const QByteArray text = uuidText(id).toLatin1();
        const CommandLine line =
            CommandLine::parse({"export", text, "--format", "pdf", "a b.x", "--force"});
        QCOMPARE(line.mode, CommandLine::Mode::Export);
        QCOMPARE(line.exportRequest.thread, id);
        QCOMPARE(line.exportRequest.format, ExportFormat::Pdf);
        QCOMPARE(line.exportRequest.path, QStringLiteral("a b.x"));
        QVERIFY(line.exportRequest.replacesFile);
        QVERIFY(!line.exportRequest.listsThreads);

        const CommandLine latest =
            CommandLine::parse({"export", "--format=md", "latest", "--", "-x.html"});
        QCOMPARE(latest.mode, CommandLine::Mode::Export);
        QVERIFY(!latest.exportRequest.thread);
        QCOMPARE(latest.exportRequest.format, ExportFormat::Markdown);
        QCOMPARE(latest.exportRequest.path, QStringLiteral("-x.html"));
        QVERIFY(!latest.exportRequest.replacesFile);

        QCOMPARE(CommandLine::parse({"export", text.toLower(), "x.HTML"}).exportRequest.format,
                 ExportFormat::Html);
        QVERIFY(CommandLine::parse({"export", "--list"}).exportRequest.listsThreads);
        QCOMPARE(CommandLine::parse({"export", "--help"}).mode, CommandLine::Mode::Print);
    }

    void refusesOtherArguments_data()
    {
        QTest::addColumn<QByteArrayList>("arguments");
        QTest::addColumn<QByteArray>("text");
        const QByteArray end = "; see quellora --help\n";
        QTest::newRow("unknown command")
            << QByteArrayList{"captures"} << "quellora: unknown argument 'captures'" + end;
        QTest::newRow("unknown option")
            << QByteArrayList{"--capture"} << "quellora: unknown argument '--capture'" + end;
        QTest::newRow("empty") << QByteArrayList{""} << "quellora: unknown argument ''" + end;
        QTest::newRow("two commands")
            << QByteArrayList{"show", "quit"} << "quellora: only one command is possible" + end;
        QTest::newRow("option behind a command") << QByteArrayList{"show", "-platform"}
                                                 << "quellora: unknown argument '-platform'" + end;
        const auto exportRow = [&](const char *tag, QByteArrayList arguments, const char *reason) {
            arguments.prepend("export");
            QTest::newRow(tag) << arguments << "quellora: " + QByteArray(reason) + end;
        };
        exportRow("export nothing", {}, "export needs the ID of a thread and a file");
        exportRow("export no file", {"latest"}, "export needs the ID of a thread and a file");
        exportRow("export empty file", {"latest", ""},
                  "export needs the ID of a thread and a file");
        exportRow("export too much", {"latest", "a", "b"},
                  "export needs the ID of a thread and a file");
        exportRow("export no ID", {"12", "a.md"}, "'12' is no ID of a thread");
        exportRow("export no format", {"latest", "a"}, "export needs --format md, html or pdf");
        exportRow("export other format", {"latest", "a", "--format", "doc"},
                  "unknown format 'doc'");
        exportRow("export format of nothing", {"latest", "a", "--format"},
                  "--format needs md, html or pdf");
        exportRow("export other option", {"latest", "a.md", "--quick"},
                  "unknown argument '--quick'");
        exportRow("list and more", {"--list", "latest"}, "--list takes nothing else");
        QTest::newRow("export behind a command")
            << QByteArrayList{"show", "export"}
            << "quellora: export comes first and takes no command" + end;
        QTest::newRow("no command")
            << QByteArrayList{"--or-start"} << "quellora: --or-start needs a command" + end;
    }
    void refusesOtherArguments()
    {
        QFETCH(QByteArrayList, arguments);
        QFETCH(QByteArray, text);
        const CommandLine line = CommandLine::parse(arguments);
        QCOMPARE(line.mode, CommandLine::Mode::Refuse);
        QCOMPARE(line.text, text);
    }
};

QUELLORA_TEST(QCoreApplication, TestCommandLine)
#include "test_command_line.moc"
