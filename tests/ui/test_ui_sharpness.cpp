/// Icons and hairlines at the device pixel ratio of this run, which may be fractional: every pixel
/// of a rendered icon is one device pixel, and hairlines have the same thickness everywhere.
#include "UiStage.h"
#include "support/TestProgram.h"
#include "ui/IconItem.h"

#include <QPainter>

using namespace quellora;

namespace {

/// The window with the rendered @p icon placed on whole device pixels next to its position.
QImage expected(const QImage &background, const IconItem &icon, qreal ratio)
{
    QImage image = background;
    const int pixels = qRound(icon.width() * ratio);
    const qreal side = pixels / ratio;
    const QPointF corner =
        icon.mapToScene({(icon.width() - side) / 2, (icon.height() - side) / 2}) * ratio;
    QImage rendered = icon.render(pixels);
    rendered.setDevicePixelRatio(1);
    QPainter painter(&image);
    painter.drawImage(corner.toPoint(), rendered);
    return image;
}

/// The largest difference of a channel between two images of the same size.
int difference(const QImage &one, const QImage &other)
{
    int largest = one.size() == other.size() ? 0 : 255;
    for (int y = 0; largest < 255 && y < one.height(); ++y) {
        for (int x = 0; x < one.width(); ++x) {
            const QRgb a = one.pixel(x, y);
            const QRgb b = other.pixel(x, y);
            largest = std::max({largest, std::abs(qRed(a) - qRed(b)),
                                std::abs(qGreen(a) - qGreen(b)), std::abs(qBlue(a) - qBlue(b))});
        }
    }
    return largest;
}

} // namespace

class TestUiSharpness : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { initializeUi(); }

    void iconIsAlignedOnDevicePixels_data();
    void iconIsAlignedOnDevicePixels();
    void iconStaysAlignedWhenItsParentMoves();
    void turnedIconIsShown();
    void hairlinesHaveOneThickness();
};

void TestUiSharpness::iconIsAlignedOnDevicePixels_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QPointF>("at");
    for (const int size : {8, 10, 12, 14, 16, 28}) {
        for (const QPointF at : {QPointF(20, 20), QPointF(21, 22), QPointF(23, 21.5)}) {
            QTest::addRow("%d at %g, %g", size, at.x(), at.y()) << size << at;
        }
    }
}

void TestUiSharpness::iconIsAlignedOnDevicePixels()
{
    QFETCH(int, size);
    QFETCH(QPointF, at);
    Stage stage(QByteArrayLiteral("Rectangle { anchors.fill: parent; color: \"#202428\" }\n"
                                  "Icon { objectName: \"icon\"; name: \"copy\"; visible: false }"));
    QVERIFY(stage.ready);
    const QImage background = stage.window.grabWindow().convertToFormat(QImage::Format_RGB32);
    auto *icon = qobject_cast<IconItem *>(stage.item(QStringLiteral("icon")));
    icon->setSize(size);
    icon->setPosition(at);
    icon->setVisible(true);
    const qreal ratio = stage.window.effectiveDevicePixelRatio();
    const QImage shown = stage.window.grabWindow().convertToFormat(QImage::Format_RGB32);
    QImage plain = background;
    plain.setDevicePixelRatio(1);
    QVERIFY(difference(shown, background) > 100);
    QVERIFY2(difference(shown, expected(plain, *icon, ratio)) <= 2,
             qPrintable(QString::number(difference(shown, expected(plain, *icon, ratio)))));
}

void TestUiSharpness::iconStaysAlignedWhenItsParentMoves()
{
    Stage stage(QByteArrayLiteral("Rectangle { anchors.fill: parent; color: \"#202428\" }\n"
                                  "Item { objectName: \"mover\"; Icon { objectName: \"icon\"; "
                                  "name: \"copy\"; visible: false } }"));
    QVERIFY(stage.ready);
    QImage background = stage.window.grabWindow().convertToFormat(QImage::Format_RGB32);
    background.setDevicePixelRatio(1);
    auto *icon = qobject_cast<IconItem *>(stage.item(QStringLiteral("icon")));
    icon->setVisible(true);
    const qreal ratio = stage.window.effectiveDevicePixelRatio();
    for (const qreal y : {10.0, 11.0, 12.5, 13.3, 14.0}) {
        stage.item(QStringLiteral("mover"))->setPosition({7, y});
        const QImage shown = stage.window.grabWindow().convertToFormat(QImage::Format_RGB32);
        QVERIFY2(
            difference(shown, expected(background, *icon, ratio)) <= 2,
            qPrintable(QString::number(difference(shown, expected(background, *icon, ratio)))));
    }
}

void TestUiSharpness::turnedIconIsShown()
{
    Stage stage(QByteArrayLiteral("Rectangle { anchors.fill: parent; color: \"#202428\" }\n"
                                  "Icon { objectName: \"icon\"; x: 20; y: 20; name: \"copy\"; "
                                  "rotation: 30 }"));
    QVERIFY(stage.ready);
    const QImage shown = stage.window.grabWindow();
    const qreal ratio = stage.window.effectiveDevicePixelRatio();
    // Around its middle, not moved away.
    int lit = 0;
    for (int y = qRound(20 * ratio); y < qRound(36 * ratio); ++y) {
        for (int x = qRound(20 * ratio); x < qRound(36 * ratio); ++x)
            lit += qRed(shown.pixel(x, y)) > 100;
    }
    QVERIFY(lit > 20);
}

void TestUiSharpness::hairlinesHaveOneThickness()
{
    Stage stage(QByteArrayLiteral(
        "Rectangle { anchors.fill: parent; color: \"black\" }\n"
        "Repeater { model: 12; Hairline { y: 5 + index * 13; width: 50; color: \"white\" } }\n"
        "Repeater { model: 12; Hairline { isVertical: true; x: 205 + index * 13; y: 20; "
        "height: 50; color: \"white\" } }"));
    QVERIFY(stage.ready);
    const QImage shown = stage.window.grabWindow().convertToFormat(QImage::Format_RGB32);
    const qreal ratio = stage.window.effectiveDevicePixelRatio();
    const auto runs = [](const QList<int> &values) {
        QList<int> lengths;
        for (qsizetype i = 0; i < values.size(); ++i) {
            if (values[i] == 0)
                continue;
            // Neither blurred nor dimmed.
            if (values[i] != 255)
                return QList<int>{-1};
            if (i == 0 || values[i - 1] == 0)
                lengths << 0;
            ++lengths.last();
        }
        return lengths;
    };
    QList<int> column;
    for (int y = 0; y < shown.height(); ++y)
        column << qRed(shown.pixel(qRound(25 * ratio), y));
    QList<int> row;
    for (int x = qRound(100 * ratio); x < shown.width(); ++x)
        row << qRed(shown.pixel(x, qRound(45 * ratio)));
    const int thickness = std::max(1, qRound(ratio));
    QCOMPARE(runs(column), QList<int>(12, thickness));
    QCOMPARE(runs(row), QList<int>(12, thickness));
}

QUELLORA_TEST(QGuiApplication, TestUiSharpness)
#include "test_ui_sharpness.moc"
