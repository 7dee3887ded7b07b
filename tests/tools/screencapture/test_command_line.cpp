#include "screencapture/CommandLine.h"
#include "support/TestProgram.h"

#include <QTest>

#include <initializer_list>
#include <vector>

using namespace quellora::screencapture;

namespace {

tl::expected<Options, Failure> parse(std::initializer_list<const char *> arguments)
{
    return parseCommandLine(std::vector<const char *>(arguments));
}

ExitStatus statusOf(std::initializer_list<const char *> arguments)
{
    const auto options = parse(arguments);
    return options ? ExitStatus::Success : options.error().status;
}

} // namespace

class CommandLineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parsesArgumentsOfTheApplication()
    {
        const auto options = parse({"-x", "-C", "/tmp/picture.png"});
        QVERIFY(options);
        QCOMPARE(options->action, Options::Action::Capture);
        QVERIFY(options->includeCursor);
        QCOMPARE(options->path, std::string("/tmp/picture.png"));
    }

    void cursorIsOptional()
    {
        QVERIFY(!parse({"picture.png"})->includeCursor);
        QVERIFY(!parse({"-x", "picture.png"})->includeCursor);
        QVERIFY(parse({"picture.png", "-C"})->includeCursor);
    }

    void capturesOneScreenByDefault()
    {
        using Area = Options::Area;
        QVERIFY(parse({"-x", "-C", "picture.png"})->area == Area::PointedScreen);
        QVERIFY(parse({"-x", "-C", "--all", "picture.png"})->area == Area::AllScreens);
        QVERIFY(parse({"picture.png", "--all"})->area == Area::AllScreens);
        QVERIFY(parse({"-x", "--window", "picture.png"})->area == Area::FrontWindow);
        QVERIFY(parse({"--all", "--window", "picture.png"})->area == Area::FrontWindow);
        QCOMPARE(parse({"--", "--all"})->path, std::string("--all"));
    }

    void acceptsPathsThatLookLikeOptions()
    {
        QCOMPARE(parse({"--", "-x"})->path, std::string("-x"));
        QCOMPARE(parse({"-"})->path, std::string("-"));
    }

    void rejectsInvalidArguments()
    {
        QCOMPARE(statusOf({}), ExitStatus::MissingPath);
        QCOMPARE(statusOf({"-x", "-C"}), ExitStatus::MissingPath);
        QCOMPARE(statusOf({""}), ExitStatus::MissingPath);
        QCOMPARE(statusOf({"-y", "a"}), ExitStatus::UnknownOption);
        QCOMPARE(statusOf({"-xC", "a"}), ExitStatus::UnknownOption);
        QCOMPARE(statusOf({"--cursor", "a"}), ExitStatus::UnknownOption);
        QCOMPARE(statusOf({"a", "b"}), ExitStatus::TooManyPaths);
        QCOMPARE(statusOf({"", "b"}), ExitStatus::TooManyPaths);
        QCOMPARE(statusOf({"a", "--", "b"}), ExitStatus::TooManyPaths);
    }

    void helpAndVersionNeedNoPath()
    {
        QCOMPARE(parse({"--help"})->action, Options::Action::ShowHelp);
        QCOMPARE(parse({"-x", "--version"})->action, Options::Action::ShowVersion);
        QCOMPARE(statusOf({"-y", "--help"}), ExitStatus::UnknownOption);
    }

    void errorLineReplacesControlCharacters()
    {
        QCOMPARE(errorLine("plain"), std::string("quellora-screencapture: plain\n"));
        QCOMPARE(errorLine("a\nb\tc\x1b[0m\x7f"),
                 std::string("quellora-screencapture: a?b?c?[0m?\n"));
        QCOMPARE(errorLine("gr\xc3\xbc\xc3\x9f"),
                 std::string("quellora-screencapture: gr\xc3\xbc\xc3\x9f\n"));
    }
};

QUELLORA_TEST(void, CommandLineTest)
#include "test_command_line.moc"
