#include "fakes/FakePlatform.h"
#include "overlay/OverlayWorkspace.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

class TestOverlayWorkspace : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void reportsFailures_data()
    {
        QTest::addColumn<QUrl>("url");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("message");
        const QString program = QCoreApplication::applicationFilePath();
        QTest::newRow("URL") << QUrl("https://example.org/") << QString()
                             << "Could not open the browser: nobody answers";
        QTest::newRow("invalid URL")
            << QUrl() << QString() << "Could not open the address: it is not valid";
        QTest::newRow("file") << QUrl() << program << "Could not open the browser: nobody answers";
        QTest::newRow("missing file") << QUrl() << program + ".missing"
                                      << "Could not open the file: there is no such file";
    }
    void reportsFailures()
    {
        QFETCH(QUrl, url);
        QFETCH(QString, path);
        QFETCH(QString, message);
        FakeWorkspace system;
        system.answer = FakeWorkspace::failure();
        OverlayWorkspace workspace(system);
        QSignalSpy failed(&workspace, &OverlayWorkspace::failed);
        const auto opening = path.isEmpty() ? workspace.openUrl(url) : workspace.openFile(path);
        QTRY_COMPARE(failed.size(), 1);
        QCOMPARE(failed.first().first().toString(), message);
        QCOMPARE(opening.result().error().text(), message);
    }

    void doesNotReportSuccess()
    {
        FakeWorkspace system;
        system.answer.reset();
        OverlayWorkspace workspace(system);
        QSignalSpy failed(&workspace, &OverlayWorkspace::failed);
        workspace.openUrl(QUrl("https://example.org/"));
        workspace.openUrl(QUrl("https://example.org/more"));
        system.finish(FakeWorkspace::opened());
        // The results are delivered in order, so the first one has been handled.
        system.finish(FakeWorkspace::failure());
        QTRY_COMPARE(failed.size(), 1);
    }

    void ignoresResultAfterDestruction()
    {
        FakeWorkspace system;
        system.answer.reset();
        auto workspace = std::make_unique<OverlayWorkspace>(system);
        workspace->openUrl(QUrl("https://example.org/"));
        workspace.reset();
        system.finish(FakeWorkspace::failure());
        QCoreApplication::processEvents();
    }
};

QUELLORA_TEST(QCoreApplication, TestOverlayWorkspace)
#include "test_overlay_workspace.moc"
