/// Compares screenshots of the panel with references block by block. Tolerates small differences in
/// text rendering between library versions, but not moved or recoloured controls.
#include "OverlayFixture.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QGuiApplication>
#include <QTest>

#include <cmath>

using namespace quellora;

namespace {

/// Side of a block in pixels; the smallest control is a few blocks wide.
constexpr int blockSize = 8;
/// Tolerated difference of a block's mean in one channel, from 0 to 255.
constexpr int meanTolerance = 6;
/// Share of blocks that may exceed meanTolerance, for slightly different glyphs.
constexpr double maxDeviatingShare = 0.0005;
/// Difference that no block may exceed.
constexpr int maxBlockDifference = 40;

/// Returns an image with one pixel per block of @p image, the block's mean colour. References are
/// stored in this form.
QImage blockMeans(const QImage &image)
{
    QImage means((image.width() + blockSize - 1) / blockSize,
                 (image.height() + blockSize - 1) / blockSize, QImage::Format_RGB32);
    for (int top = 0; top < image.height(); top += blockSize) {
        for (int left = 0; left < image.width(); left += blockSize) {
            const int right = std::min(left + blockSize, image.width());
            const int bottom = std::min(top + blockSize, image.height());
            int red = 0;
            int green = 0;
            int blue = 0;
            for (int y = top; y < bottom; ++y) {
                for (int x = left; x < right; ++x) {
                    const QRgb pixel = image.pixel(x, y);
                    red += qRed(pixel);
                    green += qGreen(pixel);
                    blue += qBlue(pixel);
                }
            }
            const int count = (right - left) * (bottom - top);
            means.setPixel(left / blockSize, top / blockSize,
                           qRgb(red / count, green / count, blue / count));
        }
    }
    return means;
}

struct Difference
{
    int blocks = 0;
    int deviating = 0;
    int largest = 0;
    /// Bounding rectangle of the deviating blocks, in pixels.
    QRect area;
    QPoint largestAt;

    bool isTooLarge() const
    {
        return deviating > int(std::floor(blocks * maxDeviatingShare)) ||
               largest > maxBlockDifference;
    }
    QString text() const
    {
        return QStringLiteral("%1 of %2 blocks differ within (%3, %4, %5 x %6) px; most at "
                              "(%7, %8), by %9 of 255")
            .arg(deviating)
            .arg(blocks)
            .arg(area.x())
            .arg(area.y())
            .arg(area.width())
            .arg(area.height())
            .arg(largestAt.x())
            .arg(largestAt.y())
            .arg(largest);
    }
};

Difference compare(const QImage &actualMeans, const QImage &expectedMeans)
{
    Difference difference;
    for (int y = 0; y < expectedMeans.height(); ++y) {
        for (int x = 0; x < expectedMeans.width(); ++x) {
            const QRgb a = actualMeans.pixel(x, y);
            const QRgb b = expectedMeans.pixel(x, y);
            const int by = std::max({std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)),
                                     std::abs(qBlue(a) - qBlue(b))});
            const QRect block(x * blockSize, y * blockSize, blockSize, blockSize);
            ++difference.blocks;
            if (by > difference.largest) {
                difference.largest = by;
                difference.largestAt = block.topLeft();
            }
            if (by <= meanTolerance)
                continue;
            ++difference.deviating;
            difference.area |= block;
        }
    }
    return difference;
}

} // namespace

class TestPictures : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void matchesReference_data();
    void matchesReference();
    void comparisonDetectsChanges_data();
    void comparisonDetectsChanges();

private:
    static QImage render(const QString &state, bool isLight, const QSize &size);
    static QString referencePath(const QString &name);
};

void TestPictures::initTestCase()
{
    initializeUi();
    // The bundled font and the software renderer make rendering independent of the machine.
    QCOMPARE(QFontInfo(QGuiApplication::font()).family(), QStringLiteral("Inter"));
    QCOMPARE(qEnvironmentVariable("QT_QUICK_BACKEND"), QStringLiteral("software"));
}

QString TestPictures::referencePath(const QString &name)
{
    return QStringLiteral(QUELLORA_PICTURES "/%1.png").arg(name);
}

