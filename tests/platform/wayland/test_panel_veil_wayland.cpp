#include "fakes/LogCapture.h"
#include "platform/wayland/PanelVeilWayland.h"
#include "platform/wayland/PanelWindowWayland.h"
#include "platform/wayland/WaylandKeyboard.h"
#include "platform/wayland/WlrScreencopySource.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>
#include <QRegularExpression>
#include <QScreen>
#include <QtTest>

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
        for (int i = 0; i < 5; ++i) {
            m_log.clear();
            QCOMPARE(colour(false), QColor(Qt::red));
            QTRY_VERIFY(!m_log.lines.isEmpty());
            static const QRegularExpression line(
                QStringLiteral("^\\[ScreenSource\\] The panel was gone for [0-9.]+ ms"));
            QVERIFY2(line.match(m_log.lines.first()).hasMatch(), qPrintable(m_log.lines.first()));
            qInfo().noquote() << m_log.lines.first();
            QCOMPARE(colour(true), QColor(Qt::blue));
        }
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

private:
    class NoVeil : public PanelVeil
    {
    protected:
        bool isNeeded() const override { return false; }
        void cover(std::function<void()>) override {}
        void uncover() override {}
    };

    /// The colour in the middle of the panel, in a picture with or without it.
    QColor colour(bool withPanel)
    {
        NoVeil none;
        WlrScreencopySource plain(*m_connection, none, [] { return nullptr; });
        const auto future = (withPanel ? plain : *m_source).take(ScreenSource::Area::OneScreen);
        if (!QTest::qWaitFor([&] { return future.isFinished(); }) || !future.result())
            return {};
        const double scale =
            future.result()->width() / double(QGuiApplication::primaryScreen()->size().width());
        return future.result()->pixelColor((QPointF(350, 200) * scale).toPoint());
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
