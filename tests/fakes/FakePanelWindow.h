#pragma once

#include "platform/Platform.h"

#include <QList>
#include <QPointer>
#include <QSet>
#include <QWindow>

#include <utility>

namespace quellora {

/// PanelWindow that really shows and hides windows, but only simulates the keyboard focus.
class FakePanelWindow : public PanelWindow
{
public:
    Capability applyPanelTraits(QWindow &window) override
    {
        calls << QStringLiteral("applyPanelTraits");
        panel = &window;
        m_withTraits << &window;
        return traitsAnswer;
    }
    Capability excludeFromCapture(QWindow &window) override
    {
        calls << QStringLiteral("excludeFromCapture");
        panel = &window;
        shownBeforeExclusion = shownBeforeExclusion || window.isVisible();
        return exclusionAnswer;
    }
    Capability setClickThrough(QWindow &, const QRect &responseRect) override
    {
        calls << QStringLiteral("setClickThrough");
        clickThroughRects << responseRect;
        return clickThroughAnswer;
    }
    Capability orderFront(QWindow &window) override
    {
        calls << QStringLiteral("orderFront");
        m_orderedFront << &window;
        // Hiding returned the keyboard, and showing the window again does not reclaim it.
        if (!window.isVisible() && keyWindow == &window)
            keyWindow = std::exchange(m_previousKeyWindow, nullptr);
        window.show();
        return Capability::applied();
    }
    Capability makeKey(QWindow &window) override
    {
        calls << QStringLiteral("makeKey");
        if (!window.isVisible())
            return Capability::bestEffort(QStringLiteral("The window is not on the screen"));
        if (keyboardOwner() != &window)
            m_previousKeyWindow = std::exchange(keyWindow, &window);
        return Capability::applied();
    }
    void resignKey(QWindow &window) override
    {
        calls << QStringLiteral("resignKey");
        if (keyboardOwner() == &window)
            keyWindow = std::exchange(m_previousKeyWindow, nullptr);
    }
    Capability followPointer(QWindow &, std::function<void(QPointF)> onMoved) override
    {
        calls << QStringLiteral("followPointer");
        if (followAnswer.isApplied())
            pointerHandler = std::move(onMoved);
        return followAnswer;
    }
    void stopFollowingPointer() override
    {
        calls << QStringLiteral("stopFollowingPointer");
        pointerHandler = nullptr;
    }
    bool coversDialogs() const override { return coversOthers; }
    bool isCompositing() const override { return compositing; }
    void onCompositingChanged(std::function<void()> handler) override
    {
        compositingHandler = std::move(handler);
    }

    /// Simulates the desktop starting or stopping compositing.
    void setCompositing(bool on)
    {
        if (on == compositing)
            return;
        compositing = on;
        if (compositingHandler)
            compositingHandler();
    }
    /// Whether a window is above other programs' windows.
    bool isFloating(const QWindow &window) const
    {
        return window.isVisible() && m_withTraits.contains(&window) &&
               m_orderedFront.contains(&window);
    }
    /// The window that receives key presses; null if it belongs to another program.
    QWindow *keyboardOwner() const
    {
        if (keyWindow && keyWindow->isVisible())
            return keyWindow;
        return m_previousKeyWindow && m_previousKeyWindow->isVisible() ? m_previousKeyWindow.data()
                                                                       : nullptr;
    }
    /// Simulates the user focusing a window; null stands for another program's window.
    void focus(QWindow *window)
    {
        keyWindow = window;
        m_previousKeyWindow = nullptr;
    }
    int count(const QString &call) const { return static_cast<int>(calls.count(call)); }
    /// The current click-through rectangle; null if none was set.
    QRect clickThroughRect() const
    {
        return clickThroughRects.isEmpty() ? QRect() : clickThroughRects.last();
    }

    QStringList calls;
    QList<QRect> clickThroughRects;
    QPointer<QWindow> panel;
    QPointer<QWindow> keyWindow;
    bool shownBeforeExclusion = false;
    bool compositing = true;
    bool coversOthers = false;
    Capability traitsAnswer = Capability::applied();
    Capability exclusionAnswer = Capability::applied();
    Capability clickThroughAnswer = Capability::applied();
    Capability followAnswer = Capability::unsupported(QStringLiteral("Mouse events suffice"));
    std::function<void()> compositingHandler;
    /// Set while the pointer is followed.
    std::function<void(QPointF)> pointerHandler;

private:
    QPointer<QWindow> m_previousKeyWindow;
    // Only compared, never dereferenced: the windows may have been deleted.
    QSet<const QWindow *> m_withTraits;
    QSet<const QWindow *> m_orderedFront;
};

} // namespace quellora
