#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

/// PanelWindow: the click-through rectangle.
class ClickThroughContract : public SceneSuite
{
    Q_OBJECT
public:
    using SceneSuite::SceneSuite;

private Q_SLOTS:
    void wholeWindowReceivesClicksInitially();
    void clicksInsidePassThrough();
    void theEdgesAreExact();
    void emptyRectangleDisablesClickThrough();
    void latestRectangleWins();
    void rectangleMovesWithWindow();
    void rectangleStaysInPlaceOnResize();
    void rectangleCanCoverWholeWindow();
    void rectangleSurvivesHiding();
    void rectangleSurvivesNativeWindowRecreation();
    void rectangleCanBeSetBeforeFirstShow();

private:
    /// Clicks just inside and just outside each edge: inside, the window underneath must receive
    /// the click, outside the panel.
    bool isExact(const QRect &responseRect);
};

} // namespace quellora
