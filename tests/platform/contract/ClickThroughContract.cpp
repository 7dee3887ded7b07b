#include "platform/contract/ClickThroughContract.h"

namespace quellora {
namespace {

const QRect rect{20, 40, 180, 100};

} // namespace

bool ClickThroughContract::isExact(const QRect &responseRect)
{
    const QPoint middle = responseRect.center();
    const QList<QPoint> inside{{middle.x(), responseRect.top()},
                               {middle.x(), responseRect.bottom()},
                               {responseRect.left(), middle.y()},
                               {responseRect.right(), middle.y()}};
    const QList<QPoint> outside{{middle.x(), responseRect.top() - 1},
                                {middle.x(), responseRect.bottom() + 1},
                                {responseRect.left() - 1, middle.y()},
                                {responseRect.right() + 1, middle.y()}};
    for (const QPoint &position : inside) {
        if (clickAt(position) != Receiver::Other) {
            qWarning() << "click not passed through at" << position;
            return false;
        }
    }
    panel().clicks.clear();
    for (const QPoint &position : outside) {
        if (clickAt(position) != Receiver::Panel) {
            qWarning() << "click not received at" << position;
            return false;
        }
    }
    return panel().clicks == outside;
}

void ClickThroughContract::wholeWindowReceivesClicksInitially()
{
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    for (const QPoint &position :
         {QPoint(0, 0), QPoint(239, 0), QPoint(0, 199), QPoint(239, 199), QPoint(120, 100)})
        QCOMPARE(clickAt(position), Receiver::Panel);
    QCOMPARE(other().clicks().size(), 0);
}

void ClickThroughContract::clicksInsidePassThrough()
{
    CONTRACT_REQUIRES(Ability::PassClicks);
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    const Capability result = role().setClickThrough(panel(), rect);
    QVERIFY2(succeeded(result), qPrintable(result.reason()));
    QCOMPARE(clickAt(rect.center()), Receiver::Other);
    QCOMPARE(other().clicks(), QList<QPoint>{panel().mapToGlobal(rect.center())});
    QCOMPARE(panel().clicks.size(), 0);
}

void ClickThroughContract::theEdgesAreExact()
{
    CONTRACT_REQUIRES(Ability::PassClicks);
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().setClickThrough(panel(), rect)));
    QVERIFY(isExact(rect));
    // The corner pixels belong to the rectangle, their diagonal neighbours do not.
    QCOMPARE(clickAt(rect.topLeft()), Receiver::Other);
    QCOMPARE(clickAt(rect.bottomRight()), Receiver::Other);
    QCOMPARE(clickAt(rect.topLeft() - QPoint(1, 1)), Receiver::Panel);
    QCOMPARE(clickAt(rect.bottomRight() + QPoint(1, 1)), Receiver::Panel);
}

void ClickThroughContract::emptyRectangleDisablesClickThrough()
{
    CONTRACT_REQUIRES(Ability::PassClicks);
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().setClickThrough(panel(), rect)));
    QCOMPARE(clickAt(rect.center()), Receiver::Other);
    QVERIFY(succeeded(role().setClickThrough(panel(), {})));
    QCOMPARE(clickAt(rect.center()), Receiver::Panel);
    QCOMPARE(clickAt(rect.topLeft()), Receiver::Panel);
    // A rectangle with a position but no width is empty, too.
    QVERIFY(succeeded(role().setClickThrough(panel(), rect)));
    QVERIFY(succeeded(role().setClickThrough(panel(), {rect.topLeft(), QSize(0, 100)})));
    QCOMPARE(clickAt(rect.topLeft()), Receiver::Panel);
}

void ClickThroughContract::latestRectangleWins()
{
    CONTRACT_REQUIRES(Ability::PassClicks);
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().setClickThrough(panel(), rect)));
    const QRect later{100, 10, 60, 50};
    QVERIFY(succeeded(role().setClickThrough(panel(), later)));
    QVERIFY(isExact(later));
    QCOMPARE(clickAt(rect.bottomLeft()), Receiver::Panel);
}

void ClickThroughContract::rectangleMovesWithWindow()
{
    CONTRACT_REQUIRES(Ability::PassClicks);
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().setClickThrough(panel(), rect)));
    QCOMPARE(clickAt(rect.center()), Receiver::Other);
    const QPoint before = panel().position();
    panel().setPosition(before + QPoint(310, 170));
    CONTRACT_TRY_COMPARE(panel().position(), before + QPoint(310, 170));
    // Clicks until the window has reached its new position.
    CONTRACT_TRY_COMPARE(clickAt({1, 1}), Receiver::Panel);
    QVERIFY(isExact(rect));
    QCOMPARE(clickAt(rect.center() - QPoint(310, 170)), Receiver::Other);
}

void ClickThroughContract::rectangleStaysInPlaceOnResize()
{
    CONTRACT_REQUIRES(Ability::PassClicks);
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().setClickThrough(panel(), rect)));
    panel().resize(330, 290);
    CONTRACT_TRY_COMPARE(panel().size(), QSize(330, 290));
    CONTRACT_TRY_COMPARE(clickAt({320, 280}), Receiver::Panel);
    QVERIFY(isExact(rect));
}

void ClickThroughContract::rectangleCanCoverWholeWindow()
{
    CONTRACT_REQUIRES(Ability::PassClicks);
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().setClickThrough(panel(), {-10, -10, 900, 900})));
    for (const QPoint &position : {QPoint(0, 0), QPoint(239, 199), QPoint(120, 100)})
        QCOMPARE(clickAt(position), Receiver::Other);
    QVERIFY(succeeded(role().setClickThrough(panel(), {})));
    QCOMPARE(clickAt({120, 100}), Receiver::Panel);
}

void ClickThroughContract::rectangleSurvivesHiding()
{
    CONTRACT_REQUIRES(Ability::PassClicks);
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().setClickThrough(panel(), rect)));
    panel().hide();
    CONTRACT_TRY_VERIFY(!harness().isAbove(panel(), other()));
    QVERIFY(showPanel());
    QVERIFY(isExact(rect));
}

void ClickThroughContract::rectangleSurvivesNativeWindowRecreation()
{
    CONTRACT_REQUIRES(Ability::PassClicks);
    QVERIFY(prepareScene());
    QVERIFY(showPanel());
    QVERIFY(succeeded(role().setClickThrough(panel(), rect)));
    panel().destroy();
    QVERIFY(showPanel());
    QVERIFY(isExact(rect));
}

void ClickThroughContract::rectangleCanBeSetBeforeFirstShow()
{
    CONTRACT_REQUIRES(Ability::PassClicks);
    QVERIFY(prepareScene());
    QVERIFY(succeeded(role().setClickThrough(panel(), rect)));
    QVERIFY(showPanel());
    QVERIFY(isExact(rect));
}

} // namespace quellora
