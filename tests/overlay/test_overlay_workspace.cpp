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
    void failuresAreTold_data()
    {
        QTest::addColumn<QUrl>("url");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("told");
        const QString program = QCoreApplication::applicationFilePath();
        QTest::newRow("address") << QUrl("https://example.org/") << QString()
                                 << "Could not open the browser: nobody answers";
        QTest::newRow("no address")
            << QUrl() << QString() << "Could not open the address: it is not valid";
        QTest::newRow("file") << QUrl() << program << "Could not open the browser: nobody answers";
        QTest::newRow("no file") << QUrl() << program + ".missing"
                                 << "Could not open the file: there is no such file";
    }
    void failuresAreTold()
    {
        QFETCH(QUrl, url);
        QFETCH(QString, path);
        QFETCH(QString, told);
        FakeWorkspace system;
        system.answer = FakeWorkspace::failure();
        OverlayWorkspace workspace(system);
        QSignalSpy failed(&workspace, &OverlayWorkspace::failed);
        const auto opening = path.isEmpty() ? workspace.openUrl(url) : workspace.openFile(path);
        QTRY_COMPARE(failed.size(), 1);
        QCOMPARE(failed.first().first().toString(), told);
        QCOMPARE(opening.result().error().text(), told);
    }

    void whatOpensIsNotTold()
    {
        FakeWorkspace system;
        system.answer.reset();
        OverlayWorkspace workspace(system);
        QSignalSpy failed(&workspace, &OverlayWorkspace::failed);
        workspace.openUrl(QUrl("https://example.org/"));
        workspace.openUrl(QUrl("https://example.org/more"));
        system.finish(FakeWorkspace::opened());
        // The second one's end comes after the first one's.
        system.finish(FakeWorkspace::failure());
        QTRY_COMPARE(failed.size(), 1);
    }

    void anEndAfterTheOverlayHasGoneIsNobodysConcern()
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
