#include "platform/linux/FakeVeil.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WlrScreencopySource.h"
#include "support/TestProgram.h"

#include <QEventLoop>
#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>
#include <QScreen>
#include <QtTest>

#include <memory>

using namespace quellora;

namespace {

/// A window that covers the screen: red, with a green corner at the top left.
class ColouredWindow : public QRasterWindow
{
protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.fillRect(0, 0, width(), height(), Qt::red);
        painter.fillRect(0, 0, width() / 2, height() / 2, Qt::green);
    }
};

} // namespace

/// Needs a compositor with the protocol.
class WlrScreencopySourceTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        m_connection = WaylandConnection::current();
        QVERIFY(m_connection && m_connection->screencopy());
        m_window = std::make_unique<ColouredWindow>();
        m_window->showFullScreen();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }
    void cleanupTestCase()
    {
        m_window.reset();
        m_connection.reset();
    }
    void init()
    {
        m_veil = std::make_unique<FakeVeil>();
        m_source =
            std::make_unique<WlrScreencopySource>(*m_connection, *m_veil, [] { return nullptr; });
    }
    void cleanup()
    {
        m_source.reset();
        m_veil.reset();
    }

    void screenIsCopied_data()
    {
        QTest::addColumn<ScreenSource::Area>("area");
        QTest::newRow("one screen") << ScreenSource::Area::OneScreen;
        QTest::newRow("all screens") << ScreenSource::Area::AllScreens;
        QTest::newRow("for a choice") << ScreenSource::Area::AllScreensForChoice;
        // The window of this test fills the screen.
        QTest::newRow("window") << ScreenSource::Area::FrontWindow;
    }
    void screenIsCopied()
    {
        QFETCH(ScreenSource::Area, area);
        const auto shows = [&] {
            const auto future = m_source->take(area);
            if (!QTest::qWaitFor([&] { return future.isFinished(); }) ||
                !future.result().has_value())
                return false;
            const QImage image = *future.result();
            const QSizeF points = QGuiApplication::primaryScreen()->size();
            return qFuzzyCompare(points.width() / points.height(),
                                 double(image.width()) / image.height()) &&
                   image.pixelColor(image.width() / 4, image.height() / 4) == QColor(Qt::green) &&
                   image.pixelColor(image.width() * 3 / 4, image.height() / 4) == QColor(Qt::red) &&
                   image.pixelColor(image.width() / 4, image.height() * 3 / 4) == QColor(Qt::red);
        };
        // The window may not have been drawn yet.
        QTRY_VERIFY(shows());
        QCOMPARE(m_veil->covers, m_veil->uncovers);
        QVERIFY(m_veil->covers > 0);
    }

    void panelIsCoveredForTheCopyOnly()
    {
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QCOMPARE(m_veil->covers, 0);
        bool wasFinished = false;
        m_veil->onUncover = [&] { wasFinished = future.isFinished(); };
        QTRY_VERIFY(future.isFinished());
        QVERIFY(!wasFinished);
        QCOMPARE(m_veil->covers, 1);
        QCOMPARE(m_veil->uncovers, 1);
    }

    void hiddenPanelIsNotCovered()
    {
        m_veil->isVisible = false;
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_VERIFY(future.isFinished());
        QVERIFY(future.result().has_value());
        QCOMPARE(m_veil->covers + m_veil->uncovers, 0);
    }

    void severalAtOnce()
    {
        QList<QFuture<ScreenSource::Picture>> futures;
        for (int i = 0; i < 4; ++i)
            futures << m_source->take(ScreenSource::Area::OneScreen);
        for (const auto &future : futures) {
            QTRY_VERIFY(future.isFinished());
            QVERIFY(future.result().has_value());
        }
        QVERIFY(!m_veil->isGone());
    }

    void cancelUncoversPanel()
    {
        auto future = m_source->take(ScreenSource::Area::OneScreen);
        m_veil->onCover = [&future] { future.cancel(); };
        QTRY_VERIFY(future.isFinished());
        QTRY_VERIFY(!m_veil->isGone());
        QCOMPARE(m_veil->covers, 1);
        QCOMPARE(future.resultCount(), 0);
    }

    void cancelBeforeTheCopy()
    {
        auto future = m_source->take(ScreenSource::Area::OneScreen);
        future.cancel();
        QTRY_VERIFY(future.isFinished());
        QVERIFY(!m_veil->isGone());
    }

    void destructionUncoversPanel()
    {
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QEventLoop untilCovered;
        m_veil->onCover = [&untilCovered] { untilCovered.quit(); };
        untilCovered.exec();
        m_source.reset();
        QCOMPARE(m_veil->covers, 1);
        QVERIFY(!m_veil->isGone());
        QVERIFY(future.isCanceled());
    }

    void slownessIsAFailure()
    {
        m_source = std::make_unique<WlrScreencopySource>(
            *m_connection, *m_veil, [] { return nullptr; }, std::chrono::milliseconds(0));
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_VERIFY(future.isFinished());
        QVERIFY(!m_veil->isGone());
        if (!future.result())
            QVERIFY(future.result().error().reason.contains(QStringLiteral("in time")));
    }

    void pictureOutlivesItsSource()
    {
        auto future = m_source->take(ScreenSource::Area::OneScreen);
        QTRY_VERIFY(future.isFinished());
        const QImage image = *future.takeResult();
        m_source.reset();
        QVERIFY(!image.copy().isNull());
    }

    void time()
    {
        QBENCHMARK
        {
            const auto future = m_source->take(ScreenSource::Area::OneScreen);
            QTRY_VERIFY(future.isFinished());
        }
    }

private:
    std::unique_ptr<WaylandConnection> m_connection;
    std::unique_ptr<ColouredWindow> m_window;
    std::unique_ptr<FakeVeil> m_veil;
    std::unique_ptr<WlrScreencopySource> m_source;
};

QUELLORA_TEST(QGuiApplication, WlrScreencopySourceTest)
#include "test_wlr_screencopy_source.moc"
