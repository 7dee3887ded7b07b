#pragma once

#include <QKeyEvent>
#include <QKeySequence>
#include <QList>
#include <QPainter>
#include <QPoint>
#include <QRasterWindow>
#include <QStringList>

namespace quellora {

/// The key table's name of a pressed key; "escape" or "space"; empty for modifier keys and others.
inline QString contractKeyName(const QKeyEvent &event)
{
    if (event.key() == Qt::Key_Escape)
        return QStringLiteral("escape");
    if (event.key() == Qt::Key_Space)
        return QStringLiteral("space");
    return event.key() > 0x20 && event.key() < 0x7F ? QString(QChar(event.key())).toLower()
                                                    : QString();
}

/// One of our windows, which takes text like a field and notes what reaches it.
class ProbeWindow : public QRasterWindow
{
public:
    /// Names of the keys that went down in it.
    QStringList keys;
    /// Questions whether a key is text for the field rather than a shortcut.
    int overrides = 0;
    /// In points of the window.
    QList<QPoint> clicks;
    /// The key of each edit command, in order.
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
