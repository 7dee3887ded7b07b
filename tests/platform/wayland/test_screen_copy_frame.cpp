#include "platform/wayland/ScreenCopyFrame.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QtTest>

#include <unistd.h>
#include <wayland-client-protocol.h>

using namespace quellora;

namespace {

/// Four pixels with different colours: red, green above blue, white.
QImage corners()
{
    QImage image(2, 2, QImage::Format_RGB32);
    image.setPixelColor(0, 0, Qt::red);
    image.setPixelColor(1, 0, Qt::green);
    image.setPixelColor(0, 1, Qt::blue);
    image.setPixelColor(1, 1, Qt::white);
    return image;
}

/// The colours of the corners, row by row.
QString colours(const QImage &image)
{
    QString text;
    for (const QPoint &point :
         {QPoint(0, 0), QPoint(image.width() - 1, 0), QPoint(0, image.height() - 1),
          QPoint(image.width() - 1, image.height() - 1)}) {
        const QColor colour = image.pixelColor(point);
        text += colour == QColor(Qt::red)     ? u'r'
                : colour == QColor(Qt::green) ? u'g'
                : colour == QColor(Qt::blue)  ? u'b'
                : colour == QColor(Qt::white) ? u'w'
                                              : u'?';
    }
    return text;
}

QImage filled(const QSize &size, Qt::GlobalColor colour)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

} // namespace

class ScreenCopyFrameTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void formats_data()
    {
        QTest::addColumn<quint32>("format");
        QTest::addColumn<QImage::Format>("image");
        QTest::addColumn<QString>("reason");
        const auto row = [](const char *name, quint32 format, QImage::Format image,
                            const char *reason = "") {
            QTest::newRow(name) << format << image << QString::fromLatin1(reason);
        };
        row("ARGB8888", WL_SHM_FORMAT_ARGB8888, QImage::Format_RGB32);
        row("XRGB8888", WL_SHM_FORMAT_XRGB8888, QImage::Format_RGB32);
        row("ABGR8888", WL_SHM_FORMAT_ABGR8888, QImage::Format_RGBX8888);
        row("XBGR8888", WL_SHM_FORMAT_XBGR8888, QImage::Format_RGBX8888);
        row("XRGB2101010", WL_SHM_FORMAT_XRGB2101010, QImage::Format_Invalid, "10 bits");
        row("XBGR2101010", WL_SHM_FORMAT_XBGR2101010, QImage::Format_Invalid, "10 bits");
        row("ARGB2101010", WL_SHM_FORMAT_ARGB2101010, QImage::Format_Invalid, "10 bits");
        row("ABGR2101010", WL_SHM_FORMAT_ABGR2101010, QImage::Format_Invalid, "10 bits");
        row("RGB888", WL_SHM_FORMAT_RGB888, QImage::Format_Invalid, "format 34324752");
    }
    void formats()
    {
        QFETCH(quint32, format);
        QFETCH(QImage::Format, image);
        QFETCH(QString, reason);
        const auto result = FrameDescription{format, 10, 5, 40}.imageFormat();
        QCOMPARE(result.value_or(QImage::Format_Invalid), image);
        if (!result)
            QVERIFY2(result.error().contains(reason), qPrintable(result.error()));
    }

    void impossibleSizesAreRefused()
    {
        const quint32 format = WL_SHM_FORMAT_XRGB8888;
        for (const FrameDescription &description :
             {FrameDescription{format, 0, 5, 40}, FrameDescription{format, 10, 0, 40},
              FrameDescription{format, 10, 5, 39}, FrameDescription{format, 10, 5, 36},
              FrameDescription{format, 40'000, 5, 160'000},
              FrameDescription{format, 10, 40'000, 40},
              FrameDescription{format, 32'000, 32'000, 128'000}})
            QVERIFY(!description.imageFormat());
        QVERIFY((FrameDescription{format, 10, 5, 64}.imageFormat()));
    }

    void sharedPixelsKeepTheirSize()
    {
        const auto pixels = SharedPixels::create(4096);
        QVERIFY(pixels);
        QCOMPARE(pixels->data()[4095], uchar(0));
        QVERIFY(::ftruncate(pixels->descriptor(), 0) != 0);
        QVERIFY(!SharedPixels::create(std::size_t{1} << 62));
    }

    void uprightImages_data()
    {
        QTest::addColumn<int>("transform");
        QTest::addColumn<bool>("isUpsideDown");
        QTest::addColumn<QString>("corners");
        QTest::newRow("normal") << 0 << false << QStringLiteral("rgbw");
        QTest::newRow("upside down") << 0 << true << QStringLiteral("bwrg");
        QTest::newRow("90") << 1 << false << QStringLiteral("brwg");
        QTest::newRow("180") << 2 << false << QStringLiteral("wbgr");
        QTest::newRow("270") << 3 << false << QStringLiteral("gwrb");
        QTest::newRow("flipped") << 4 << false << QStringLiteral("grwb");
    }
    void uprightImages()
    {
        QFETCH(int, transform);
        QFETCH(bool, isUpsideDown);
        QFETCH(QString, corners);
        QCOMPARE(colours(CopiedScreen{::corners(), QRect(), transform, isUpsideDown}.upright()),
                 corners);
    }

    void screensLieBesideEachOther()
    {
        // The second one has twice the scale and lies lower, left of the first.
        const QImage image = composeScreens(
            {CopiedScreen{filled({100, 80}, Qt::red), QRect(0, 0, 100, 80), 0, false},
             CopiedScreen{filled({120, 80}, Qt::green), QRect(-60, 40, 60, 40), 0, false}});
        QCOMPARE(image.size(), QSize(320, 160));
        QCOMPARE(image.pixelColor(220, 20), QColor(Qt::red));
        QCOMPARE(image.pixelColor(319, 159), QColor(Qt::red));
        QCOMPARE(image.pixelColor(60, 100), QColor(Qt::green));
        QCOMPARE(image.pixelColor(0, 80), QColor(Qt::green));
        QCOMPARE(image.pixelColor(60, 40), QColor(Qt::black));
    }

    void oneScreenIsNotScaled()
    {
        const QImage image = composeScreens(
            {CopiedScreen{filled({100, 80}, Qt::red), QRect(500, 500, 50, 40), 1, false}});
        QCOMPARE(image.size(), QSize(80, 100));
    }

    void tooLargePicturesAreRefused()
    {
        QVERIFY(composeScreens(
                    {CopiedScreen{filled({10, 10}, Qt::red), QRect(0, 0, 10, 10), 0, false},
                     CopiedScreen{filled({10, 10}, Qt::red), QRect(40'000, 0, 10, 10), 0, false}})
                    .isNull());
        QVERIFY(composeScreens({}).isNull());
    }
};

QUELLORA_TEST(QGuiApplication, ScreenCopyFrameTest)
#include "test_screen_copy_frame.moc"
