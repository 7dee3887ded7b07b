#pragma once

#include <QKeyEvent>
#include <QKeySequence>
#include <QList>
#include <QPainter>
#include <QPoint>
#include <QRasterWindow>
#include <QStringList>

namespace quellora {

/// The name of a pressed key: its lower-case ASCII character, "escape" or "space"; empty for all
/// other keys.
inline QString contractKeyName(const QKeyEvent &event)
{
    if (event.key() == Qt::Key_Escape)
        return QStringLiteral("escape");
    if (event.key() == Qt::Key_Space)
        return QStringLiteral("space");
    return event.key() > 0x20 && event.key() < 0x7F ? QString(QChar(event.key())).toLower()
                                                    : QString();
}

/// A window of this program that records its input like a text field.
class ProbeWindow : public QRasterWindow
{
public:
    /// Names of the pressed keys.
    QStringList keys;
    /// Number of ShortcutOverride events.
    int overrides = 0;
    /// In window coordinates (points).
    QList<QPoint> clicks;
    /// Edit commands in the order of their key presses.
    QList<QKeySequence::StandardKey> edits;

protected:
    bool event(QEvent *event) override
    {
        if (event->type() == QEvent::ShortcutOverride)
            ++overrides;
        return QRasterWindow::event(event);
    }
    void keyPressEvent(QKeyEvent *event) override
    {
        for (const auto edit : {QKeySequence::Undo, QKeySequence::Redo, QKeySequence::Cut,
                                QKeySequence::Copy, QKeySequence::Paste, QKeySequence::SelectAll}) {
            if (event->matches(edit))
                edits << edit;
        }
        if (const QString name = contractKeyName(*event); !name.isEmpty())
            keys << name;
    }
    void mousePressEvent(QMouseEvent *event) override { clicks << event->position().toPoint(); }
    void paintEvent(QPaintEvent *) override
    {
        QPainter(this).fillRect(QRect(QPoint(), size()), Qt::darkCyan);
    }
};

} // namespace quellora
