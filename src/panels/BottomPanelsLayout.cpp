#include "panels/BottomPanelsLayout.h"

namespace quellora {

namespace {

constexpr double compactPromptHeight = 64;
constexpr double minimumPromptHeight = 88;
constexpr int minimumLines = 2;
constexpr int maximumLines = 5;
/// Maximum height of a service card as a fraction of the available height.
constexpr double maximumCardFraction = 0.4;
constexpr double modelListPad = 4;

} // namespace

double BottomPanelsLayout::promptHeight() const
{
    // The buttons below the text carry text as well.
    const double buttons = growth(16);
    if (m_compact)
        return compactPromptHeight + growth(normalLineHeight) + buttons;
    const double lineHeight = scaled(normalLineHeight);
    const double lines = std::clamp(std::round(m_promptTextHeight / lineHeight),
                                    double(minimumLines), double(maximumLines));
    return minimumPromptHeight + minimumLines * growth(normalLineHeight) + buttons +
           (lines - minimumLines) * lineHeight;
}

double BottomPanelsLayout::attachmentHeight() const
{
    // One line beside the picture, or two.
    return m_compact ? std::max(36.0, scaled(16) + 12) : std::max(56.0, 2 * scaled(16) + 12);
}

/// Two lines and the padding below them.
double BottomPanelsLayout::compactCardBodyHeight() const
{
    return 2 * scaled(18) + 10;
}

double BottomPanelsLayout::fixedHeight() const
{
    return pad() + promptHeight() + (m_compact ? 0 : gap() + controlsHeight()) + pad();
}

double BottomPanelsLayout::maximumUpperHeight() const
{
    return std::max(m_availableHeight - minimumAnswerHeight - fixedHeight(), 0.0);
}

double BottomPanelsLayout::naturalCardHeight() const
{
    if (!m_hasCard)
        return 0;
    if (m_isCardCollapsed)
        return cardHeaderHeight();
    const double limit = m_compact ? cardHeaderHeight() + compactCardBodyHeight()
                                   : std::max(std::floor(m_availableHeight * maximumCardFraction),
                                              cardHeaderHeight() + compactCardBodyHeight());
    return std::min(cardHeaderHeight() + m_cardBodyHeight, limit);
}

double BottomPanelsLayout::naturalModelListHeight() const
{
    if (!m_isModelListOpen)
        return 0;
    return std::clamp(m_modelCount, 0, maximumModelRows) * modelRowHeight() + 2 * modelListPad;
}

double BottomPanelsLayout::otherRowsHeight() const
{
    return row(m_hasFirstLaunchCard ? m_firstLaunchCardHeight : 0) + row(naturalModelListHeight()) +
           row(m_hasAttachment ? attachmentHeight() : 0) + row(m_isEditing ? editingHeight() : 0);
}

double BottomPanelsLayout::cardHeight() const
{
    const double natural = naturalCardHeight();
    if (natural <= cardHeaderHeight())
        return natural;
    const double room = maximumUpperHeight() - otherRowsHeight() - gap();
    return std::clamp(room, std::min(natural, cardHeaderHeight() + compactCardBodyHeight()),
                      natural);
}

bool BottomPanelsLayout::areCardsShown() const
{
    return !m_isModelListOpen ||
           row(naturalCardHeight()) + otherRowsHeight() <= maximumUpperHeight();
}

double BottomPanelsLayout::modelListHeight() const
{
    const double natural = naturalModelListHeight();
    if (natural <= 0 || areCardsShown())
        return natural;
    const double room = maximumUpperHeight() - gap();
    return std::clamp(room, std::min(natural, modelRowHeight() + 2 * modelListPad), natural);
}

double BottomPanelsLayout::upperContentHeight() const
{
    if (!areCardsShown())
        return row(modelListHeight());
    return row(cardHeight()) + otherRowsHeight();
}

double BottomPanelsLayout::upperHeight() const
{
    const double content = upperContentHeight();
    // Do not clip a model list that is already reduced to its minimum, so that it stays usable even
    // in the smallest window.
    return areCardsShown() ? std::min(content, maximumUpperHeight()) : content;
}

double BottomPanelsLayout::totalHeight() const
{
    return fixedHeight() + upperHeight();
}

} // namespace quellora
