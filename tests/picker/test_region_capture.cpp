#include "base/Settings.h"
#include "base/UserDefaults.h"
#include "fakes/FakePanelWindow.h"
#include "fakes/LogCapture.h"
#include "picker/RegionCapture.h"
#include "picker/RegionWindow.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QPromise>
#include <QScreen>
#include <QSignalSpy>

using namespace quellora;
using Kind = ScreenshotCapture::CaptureError::Kind;

namespace {

/// Every pixel says where it is.
QImage pattern(const QSize &size)
{
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            image.setPixel(x, y,
                           qRgb(64 + x * 160 / size.width(), 64 + y * 160 / size.height(), 0));
    }
    return image;
}

bool isNear(QRgb a, QRgb b)
{
    return qAbs(qRed(a) - qRed(b)) < 12 && qAbs(qGreen(a) - qGreen(b)) < 12;
}

} // namespace

class TestRegionCapture : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_log = std::make_unique<LogCapture>();
        m_panels = std::make_unique<FakePanelWindow>();
        m_defaults = std::make_unique<JsonUserDefaults>();
        m_settings = std::make_unique<Settings>(*m_defaults);
        m_screen = QGuiApplication::primaryScreen();
        m_layout = ScreenLayout{{m_screen->geometry()}, 0};
        m_picture = pattern(m_screen->size() * 2);
        m_capture = std::make_unique<RegionCapture>(
            RegionCapture::Collaborators{[this] {
                                             m_freezes.emplace_back().start();
                                             return m_freezes.back().future();
                                         },
                                         [this] { return m_layout; }, *m_panels, *m_settings});
    }
    void cleanup()
    {
        m_capture.reset();
        QVERIFY(QGuiApplication::topLevelWindows().isEmpty());
        m_freezes.clear();
        m_settings.reset();
        m_log.reset();
    }

    void chosenPartIsCaptured()
    {
        const auto future = m_capture->capture(false);
        QVERIFY2(!window(), "shown before the screens are frozen");
        freeze();
        QVERIFY(window());
        drag({100, 50}, {199, 99});
        QTest::keyClick(window(), Qt::Key_Return);
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
        QVERIFY2(!window(), "the picker is still there");
        const auto outcome = future.result();
        QVERIFY(outcome);
        QVERIFY(!outcome->isForLater);
        const QImage sent = QImage::fromData(outcome->jpegData);
        const QRect part(QPoint(200, 100), QPoint(398, 198));
        QCOMPARE(sent.size(), part.size());
        QVERIFY(isNear(sent.pixel(5, 5), m_picture.pixel(205, 105)));
        QVERIFY(isNear(sent.pixel(190, 90), m_picture.pixel(390, 190)));
        QCOMPARE(m_settings->lastCaptureRegion(), QStringLiteral("200,100 199x99 of %1x%2 on %3")
                                                      .arg(m_picture.width())
                                                      .arg(m_picture.height())
                                                      .arg(m_screen->name()));
    }

    void shiftReturnIsForLater()
    {
        const auto future = m_capture->capture(false);
        freeze();
        drag({100, 50}, {199, 99});
        QTest::keyClick(window(), Qt::Key_Return, Qt::ShiftModifier);
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
        QVERIFY(future.result()->isForLater);
    }

    void wideRegionIsScaled()
    {
        const auto future = m_capture->capture(false);
        freeze();
        drag({1, 1}, {m_screen->size().width() - 1, 99});
        QTest::keyClick(window(), Qt::Key_Return);
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
        QCOMPARE(QImage::fromData(future.result()->jpegData).width(), 1280);
    }

    void escapeIsDismissed()
    {
        const auto future = m_capture->capture(false);
        freeze();
        drag({100, 50}, {199, 99});
        QTest::keyClick(window(), Qt::Key_Escape);
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
        QCOMPARE(future.result().error().kind, Kind::Dismissed);
        QVERIFY(!window());
        QCOMPARE(m_settings->lastCaptureRegion(), QString());
    }

    void blackRegionIsProtectedContent()
    {
        m_picture.fill(Qt::black);
        const auto future = m_capture->capture(false);
        freeze();
        drag({100, 50}, {199, 99});
        QTest::keyClick(window(), Qt::Key_Return);
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
        QCOMPARE(future.result().error().kind, Kind::ProtectedContent);
    }

    void darkRegionWithSmallTextIsAccepted()
    {
        m_picture.fill(Qt::black);
        // Between the points at which whole screens are sampled.
        for (int x = 201; x < 390; x += 16)
            m_picture.setPixel(x, 105, qRgb(200, 200, 200));
        const auto future = m_capture->capture(false);
        freeze();
        drag({100, 50}, {199, 59});
        QTest::keyClick(window(), Qt::Key_Return);
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
        QVERIFY(future.result());
    }

    void failedFreezeIsPassedOn()
    {
        const auto future = m_capture->capture(false);
        m_freezes.back().addResult(tl::unexpected(
            ScreenshotCapture::CaptureError{Kind::Refused, QStringLiteral("not allowed"), 0}));
        m_freezes.back().finish();
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
        QCOMPARE(future.result().error().description(), "not allowed");
        QVERIFY(!window());
    }

    void pictureOfAnotherShapeFails()
    {
        // Two screens side by side; the picture shows one.
        m_layout.screens = {QRect(0, 0, 800, 800), QRect(800, 0, 800, 800)};
        const auto future = m_capture->capture(false);
        freeze();
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
        QCOMPARE(future.result().error().kind, Kind::SourceFailed);
        QVERIFY(!window());
    }

    void ownPartOfSeveralScreens()
    {
        // The application knows the left one.
        m_layout.screens = {QRect(0, 0, 100, 100), QRect(100, 0, 100, 100)};
        m_picture = pattern(QSize(800, 400));
        const auto future = m_capture->capture(false);
        freeze();
        QVERIFY(window());
        QCOMPARE(window()->picture().size(), QSize(400, 400));
        QTest::keyClick(window(), Qt::Key_Escape);
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
    }

    void lastRegionNeedsNoChoice()
    {
        m_settings->setLastCaptureRegion(stored(m_picture.size(), m_screen->name()));
        const auto future = m_capture->capture(true);
        freeze();
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
        QVERIFY(!window());
        const QImage sent = QImage::fromData(future.result()->jpegData);
        QCOMPARE(sent.size(), QSize(60, 50));
        QVERIFY(isNear(sent.pixel(30, 25), m_picture.pixel(60, 45)));
    }

    void lastRegionIsChosenAnew_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("never chosen") << "";
        QTest::newRow("damaged") << "1,2,3";
        QTest::newRow("other screen")
            << stored(QGuiApplication::primaryScreen()->size() * 2, "gone");
        QTest::newRow("other size")
            << stored(QSize(640, 480), QGuiApplication::primaryScreen()->name());
    }
    void lastRegionIsChosenAnew()
    {
        QFETCH(QString, text);
        m_settings->setLastCaptureRegion(text);
        const auto future = m_capture->capture(true);
        freeze();
        QVERIFY(window());
        QVERIFY(!future.isFinished());
        QTest::keyClick(window(), Qt::Key_Escape);
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
    }

    void oneChoiceAtATime()
    {
        const auto first = m_capture->capture(false);
        const auto early = m_capture->capture(false);
        freeze(0);
        freeze(1);
        QVERIFY(QTest::qWaitFor([&] { return early.isFinished(); }));
        QCOMPARE(early.result().error().kind, Kind::Dismissed);
        const auto late = m_capture->capture(false);
        QVERIFY(late.isFinished());
        QCOMPARE(late.result().error().kind, Kind::Dismissed);
        QCOMPARE(m_freezes.size(), 2U);
        QCOMPARE(QGuiApplication::topLevelWindows().size(), 1);
        QVERIFY(!first.isFinished());
        // The last region meanwhile disturbs nobody.
        m_settings->setLastCaptureRegion(stored(m_picture.size(), m_screen->name()));
        const auto again = m_capture->capture(true);
        freeze(2);
        QVERIFY(QTest::qWaitFor([&] { return again.isFinished(); }));
        QVERIFY(again.result());
        QVERIFY(window());
        QTest::keyClick(window(), Qt::Key_Escape);
        QVERIFY(QTest::qWaitFor([&] { return first.isFinished(); }));
    }

    void cancelEndsChoice()
    {
        auto future = m_capture->capture(false);
        freeze();
        QVERIFY(window());
        future.cancel();
        QVERIFY(QTest::qWaitFor([&] { return !window() && future.isFinished(); }));
        QCOMPARE(future.resultCount(), 0);
        // The next one works.
        const auto next = m_capture->capture(false);
        freeze(1);
        QVERIFY(window());
        QTest::keyClick(window(), Qt::Key_Escape);
        QVERIFY(QTest::qWaitFor([&] { return next.isFinished(); }));
    }

    void cancelStopsFreeze()
    {
        auto future = m_capture->capture(false);
        future.cancel();
        QVERIFY(QTest::qWaitFor([&] { return m_freezes.back().isCanceled(); }));
        m_freezes.back().finish();
        QVERIFY(!window());
    }

    void endOfProgramEndsChoice()
    {
        const auto future = m_capture->capture(false);
        freeze();
        QVERIFY(window());
        m_capture.reset();
        QVERIFY(future.isCanceled());
        QVERIFY(!window());
    }

    void showingIsAnnounced()
    {
        QSignalSpy shown(m_capture.get(), &RegionCapture::pickerShown);
        const auto future = m_capture->capture(false);
        freeze();
        QTRY_COMPARE(shown.size(), 1);
        QVERIFY(m_log->lines.last().startsWith("[RegionCapture] Region shown after "));
        QTest::keyClick(window(), Qt::Key_Escape);
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }));
    }

