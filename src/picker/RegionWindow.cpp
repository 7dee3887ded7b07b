#include "picker/RegionWindow.h"

#include <QAccessible>
#include <QAccessibleObject>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>

#include <algorithm>
#include <cmath>
#include <utility>

namespace quellora {
namespace {

// The design's scrim, accent and tooltip, which are the same in both themes.
constexpr QColor scrim(6, 7, 12, 128);
constexpr QColor accent(0x2f, 0x80, 0xed);
constexpr QColor labelFill(0x0b, 0x0c, 0x11);
constexpr QColor labelLine(255, 255, 255, 38);
constexpr QColor labelText(0xf0, 0xf1, 0xf4);
constexpr int frameWidth = 2;
constexpr double labelRadius = 6;
constexpr double labelPadX = 8;
constexpr double labelPadY = 5;
constexpr double labelGap = 8;
constexpr double hintMargin = 32;
constexpr double fontPixels = 12;

/// The window on the accessibility bus: a picture whose name says what is selected.
class RegionAccessible : public QAccessibleObject
{
public:
    explicit RegionAccessible(RegionWindow *window) : QAccessibleObject(window) {}

    QWindow *window() const override { return &region(); }
    QAccessibleInterface *parent() const override
    {
        return QAccessible::queryAccessibleInterface(qApp);
    }
    QAccessibleInterface *child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface *) const override { return -1; }
    QAccessible::Role role() const override { return QAccessible::Dialog; }
    QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Name ? region().spokenText() : QString();
    }
    QRect rect() const override { return region().geometry(); }
    QAccessible::State state() const override
    {
        QAccessible::State state;
        state.active = true;
        state.focusable = true;
        state.focused = QGuiApplication::focusWindow() == &region();
        state.modal = true;
        state.invisible = !region().isVisible();
        return state;
    }

private:
    RegionWindow &region() const { return *static_cast<RegionWindow *>(object()); }
};

} // namespace

RegionWindow::RegionWindow(QScreen &screen, double textScale) : m_textScale(textScale)
{
    setScreen(&screen);
    setTitle(QStringLiteral("Choose a region"));
    setFlag(Qt::FramelessWindowHint);
    setGeometry(screen.geometry());
    setCursor(Qt::CrossCursor);
}

void RegionWindow::setPicture(const QImage &picture)
{
    m_picture = picture;
    // Painted without scaling where a pixel of the picture is one of the screen.
    if (width() > 0)
        m_picture.setDevicePixelRatio(static_cast<double>(picture.width()) / width());
}

void RegionWindow::setSelection(const QRect &part)
{
    if (part == m_selection)
        return;
    QRegion changed = touched();
    m_selection = part;
    changed += touched();
    update(changed);
    QAccessibleEvent event(this, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&event);
}

void RegionWindow::setHintShown(bool isShown)
{
    if (isShown == m_isHintShown)
        return;
    m_isHintShown = isShown;
    update();
}

QString RegionWindow::sizeText() const
{
    return QStringLiteral("%1 × %2").arg(m_selection.width()).arg(m_selection.height());
}

QString RegionWindow::hintText() const
{
    return m_selection.isEmpty()
               ? QStringLiteral("Drag to choose a region · Esc cancels")
               : QStringLiteral("Return sends it · Shift+Return attaches it · Arrows move · "
                                "Shift+Arrows resize · Esc cancels");
}

QString RegionWindow::spokenText() const
{
    if (m_selection.isEmpty())
        return QStringLiteral("Choose a region: draw it with the mouse, or press an arrow key");
    return QStringLiteral(
               "Region %1 by %2 at %3, %4: Return sends it, Shift and Return attaches it")
        .arg(m_selection.width())
        .arg(m_selection.height())
        .arg(m_selection.x())
        .arg(m_selection.y());
}

QAccessibleInterface *RegionWindow::accessibleRoot() const
{
    auto *self = const_cast<RegionWindow *>(this);
    if (QAccessibleInterface *known = QAccessible::queryAccessibleInterface(self))
        return known;
    auto *interface = new RegionAccessible(self);
    QAccessible::registerAccessibleInterface(interface);
    return interface;
}

QPoint RegionWindow::toPixels(const QPointF &position) const
{
    const double ratio = m_picture.devicePixelRatio();
    return {static_cast<int>(std::floor(position.x() * ratio)),
            static_cast<int>(std::floor(position.y() * ratio))};
}

QRectF RegionWindow::toPoints(const QRect &part) const
{
    const double ratio = m_picture.devicePixelRatio();
    return {part.x() / ratio, part.y() / ratio, part.width() / ratio, part.height() / ratio};
}

QFont RegionWindow::textFont() const
{
    QFont font = QGuiApplication::font();
    font.setPixelSize(static_cast<int>(std::lround(fontPixels * m_textScale)));
    font.setWeight(QFont::Medium);
    return font;
}

