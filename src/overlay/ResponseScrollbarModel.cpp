#include "overlay/ResponseScrollbarModel.h"

#include <algorithm>
#include <cmath>

namespace quellora {

namespace {

constexpr QRgb enabledThumbRgb = qRgb(69, 74, 90);
constexpr QRgb disabledRgb = qRgb(53, 57, 70);
/// 75 % white.
constexpr QRgb enabledArrowRgb = qRgb(191, 191, 191);

} // namespace

QRectF ResponseScrollbarModel::flipped(const QRectF &frame) const
{
    return {frame.x(), m_size.height() - frame.y() - frame.height(), frame.width(), frame.height()};
}

void ResponseScrollbarModel::setSize(double width, double height)
{
    const QSizeF size(width, height);
    if (size == m_size)
        return;
    m_size = size;
    Q_EMIT layoutChanged();
}

QRectF ResponseScrollbarModel::upButtonFrame() const
{
    return {(m_size.width() - buttonSize) / 2, m_size.height() - buttonSize - margin, buttonSize,
            buttonSize};
}

QRectF ResponseScrollbarModel::downButtonFrame() const
{
    return {(m_size.width() - buttonSize) / 2, margin, buttonSize, buttonSize};
}

QRectF ResponseScrollbarModel::trackFrame() const
{
    const double bottom = downButtonFrame().bottom() + margin;
    const double top = upButtonFrame().top() - margin;
    return {(m_size.width() - thumbWidth) / 2, bottom, thumbWidth, std::max(top - bottom, 0.0)};
}

double ResponseScrollbarModel::thumbHeight() const
{
    const double track = trackFrame().height();
    return std::min(std::max(track * m_thumbRatio, minThumbHeight), track);
}

QRectF ResponseScrollbarModel::thumbFrame() const
{
    const double track = trackFrame().height();
    if (!m_isEnabled)
        return {0, 0, thumbWidth, track};
    const double height = thumbHeight();
    return {0, (1 - m_fraction) * std::max(track - height, 0.0), thumbWidth, height};
}

QColor ResponseScrollbarModel::thumbColor() const
{
    return QColor::fromRgb(m_isEnabled ? enabledThumbRgb : disabledRgb);
}

QColor ResponseScrollbarModel::arrowColor() const
{
    return QColor::fromRgb(m_isEnabled ? enabledArrowRgb : disabledRgb);
}

void ResponseScrollbarModel::setEnabled(bool isEnabled)
{
    if (m_isEnabled == isEnabled)
        return;
    m_isEnabled = isEnabled;
    Q_EMIT enabledChanged();
    Q_EMIT layoutChanged();
}

void ResponseScrollbarModel::setDragging(bool isDragging)
{
    if (m_isDragging == isDragging)
        return;
    m_isDragging = isDragging;
    Q_EMIT draggingChanged();
}

void ResponseScrollbarModel::setPosition(bool isEnabled, double thumbRatio, double fraction)
{
    setEnabled(isEnabled);
    // During a drag the thumb follows the pointer; reported positions lag behind it.
    if (m_isDragging)
        return;
    m_thumbRatio = std::clamp(thumbRatio, 0.0, 1.0);
    m_fraction = std::clamp(fraction, 0.0, 1.0);
    Q_EMIT layoutChanged();
}

bool ResponseScrollbarModel::mouseDown(QPointF point)
{
    if (!m_isEnabled || !thumbRect().contains(point))
        return false;
    m_dragStartLocationY = m_size.height() - point.y();
    m_dragStartFraction = m_fraction;
    setDragging(true);
    return true;
}

void ResponseScrollbarModel::mouseDragged(QPointF point)
{
    if (!m_isDragging)
        return;
    const double dy = m_size.height() - point.y() - m_dragStartLocationY;
    const double travel = std::max(trackFrame().height() - thumbHeight(), 1.0);
    m_fraction = std::clamp(m_dragStartFraction - dy / travel, 0.0, 1.0);
    Q_EMIT layoutChanged();
    Q_EMIT thumbFractionChanged(m_fraction);
}

void ResponseScrollbarModel::mouseUp()
{
    setDragging(false);
}

void ResponseScrollbarModel::scrollPrecisely(double pixels)
{
    if (m_isEnabled)
        Q_EMIT scrollByPixels(-pixels);
}

void ResponseScrollbarModel::scrollByLines(double lines)
{
    if (m_isEnabled)
        Q_EMIT scrollByPixels(-lines * wheelLineHeight);
}

void ResponseScrollbarModel::pressUp()
{
    if (m_isEnabled)
        Q_EMIT scrollUp();
}

void ResponseScrollbarModel::pressDown()
{
    if (m_isEnabled)
        Q_EMIT scrollDown();
}

void ResponseScrollbarModel::scrollByPage(int direction)
{
    if (m_isEnabled)
        Q_EMIT scrollByPixels(direction *
                              std::max(m_size.height() - wheelLineHeight, wheelLineHeight));
}

void ResponseScrollbarModel::scrollToFraction(double fraction)
{
    if (m_isEnabled)
        Q_EMIT thumbFractionChanged(std::clamp(fraction, 0.0, 1.0));
}

bool ResponseScrollbarModel::handleKey(int key)
{
    switch (key) {
    case Qt::Key_Up:
        pressUp();
        return true;
    case Qt::Key_Down:
        pressDown();
        return true;
    case Qt::Key_PageUp:
        scrollByPage(-1);
        return true;
    case Qt::Key_PageDown:
        scrollByPage(1);
        return true;
    case Qt::Key_Home:
        scrollToFraction(0);
        return true;
    case Qt::Key_End:
        scrollToFraction(1);
        return true;
    default:
        return false;
    }
}

} // namespace quellora
