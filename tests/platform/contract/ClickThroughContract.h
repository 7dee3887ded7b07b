#pragma once

#include "platform/contract/ContractSuite.h"

namespace quellora {

/// PanelWindow: the part of the panel that lets clicks through.
class ClickThroughContract : public SceneSuite
{
    Q_OBJECT
public:
    using SceneSuite::SceneSuite;

private Q_SLOTS:
    void theWholeWindowTakesClicksAtFirst();
    void insideClicksReachTheWindowBeneath();
    void theEdgesAreExact();
    void emptyRectangleTakesAllAgain();
    void theLatestRectangleCounts();
    void theRectangleFollowsAMove();
    void theRectangleKeepsItsPlaceInALargerWindow();
    void theRectangleMayCoverTheWindow();
    void theRectangleSurvivesHiding();
    void theRectangleSurvivesANewNativeWindow();
    void theRectangleMayBeSetBeforeTheFirstShow();

private:
    bool isExact(const QRect &rect);
};

} // namespace quellora