QRectF RegionWindow::labelRect(const QString &text, const QPointF &corner) const
{
    const QFontMetricsF metrics(textFont());
    const QSizeF size(std::ceil(metrics.horizontalAdvance(text)) + 2 * labelPadX,
                      std::ceil(metrics.height()) + 2 * labelPadY);
    return {std::round(std::clamp(corner.x(), labelGap,
                                  std::max(labelGap, width() - size.width() - labelGap))),
            std::round(corner.y()), size.width(), size.height()};
}

QRectF RegionWindow::sizeLabel() const
{
    const QRectF part = toPoints(m_selection);
    QRectF label = labelRect(sizeText(), part.bottomLeft());
    // Below the part, else above it, else inside.
    if (part.bottom() + labelGap + label.height() + labelGap <= height())
        label.moveTop(part.bottom() + labelGap);
    else if (part.top() - labelGap - label.height() >= labelGap)
        label.moveBottom(part.top() - labelGap);
    else
        label.moveBottomLeft({std::max(label.left(), part.left() + labelGap),
                              std::min<double>(part.bottom(), height()) - labelGap});
    return label;
}

QRectF RegionWindow::hintLabel() const
{
    QRectF label = labelRect(hintText(), QPointF());
    label.moveCenter(QPointF(width() / 2.0, 0));
    label.moveLeft(std::round(label.left()));
    label.moveBottom(height() - hintMargin);
    const QRectF part =
        m_selection.isEmpty() ? QRectF() : toPoints(m_selection).united(sizeLabel());
    if (label.intersects(part))
        label.moveTop(hintMargin);
    return label;
}

void RegionWindow::drawLabel(QPainter &painter, const QRectF &rect, const QString &text) const
{
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(labelLine, 1));
    painter.setBrush(labelFill);
    painter.drawRoundedRect(rect.adjusted(0.5, 0.5, -0.5, -0.5), labelRadius, labelRadius);
    painter.setPen(labelText);
    painter.setFont(textFont());
    painter.drawText(rect, Qt::AlignCenter, text);
    painter.setRenderHint(QPainter::Antialiasing, false);
}

QRegion RegionWindow::touched() const
{
    QRegion region;
    if (!m_selection.isEmpty()) {
        region += toPoints(m_selection)
                      .adjusted(-frameWidth, -frameWidth, frameWidth, frameWidth)
                      .toAlignedRect();
        region += sizeLabel().toAlignedRect();
    }
    if (m_isHintShown)
        region += hintLabel().toAlignedRect();
    return region;
}

void RegionWindow::draw(QPainter &painter) const
{
    painter.setRenderHint(QPainter::SmoothPixmapTransform,
                          m_picture.devicePixelRatio() != painter.device()->devicePixelRatioF());
    painter.drawImage(QPointF(), m_picture);
    const QRectF part = m_selection.isEmpty() ? QRectF() : toPoints(m_selection);
    // Four bands around the part.
    const QRectF whole(0, 0, width(), height());
    painter.fillRect(QRectF(whole.topLeft(), QPointF(whole.right(), part.top())), scrim);
    painter.fillRect(QRectF(QPointF(0, part.bottom()), whole.bottomRight()), scrim);
    painter.fillRect(QRectF(QPointF(0, part.top()), part.bottomLeft()), scrim);
    painter.fillRect(QRectF(part.topRight(), QPointF(whole.right(), part.bottom())), scrim);
    if (!m_selection.isEmpty()) {
        painter.setPen(QPen(accent, frameWidth, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
        painter.setBrush(Qt::NoBrush);
        constexpr double half = frameWidth / 2.0;
        painter.drawRect(part.adjusted(-half, -half, half, half));
        drawLabel(painter, sizeLabel(), sizeText());
    }
    if (m_isHintShown)
        drawLabel(painter, hintLabel(), hintText());
}

void RegionWindow::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    painter.setClipRegion(event->region());
    draw(painter);
    if (!std::exchange(m_isPainted, true))
        QMetaObject::invokeMethod(this, &RegionWindow::painted, Qt::QueuedConnection);
}

void RegionWindow::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        Q_EMIT pressed(toPixels(event->position()));
    else if (event->button() == Qt::RightButton)
        Q_EMIT cleared();
}

void RegionWindow::mouseMoveEvent(QMouseEvent *event)
{
    if (event->buttons() & Qt::LeftButton)
        Q_EMIT dragged(toPixels(event->position()));
}

void RegionWindow::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        Q_EMIT released();
}

void RegionWindow::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        Q_EMIT doubleClicked(toPixels(event->position()));
}

void RegionWindow::keyPressEvent(QKeyEvent *event)
{
    Q_EMIT keyPressed(event);
}

void RegionWindow::closeEvent(QCloseEvent *event)
{
    event->ignore();
    Q_EMIT dismissed();
}

} // namespace quellora
