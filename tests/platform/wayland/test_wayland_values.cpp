#include "platform/wayland/PointerFollower.h"
#include "platform/wayland/WaylandKeyboard.h"
#include "support/TestProgram.h"

#include <QtTest>

#include <xkbcommon/xkbcommon.h>

using namespace quellora;

namespace {

/// The keymap of a layout as a compositor sends it, with its final zero.
QByteArray keymapOf(const char *layout)
{
    xkb_context *context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    const xkb_rule_names names{nullptr, nullptr, layout, nullptr, nullptr};
    xkb_keymap *map = xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
    char *text = xkb_keymap_get_as_string(map, XKB_KEYMAP_FORMAT_TEXT_V1);
    const QByteArray result(text, qsizetype(qstrlen(text)) + 1);
    free(text);
    xkb_keymap_unref(map);
    xkb_context_unref(context);
    return result;
}

} // namespace

class WaylandValuesTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void keysHaveTheNamesOfTheLayout_data();
    void keysHaveTheNamesOfTheLayout();
    void malformedKeymapHasNoKeys();
    void pointerStaysOnTheScreens_data();
    void pointerStaysOnTheScreens();
};

void WaylandValuesTest::keysHaveTheNamesOfTheLayout_data()
{
    QTest::addColumn<QByteArray>("layout");
    QTest::addColumn<int>("scanCode");
    QTest::addColumn<QString>("name");
    QTest::newRow("c") << QByteArray("us") << 54 << QStringLiteral("c");
    QTest::newRow("bracket") << QByteArray("us") << 34 << QStringLiteral("[");
    QTest::newRow("y where z is in the American layout")
        << QByteArray("de") << 52 << QStringLiteral("y");
    QTest::newRow("letters of another script keep their place")
        << QByteArray("ru") << 54 << QStringLiteral("c");
    QTest::newRow("no character") << QByteArray("us") << 9 << QString();
}

void WaylandValuesTest::keysHaveTheNamesOfTheLayout()
{
    QFETCH(QByteArray, layout);
    QFETCH(int, scanCode);
    QFETCH(QString, name);
    const KeyLayoutX11 keys(WaylandKeyboard::keys(keymapOf(layout.constData())), {});
    QCOMPARE(keys.keyName(quint32(scanCode)), name);
}

void WaylandValuesTest::malformedKeymapHasNoKeys()
{
    QVERIFY(WaylandKeyboard::keys({}).isEmpty());
    QVERIFY(WaylandKeyboard::keys("xkb_keymap { nonsense").isEmpty());
    // Without its final zero.
    const QByteArray whole = keymapOf("us");
    QVERIFY(WaylandKeyboard::keys(whole.left(whole.size() / 2)).isEmpty());
}

void WaylandValuesTest::pointerStaysOnTheScreens_data()
{
    QTest::addColumn<QList<QRect>>("screens");
    QTest::addColumn<QPointF>("position");
    QTest::addColumn<QPointF>("kept");
    const QList<QRect> one{QRect(0, 0, 1280, 800)};
    const QList<QRect> two{QRect(0, 0, 1280, 800), QRect(1280, 100, 1920, 1080)};
    QTest::newRow("inside") << one << QPointF(3.5, 7) << QPointF(3.5, 7);
    QTest::newRow("above") << one << QPointF(300, -20) << QPointF(300, 0);
    QTest::newRow("beyond the corner") << one << QPointF(1300, 900) << QPointF(1279, 799);
    QTest::newRow("on the other screen") << two << QPointF(1300, 900) << QPointF(1300, 900);
    QTest::newRow("above the lower one") << two << QPointF(1400, 50) << QPointF(1400, 100);
    QTest::newRow("no screen") << QList<QRect>{} << QPointF(5, 6) << QPointF(5, 6);
}

void WaylandValuesTest::pointerStaysOnTheScreens()
{
    QFETCH(QList<QRect>, screens);
    QFETCH(QPointF, position);
    QFETCH(QPointF, kept);
    QCOMPARE(PointerFollower::keptOn(screens, position), kept);
}

QUELLORA_TEST(QCoreApplication, WaylandValuesTest)
#include "test_wayland_values.moc"
