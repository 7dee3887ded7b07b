#include "platform/linux/InputShapeX11.h"
#include "platform/linux/X11EventClock.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QtTest>

#include <cstring>

using namespace quellora;

/// The parts of the X11 port that do not need a server.
class X11ValuesTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void inputRegionExcludesResponseArea_data();
    void inputRegionExcludesResponseArea();
    void readsTimestampOfEvents();
};

void X11ValuesTest::inputRegionExcludesResponseArea_data()
{
    QTest::addColumn<QSize>("window");
    QTest::addColumn<QRect>("response");
    QTest::addColumn<qreal>("scale");
    QTest::addColumn<QRegion>("expected");
    QTest::newRow("left edge")
        << QSize(624, 744) << QRect(0, 72, 596, 472) << 1.0
        << QRegion(0, 0, 624, 72).united(QRect(596, 72, 28, 472)).united(QRect(0, 544, 624, 200));
    QTest::newRow("double density")
        << QSize(100, 100) << QRect(0, 10, 90, 50) << 2.0
        << QRegion(0, 0, 200, 20).united(QRect(180, 20, 20, 100)).united(QRect(0, 120, 200, 80));
    QTest::newRow("fraction")
        << QSize(101, 101) << QRect(0, 33, 73, 35) << 1.5
        << QRegion(0, 0, 152, 50).united(QRect(110, 50, 42, 52)).united(QRect(0, 102, 152, 50));
    QTest::newRow("whole window") << QSize(100, 100) << QRect(0, 0, 100, 100) << 1.0 << QRegion();
    QTest::newRow("beyond the window")
        << QSize(100, 100) << QRect(-10, -10, 500, 60) << 1.0 << QRegion(0, 50, 100, 50);
    QTest::newRow("beside the window")
        << QSize(100, 100) << QRect(200, 0, 50, 50) << 1.0 << QRegion(0, 0, 100, 100);
    QTest::newRow("empty") << QSize(100, 100) << QRect() << 1.0 << QRegion(0, 0, 100, 100);
}

void X11ValuesTest::inputRegionExcludesResponseArea()
{
    QFETCH(QSize, window);
    QFETCH(QRect, response);
    QFETCH(qreal, scale);
    QFETCH(QRegion, expected);
    QCOMPARE(inputRegion(window, response, scale), expected);
}

void X11ValuesTest::readsTimestampOfEvents()
{
    constexpr quint8 inputExtension = 131;
    alignas(8) char bytes[64] = {};
    const auto *event = reinterpret_cast<const xcb_generic_event_t *>(bytes);
    const auto timeOf = [&] { return X11EventClock::timeOf(event, inputExtension); };

    auto *key = reinterpret_cast<xcb_key_press_event_t *>(bytes);
    key->time = 1234;
    for (const int type : {XCB_KEY_PRESS, XCB_KEY_RELEASE, XCB_BUTTON_PRESS, XCB_BUTTON_RELEASE,
                           XCB_MOTION_NOTIFY, XCB_ENTER_NOTIFY, XCB_LEAVE_NOTIFY}) {
        key->response_type = static_cast<uint8_t>(type);
        QCOMPARE(timeOf(), 1234U);
        key->response_type |= 0x80;
        QCOMPARE(timeOf(), 1234U);
    }
    key->response_type = XCB_EXPOSE;
    QCOMPARE(timeOf(), xcb_timestamp_t(XCB_CURRENT_TIME));

    std::memset(bytes, 0, sizeof bytes);
    auto *property = reinterpret_cast<xcb_property_notify_event_t *>(bytes);
    property->response_type = XCB_PROPERTY_NOTIFY;
    property->time = 77;
    QCOMPARE(timeOf(), 77U);

    std::memset(bytes, 0, sizeof bytes);
    auto *generic = reinterpret_cast<xcb_ge_generic_event_t *>(bytes);
    generic->response_type = XCB_GE_GENERIC;
    generic->extension = inputExtension;
    const xcb_timestamp_t time = 4321;
    std::memcpy(bytes + 12, &time, sizeof time);
    QCOMPARE(timeOf(), 4321U);
    generic->extension = inputExtension + 1;
    QCOMPARE(timeOf(), xcb_timestamp_t(XCB_CURRENT_TIME));
    generic->extension = 0;
    QCOMPARE(X11EventClock::timeOf(event, 0), xcb_timestamp_t(XCB_CURRENT_TIME));
}

QUELLORA_TEST(QCoreApplication, X11ValuesTest)
#include "test_x11_values.moc"
