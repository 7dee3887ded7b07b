#pragma once

#include "picker/RegionSelection.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QRect>

#include <memory>
#include <vector>

class QKeyEvent;
class QScreen;

namespace quellora {

class PanelWindow;
class RegionWindow;

/// Lets the user choose a part of a screen on frozen pictures, one window per screen. The windows
/// lie above everything, the panel included, and are left out of this program's own captures. One
/// of them takes the keyboard; when the picker is destroyed, it goes back to the window that had
/// it.
///
/// The mouse draws a rectangle or moves it, the arrow keys move it, with Shift they resize it, with
/// Ctrl by ten pixels at a time. Return, Enter and a double click inside take it, Shift+Return
/// takes it for later; Escape and a lost or changed screen dismiss the picker; the right button
/// clears the selection. Main thread only.
class RegionPicker : public QObject
{
    Q_OBJECT
public:
    /// A screen and its picture.
    struct Frozen
    {
        QPointer<QScreen> screen;
        QImage picture;
    };

    /// @param panels must outlive the picker
    /// @param textScale factor of the text size
    explicit RegionPicker(PanelWindow &panels, double textScale, QObject *parent = nullptr);
    ~RegionPicker() override;

    /// Shows the pictures; call once.
    /// @param keyboardScreen index of the screen whose window takes the keyboard
    void show(const QList<Frozen> &screens, int keyboardScreen);

    /// The selected part, in pixels of its screen's picture; empty for none.
    QRect part() const { return m_selection.rect(); }

Q_SIGNALS:
    /// The pictures are on the screens.
    void shown();
    /// @param screen index in the list given to show()
    /// @param part in pixels of the screen's picture
    void chosen(int screen, const QRect &part, bool isForLater);
    void dismissed();

private:
    void connectWindow(RegionWindow &window, int screen);
    void press(int screen, const QPoint &position);
    void handleKey(QKeyEvent *event);
    /// Makes @p screen the one with the selection, which begins anew there.
    void moveTo(int screen);
    void showSelection();
    void choose(bool isForLater);

    PanelWindow &m_panels;
    double m_textScale;
    std::vector<std::unique_ptr<RegionWindow>> m_windows;
    int m_screen = 0;
    RegionSelection m_selection;
    qsizetype m_unpainted = 0;
};

} // namespace quellora
