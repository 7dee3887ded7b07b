#include "fakes/LogCapture.h"
#include "platform/wayland/PanelVeilWayland.h"
#include "platform/wayland/PanelWindowWayland.h"
#include "platform/wayland/WaylandKeyboard.h"
#include "platform/wayland/WlrScreencopySource.h"
#include "support/TestProgram.h"

#include <QEventLoop>
#include <QFutureWatcher>
#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>
#include <QRegularExpression>
#include <QScreen>
#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

#include <wayland-client.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <memory>

using namespace quellora;

namespace {

/// Blue with a transparent corner pixel, as a panel; red without one.
class ColouredWindow : public QRasterWindow
{
public:
    explicit ColouredWindow(bool isPanel) : m_isPanel(isPanel) {}

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(0, 0, width(), height(), m_isPanel ? Qt::blue : Qt::red);
        if (m_isPanel)
            painter.fillRect(0, 0, 1, 1, Qt::transparent);
    }

private:
    bool m_isPanel;
};

} // namespace

/// Needs a compositor with a layer shell and wlr-screencopy.
class PanelVeilWaylandTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        qputenv(PanelWindowWayland::bypassVariable, "1");
        m_connection = WaylandConnection::current();
        QVERIFY(m_connection && m_connection->screencopy());
        m_keyboard = std::make_unique<WaylandKeyboard>(*m_connection);
        m_panels = std::make_unique<PanelWindowWayland>(*m_connection, *m_keyboard);
        m_veil = std::make_unique<PanelVeilWayland>(*m_connection, *m_panels);
        m_source = std::make_unique<WlrScreencopySource>(
            *m_connection, *m_veil, [this] { return m_panels->screenWithPanel(); });
        m_beneath = std::make_unique<ColouredWindow>(false);
        m_beneath->showFullScreen();
        QVERIFY(QTest::qWaitForWindowExposed(m_beneath.get()));
        m_panel = std::make_unique<ColouredWindow>(true);
        m_panels->applyPanelTraits(*m_panel);
        m_panel->setGeometry(200, 100, 300, 200);
        m_panels->orderFront(*m_panel);
        QVERIFY(QTest::qWaitForWindowExposed(m_panel.get()));
    }
    void cleanupTestCase()
    {
        m_panel.reset();
        m_beneath.reset();
        m_source.reset();
        m_veil.reset();
        m_panels.reset();
        m_keyboard.reset();
        m_connection.reset();
    }

    void panelIsLeftOutAndComesBack()
    {
        // Without the veil's help the panel is in the picture.
        QTRY_COMPARE(colour(true), QColor(Qt::blue));
        int least = INT_MAX;
        for (int i = 0; i < 5; ++i) {
            m_log.clear();
            QCOMPARE(colour(false), QColor(Qt::red));
            const QRegularExpressionMatch match = duration();
            QVERIFY2(match.hasMatch(), qPrintable(m_log.lines.join(QLatin1Char('\n'))));
            qInfo().noquote() << match.captured();
            least = std::min(least, match.captured(1).toInt());
            QCOMPARE(colour(true), QColor(Qt::blue));
        }
        // The frame that was copied. A busy machine may add some.
        QCOMPARE(least, 1);
    }

    void framesAreCounted()
    {
        // The compositor draws a frame without the panel and others before it is back.
        auto hold = m_veil->hold([] {});
        for (int i = 0; i < 6; ++i)
            QCOMPARE(colour(true), QColor(Qt::red));
        m_log.clear();
        hold.reset();
        const QRegularExpressionMatch match = duration();
        QVERIFY2(match.hasMatch(), qPrintable(m_log.lines.join(QLatin1Char('\n'))));
        QVERIFY2(match.captured(1).toInt() >= 6, qPrintable(match.captured()));
        const double cycle = 1000 / QGuiApplication::primaryScreen()->refreshRate();
        const double rest = match.captured(2).toInt() - match.captured(1).toInt() * cycle;
        QVERIFY2(std::abs(rest) <= cycle, qPrintable(match.captured()));
    }

    void framesAreThoseOfAnObserver()
    {
        bool agree = false;
        // The observer of a busy machine misses some.
        for (int i = 0; i < 20 && !agree; ++i) {
            m_log.clear();
            FrameObserver observer(*this);
            const auto future = m_source->take(ScreenSource::Area::OneScreen);
            QVERIFY(observer.waitUntilBackAndLogged());
            const QRegularExpressionMatch match = duration();
            QVERIFY2(match.hasMatch(), qPrintable(m_log.lines.join(QLatin1Char('\n'))));
            agree = observer.colours.count(QColor(Qt::red)) == match.captured(1).toInt();
        }
        QVERIFY(agree);
    }

    void coverGoesOutWithTheNextRequest()
    {
        QVERIFY(wl_display_flush(m_connection->display()) >= 0);
        m_log.clear();
        auto hold = m_veil->holdNow();
        // The flush returns the number of bytes. The question that follows the commit is not all.
        constexpr int syncBytes = 12;
        QVERIFY(wl_display_flush(m_connection->display()) > syncBytes);
        hold.reset();
        QTRY_VERIFY(!m_log.lines.isEmpty());
    }

    void hiddenPanelStaysHidden()
    {
        m_panel->hide();
        QTRY_COMPARE(colour(true), QColor(Qt::red));
        m_log.clear();
        QCOMPARE(colour(false), QColor(Qt::red));
        QVERIFY(m_log.lines.isEmpty());
        m_panels->orderFront(*m_panel);
        QTRY_COMPARE(colour(true), QColor(Qt::blue));
    }

    void panelHiddenDuringThePicture()
    {
        const auto future = m_source->take(ScreenSource::Area::OneScreen);
        m_panel->hide();
        QTRY_VERIFY(future.isFinished());
        m_panels->orderFront(*m_panel);
        QTRY_COMPARE(colour(true), QColor(Qt::blue));
    }

    void coverIsReportedWhenTheCompositorKnows()
    {
        bool isReady = false;
        auto hold = m_veil->hold([&isReady] { isReady = true; });
        QVERIFY(!isReady);
        QTRY_VERIFY(isReady);
        QCOMPARE(colour(true), QColor(Qt::red));
        hold.reset();
        QTRY_COMPARE(colour(true), QColor(Qt::blue));
    }

    void panelHiddenWhileCoveredHasNoFrames()
    {
        auto hold = m_veil->holdNow();
        m_panel->hide();
        m_log.clear();
        hold.reset();
        QCOMPARE(m_log.lines.size(), 1);
        static const QRegularExpression line(
            QStringLiteral("^\\[ScreenSource\\] The panel was gone for about [0-9]+ ms \\(the "
                           "compositor does not tell for how many frames\\)$"));
        QVERIFY2(line.match(m_log.lines.first()).hasMatch(), qPrintable(m_log.lines.first()));
        m_panels->orderFront(*m_panel);
        QTRY_COMPARE(colour(true), QColor(Qt::blue));
    }

    void nextPictureDoesNotTakeTheLineOfTheOne()
    {
        m_log.clear();
        for (int i = 0; i < 2; ++i)
            m_veil->holdNow().reset();
        QTRY_COMPARE(m_log.lines.size(), 2);
        for (const QString &line : m_log.lines)
            QVERIFY2(line.contains(QStringLiteral("panel was gone for")), qPrintable(line));
    }

