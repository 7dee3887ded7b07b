#include "sheets/look/LookModel.h"
#include "support/TestProgram.h"

#include <QBuffer>
#include <QSignalSpy>

using namespace quellora;

namespace {

QByteArray jpeg(const QSize &size, QColor colour)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    QByteArray data;
    QBuffer buffer(&data);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPG");
    return data;
}

} // namespace

class TestLookModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void showsPicture()
    {
        LookModel model;
        QVERIFY(!model.isOpen());
        QCOMPARE(model.caption(), QString());
        model.setJpeg(jpeg({64, 48}, Qt::red));
        QVERIFY(model.isOpen());
        QVERIFY2(model.picture().isNull(), "decoded on the main thread");
        QCOMPARE(model.caption(), QString());
        QTRY_COMPARE(model.picture().size(), QSize(64, 48));
        QCOMPARE(model.caption(), QString::fromUtf8("64 × 48 · goes with your prompt"));
        model.setJpeg({});
        QVERIFY(!model.isOpen());
        QVERIFY(model.picture().isNull());
    }

    void damagedPicture()
    {
        LookModel model;
        model.setJpeg("no picture");
        QVERIFY(model.isOpen());
        QTRY_COMPARE(model.caption(), "The picture cannot be shown");
        QVERIFY(model.isOpen());
    }

    void newerPictureWins()
    {
        LookModel model;
        model.setJpeg(jpeg({1200, 900}, Qt::red));
        model.setJpeg(jpeg({10, 10}, Qt::blue));
        QTRY_COMPARE(model.picture().size(), QSize(10, 10));
        QTest::qWait(100);
        QCOMPARE(model.picture().size(), QSize(10, 10));
    }

    void closedMeanwhile()
    {
        LookModel model;
        model.setJpeg(jpeg({1200, 900}, Qt::red));
        model.setJpeg({});
        QSignalSpy changed(&model, &LookModel::pictureChanged);
        model.setJpeg({});
        QVERIFY(changed.isEmpty());
        QTest::qWait(100);
        QVERIFY(model.picture().isNull());
        QVERIFY(changed.isEmpty());
    }

    void requestsNeedPicture()
    {
        LookModel model;
        QSignalSpy sends(&model, &LookModel::sendRequested);
        QSignalSpy attaches(&model, &LookModel::attachRequested);
        QSignalSpy drops(&model, &LookModel::dropRequested);
        for (int round = 0; round < 2; ++round) {
            model.send();
            model.attach();
            model.drop();
            QCOMPARE(sends.size(), round);
            QCOMPARE(attaches.size(), round);
            QCOMPARE(drops.size(), round);
            model.setJpeg(jpeg({8, 8}, Qt::red));
        }
    }
};

QUELLORA_TEST(QGuiApplication, TestLookModel)
#include "test_look_model.moc"
