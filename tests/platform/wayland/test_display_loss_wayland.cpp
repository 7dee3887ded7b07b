#include "platform/Platform.h"
#include "support/TestProgram.h"
#include "wayland/FakeCompositor.h"

#include <QGuiApplication>
#include <QProcess>
#include <QTest>

#include <cstdio>
#include <cstdlib>
#include <optional>

#include <wayland-client-protocol.h>

using namespace quellora;

namespace {

constexpr auto loseOption = "--lose-compositor";
constexpr int handlerExitCode = 42;

/// The process under test: runs until its compositor is gone.
int loseCompositor(int argc, char **argv)
{
    const QGuiApplication application(argc, argv);
    Platform::setDisplayLossHandler([] { std::_Exit(handlerExitCode); });
    std::puts("connected");
    static_cast<void>(std::fflush(stdout));
    return QGuiApplication::exec();
}

} // namespace

/// The process under test exits, so it is a second instance of this program.
class TestDisplayLossWayland : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void handlerRunsWhenTheCompositorEnds_data()
    {
        QTest::addColumn<QString>("rules");
        QTest::newRow("usual log") << QString();
        QTest::newRow("silenced log") << QStringLiteral("*.warning=false");
    }

    void handlerRunsWhenTheCompositorEnds()
    {
        QFETCH(QString, rules);
        std::optional<FakeCompositor> compositor;
        compositor.emplace(
            QList<const wl_interface *>{&wl_compositor_interface, &wl_shm_interface});
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
        environment.insert(QStringLiteral("QT_LOGGING_RULES"), rules);
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(QCoreApplication::applicationFilePath(),
                      {QStringLiteral("display_loss_wayland"), QLatin1String(loseOption)});
        QVERIFY2(process.waitForReadyRead(), process.readAllStandardError().constData());
        compositor.reset();
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), handlerExitCode);
    }
};

namespace {

int runTests(int argc, char **argv)
{
    if (argc > 1 && QByteArray(argv[1]) == loseOption)
        return loseCompositor(argc, argv);
    const QCoreApplication application(argc, argv);
    TestDisplayLossWayland test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace

QUELLORA_TEST_MAIN(runTests)

#include "test_display_loss_wayland.moc"
