#pragma once

#include <QColor>
#include <QImage>
#include <QRasterWindow>
#include <QRect>
#include <QString>

namespace quellora {

/// The picture of one screen over that screen: dimmed outside the selected part, which has a frame
/// and a label with its size. Passes input on in pixels of the picture. Main thread only.
class RegionWindow : public QRasterWindow
{
    Q_OBJECT
public:
    /// @param textScale factor of the text size
    RegionWindow(QScreen &screen, double textScale);

    /// Call before the window is shown.
    void setPicture(const QImage &picture);
    const QImage &picture() const { return m_picture; }
    /// @param part in pixels of the picture; empty for none
    void setSelection(const QRect &part);
    /// Shows what the keys do; on one of several screens.
    void setHintShown(bool isShown);

    /// Draws what the window shows, in points.
    void draw(QPainter &painter) const;

    /// For assistive technology: what is to be done, and the selected part.
    QString spokenText() const;
    QAccessibleInterface *accessibleRoot() const override;

Q_SIGNALS:
    void pressed(const QPoint &position);
    void dragged(const QPoint &position);
    void released();
    void doubleClicked(const QPoint &position);
    void cleared();
    void keyPressed(QKeyEvent *event);
    /// The window is on the screen with its picture.
    void painted();
    /// Closed by someone else than the picker.
    void dismissed();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    QPoint toPixels(const QPointF &position) const;
    QRectF toPoints(const QRect &part) const;
    QString sizeText() const;
    QString hintText() const;
    QFont textFont() const;
    /// The rounded label around a text whose best place is @p corner, kept on the screen.
    QRectF labelRect(const QString &text, const QPointF &corner) const;
    QRectF sizeLabel() const;
    QRectF hintLabel() const;
    void drawLabel(QPainter &painter, const QRectF &rect, const QString &text) const;
    /// Everything that a selection changes on the screen.
    QRegion touched() const;

    QImage m_picture;
    QRect m_selection;
    double m_textScale;
    bool m_isHintShown = false;
    bool m_isPainted = false;
};

} // namespace quellora