private:
    static QString stored(const QSize &picture, const QString &screen)
    {
        return QStringLiteral("30,20 60x50 of %1x%2 on %3")
            .arg(picture.width())
            .arg(picture.height())
            .arg(screen);
    }
    RegionWindow *window() const
    {
        const QWindowList windows = QGuiApplication::topLevelWindows();
        for (QWindow *candidate : windows) {
            if (auto *region = qobject_cast<RegionWindow *>(candidate))
                return region;
        }
        return nullptr;
    }
    void freeze(std::size_t index = 0)
    {
        m_freezes.at(index).addResult(m_picture);
        m_freezes.at(index).finish();
        QCoreApplication::processEvents();
    }
    void drag(QPoint from, QPoint to)
    {
        QTest::mousePress(window(), Qt::LeftButton, {}, from);
        QTest::mouseMove(window(), to);
        QTest::mouseRelease(window(), Qt::LeftButton, {}, to);
    }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<FakePanelWindow> m_panels;
    std::unique_ptr<JsonUserDefaults> m_defaults;
    std::unique_ptr<Settings> m_settings;
    QScreen *m_screen = nullptr;
    ScreenLayout m_layout;
    QImage m_picture;
    std::vector<QPromise<ScreenshotCapture::Frozen>> m_freezes;
    std::unique_ptr<RegionCapture> m_capture;
};

QUELLORA_TEST(QGuiApplication, TestRegionCapture)
#include "test_region_capture.moc"
