#include "panels/BottomPanelsLayout.h"

#include <algorithm>
#include <cmath>

namespace quellora {

namespace {

constexpr double compactPromptHeight = 64;
constexpr double restingPromptHeight = 88;
constexpr int restingLines = 2;
constexpr int maximumLines = 5;
/// Share of the available height that a service card may take.
constexpr double cardShare = 0.4;
/// Two lines of 18 and the space below them.
constexpr double compactCardBodyHeight = 2 * 18 + 10;
constexpr double modelListPad = 4;

} // namespace

double BottomPanelsLayout::promptHeight() const
{
    if (m_compact)
        return compactPromptHeight;
    const double lines = std::clamp(std::round(m_promptTextHeight / lineHeight),
                                    double(restingLines), double(maximumLines));
    return restingPromptHeight + (lines - restingLines) * lineHeight;
}

double BottomPanelsLayout::fixedHeight() const
{
    return pad() + promptHeight() + (m_compact ? 0 : gap() + controlsHeight()) + pad();
}

double BottomPanelsLayout::upperBudget() const
{
    return std::max(m_availableHeight - minimumAnswerHeight - fixedHeight(), 0.0);
}

double BottomPanelsLayout::naturalCardHeight() const
{
    if (!m_hasCard)
        return 0;
    if (m_isCardCollapsed)
        return cardHeaderHeight();
    const double limit = m_compact ? cardHeaderHeight() + compactCardBodyHeight
                                   : std::max(std::floor(m_availableHeight * cardShare),
                                              cardHeaderHeight() + compactCardBodyHeight);
    return std::min(cardHeaderHeight() + m_cardBodyHeight, limit);
}

double BottomPanelsLayout::naturalModelListHeight() const
{
    if (!m_isModelListOpen)
        return 0;
    return std::clamp(m_modelCount, 0, maximumModelRows) * modelRowHeight + 2 * modelListPad;
}

double BottomPanelsLayout::heightOfOtherRows() const
{
    return row(m_hasFirstLaunchCard ? m_firstLaunchCardHeight : 0) + row(naturalModelListHeight()) +
           row(m_hasAttachment ? attachmentHeight() : 0);
}

double BottomPanelsLayout::cardHeight() const
{
    const double natural = naturalCardHeight();
    if (natural <= cardHeaderHeight())
        return natural;
    const double room = upperBudget() - heightOfOtherRows() - gap();
    return std::clamp(room, std::min(natural, cardHeaderHeight() + compactCardBodyHeight), natural);
}

bool BottomPanelsLayout::areCardsShown() const
{
    return !m_isModelListOpen || row(naturalCardHeight()) + heightOfOtherRows() <= upperBudget();
}

double BottomPanelsLayout::modelListHeight() const
{
    const double natural = naturalModelListHeight();
    if (natural <= 0 || areCardsShown())
        return natural;
    const double room = upperBudget() - gap();
    return std::clamp(room, std::min(natural, modelRowHeight + 2 * modelListPad), natural);
}

double BottomPanelsLayout::upperContentHeight() const
{
    if (!areCardsShown())
        return row(modelListHeight());
    return row(cardHeight()) + heightOfOtherRows();
}

double BottomPanelsLayout::upperHeight() const
{
    const double content = upperContentHeight();
    // A list that had to be squeezed to one row must stay reachable even in the smallest window.
    return areCardsShown() ? std::min(content, upperBudget()) : content;
}

double BottomPanelsLayout::totalHeight() const
{
    return fixedHeight() + upperHeight();
}

} // namespace quellora