QImage TestPictures::render(const QString &state, bool isLight, const QSize &size)
{
    OverlayFixture f;
    FakeAppearance system;
    system.setReducesMotion(true);
    followMotion(f.engine, system);
    f.panel.resize(size);
    if (isLight) {
        f.overlay.setAppliedTheme(AppTheme::Light);
        f.stored.setAppearance(Settings::Appearance::Light);
    }
    // Draw opaquely, so that the background does not show through.
    f.platform.setCompositing(false);
    f.show();
    if (!QTest::qWaitForWindowExposed(&f.panel))
        return {};
    using Activity = OverlayModel::Activity;
    for (const QString &part : state.split(QLatin1Char('+'))) {
        if (part == QLatin1String("thread")) {
            f.overlay.setTitle(QStringLiteral("Which week is the outlier?"));
            f.overlay.setHasAnswer(true);
            reportPosition(f.scrollbar, 0, 900, 532);
        } else if (part == QLatin1String("card")) {
            f.panels.setAdminMessage(OverlayFixture::blocking());
            f.panels.setBlocked(true);
            f.overlay.setSendingBlocked(true);
        } else if (part == QLatin1String("attached")) {
            f.panels.setStagedScreenshotData(OverlayFixture::screenshot());
        } else if (part == QLatin1String("streaming")) {
            f.overlay.setActivity(Activity::Streaming);
            f.panels.setPromptText(QStringLiteral("Which week is the outlier?"));
        } else if (part == QLatin1String("usage")) {
            f.overlay.setUsage(85);
            f.menu.setUsage(850000, 1000000, false);
        } else if (part == QLatin1String("menu")) {
            f.menu.setHistoryAvailable(true);
            f.menu.setSettingsAvailable(true);
            f.overlay.setMenuOpen(true);
        } else if (part == QLatin1String("history")) {
            f.addThreads();
            f.history.historyButtonClicked();
            if (!QTest::qWaitFor([&f] { return f.sidebar.rowCount() == 6; }))
                return {};
        } else if (part == QLatin1String("delete")) {
            f.sidebar.requestDelete(5);
        } else if (part == QLatin1String("settings")) {
            f.settings.setOpen(true);
        }
    }
    // Wait for fades and asynchronously loaded images: until two consecutive screenshots are equal.
    QImage last;
    for (int attempt = 0; attempt < 40; ++attempt) {
        QTest::qWait(100);
        const QImage now = f.panel.grabWindow().convertToFormat(QImage::Format_RGB32);
        if (attempt > 1 && now == last)
            return now;
        last = now;
    }
    return last;
}

void TestPictures::matchesReference_data()
{
    QTest::addColumn<QString>("state");
    QTest::addColumn<bool>("light");
    QTest::addColumn<QSize>("size");
    const QSize regular(624, 744);
    const QSize small(320, 280);
    QTest::newRow("idle-dark") << "idle" << false << regular;
    QTest::newRow("thread-card-light") << "thread+card" << true << regular;
    QTest::newRow("streaming-dark") << "streaming+usage+attached" << false << regular;
    QTest::newRow("compact-dark") << "thread" << false << small;
    QTest::newRow("menu-dark") << "thread+usage+menu" << false << regular;
    QTest::newRow("history-dark") << "thread+history" << false << regular;
    QTest::newRow("history-light") << "thread+history" << true << regular;
    QTest::newRow("history-compact-light") << "thread+history" << true << small;
    QTest::newRow("delete-dark") << "thread+history+delete" << false << regular;
    QTest::newRow("settings-dark") << "settings" << false << regular;
    QTest::newRow("settings-light") << "settings" << true << regular;
}

void TestPictures::matchesReference()
{
    QFETCH(QString, state);
    QFETCH(bool, light);
    QFETCH(QSize, size);
    const int scale = qRound(qGuiApp->devicePixelRatio());
    const QString name =
        QStringLiteral("%1@%2x").arg(QLatin1StringView(QTest::currentDataTag())).arg(scale);
    const QImage actual = render(state, light, size);
    QCOMPARE(actual.size(), size * scale);
    const QImage means = blockMeans(actual);

    if (qEnvironmentVariableIsSet("QUELLORA_RENEW_PICTURES")) {
        QVERIFY(means.convertToFormat(QImage::Format_RGB888).save(referencePath(name), "PNG", 0));
        return;
    }
    const QImage expected = QImage(referencePath(name)).convertToFormat(QImage::Format_RGB32);
    QVERIFY2(!expected.isNull(), "There is no reference; see docs/TESTING.md");
    QCOMPARE(means.size(), expected.size());
    const Difference difference = compare(means, expected);
    if (!difference.isTooLarge())
        return;
    const QDir out(QStringLiteral(QUELLORA_PICTURES_OUT));
    QVERIFY(out.mkpath(QStringLiteral(".")));
    const QString kept = out.filePath(name + QStringLiteral(".png"));
    QVERIFY(actual.save(kept));
    QFAIL(qPrintable(difference.text() + QStringLiteral("; see ") + kept));
}

void TestPictures::comparisonDetectsChanges_data()
{
    QTest::addColumn<int>("dx");
    QTest::addColumn<int>("dColor");
    QTest::addColumn<bool>("isDetected");
    QTest::newRow("no change") << 0 << 0 << false;
    QTest::newRow("moved by 4 px") << 4 << 0 << true;
    QTest::newRow("different shade") << 0 << 12 << true;
    QTest::newRow("similar shade") << 0 << 3 << false;
}

void TestPictures::comparisonDetectsChanges()
{
    QFETCH(int, dx);
    QFETCH(int, dColor);
    QFETCH(bool, isDetected);
    QImage one(624, 744, QImage::Format_RGB32);
    one.fill(QColor(18, 18, 28));
    QImage other = one;
    QPainter(&one).fillRect(QRect(101, 300, 36, 28), QColor(28, 106, 208));
    QPainter(&other).fillRect(QRect(101 + dx, 300, 36, 28), QColor(28, 106, 208 - dColor));
    QCOMPARE(compare(blockMeans(other), blockMeans(one)).isTooLarge(), isDetected);
}

QUELLORA_TEST(QGuiApplication, TestPictures)
#include "test_pictures.moc"