private:
    class NoVeil : public PanelVeil
    {
    protected:
        bool isNeeded() const override { return false; }
        void cover(std::function<void()>) override {}
        void uncover() override {}
    };

    /// Looks at every frame, in pictures with the panel.
    struct FrameObserver
    {
        explicit FrameObserver(PanelVeilWaylandTest &test)
            : log(test.m_log), source(*test.m_connection, none, [] { return nullptr; })
        {
            QObject::connect(&watcher, &QFutureWatcherBase::finished, &watcher, [this] {
                if (const auto picture = watcher.result())
                    colours.append(colourOfPanel(*picture));
                if (!log.lines.isEmpty() && !colours.isEmpty() &&
                    colours.last() == QColor(Qt::blue))
                    loop.quit();
                watcher.setFuture(source.take(ScreenSource::Area::OneScreen));
            });
            watcher.setFuture(source.take(ScreenSource::Area::OneScreen));
        }

        /// Awaits events: QTest's own loops sleep for most of a frame.
        bool waitUntilBackAndLogged()
        {
            QTimer::singleShot(std::chrono::seconds(5), &loop, [this] { loop.exit(1); });
            return loop.exec() == 0;
        }

        const LogCapture &log;
        QEventLoop loop;
        QList<QColor> colours;
        NoVeil none;
        WlrScreencopySource source;
        QFutureWatcher<ScreenSource::Picture> watcher;
    };

    static QColor colourOfPanel(const QImage &picture)
    {
        const double scale =
            picture.width() / double(QGuiApplication::primaryScreen()->size().width());
        return picture.pixelColor((QPointF(350, 200) * scale).toPoint());
    }

    /// The next log line, if it says for how many frames (1) and milliseconds (2) the panel was
    /// gone.
    QRegularExpressionMatch duration()
    {
        if (!QTest::qWaitFor([this] { return !m_log.lines.isEmpty(); }))
            return {};
        static const QRegularExpression line(
            QStringLiteral("^\\[ScreenSource\\] The panel was gone for ([0-9]+) frames? "
                           "\\(([0-9]+) ms at 60 Hz\\)$"));
        return line.match(m_log.lines.first());
    }

    /// The colour in the middle of the panel, in a picture with or without it.
    QColor colour(bool withPanel)
    {
        NoVeil none;
        WlrScreencopySource plain(*m_connection, none, [] { return nullptr; });
        const auto future = (withPanel ? plain : *m_source).take(ScreenSource::Area::OneScreen);
        // Awaits the signal: QTest's own loops sleep for most of a frame.
        QFutureWatcher<ScreenSource::Picture> watcher;
        QSignalSpy finished(&watcher, &QFutureWatcherBase::finished);
        watcher.setFuture(future);
        if ((finished.isEmpty() && !finished.wait()) || !future.result())
            return {};
        return colourOfPanel(*future.result());
    }

    LogCapture m_log;
    std::unique_ptr<WaylandConnection> m_connection;
    std::unique_ptr<WaylandKeyboard> m_keyboard;
    std::unique_ptr<PanelWindowWayland> m_panels;
    std::unique_ptr<PanelVeilWayland> m_veil;
    std::unique_ptr<WlrScreencopySource> m_source;
    std::unique_ptr<ColouredWindow> m_beneath;
    std::unique_ptr<ColouredWindow> m_panel;
};

QUELLORA_TEST(QGuiApplication, PanelVeilWaylandTest)
#include "test_panel_veil_wayland.moc"
