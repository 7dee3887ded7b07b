#pragma once

#include "platform/Platform.h"

#include <QList>
#include <QPointer>
#include <QSet>
#include <QWindow>

#include <utility>

namespace quellora {

/// Panel role that shows and hides windows for real; who has the keyboard is the fake's own
/// account, not the toolkit's.
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
        // Hiding it gave the keyboard back: shown again it does not bring it along.
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
    bool isCompositing() const override { return compositing; }
    void onCompositingChanged(std::function<void()> handler) override
    {
        compositingHandler = std::move(handler);
    }

    /// The desktop starts or stops compositing.
    void setCompositing(bool on)
    {
        if (on == compositing)
            return;
        compositing = on;
        if (compositingHandler)
            compositingHandler();
    }
    /// Whether a window is above those of other programs.
    bool isFloating(const QWindow &window) const
    {
        return window.isVisible() && m_withTraits.contains(&window) &&
               m_orderedFront.contains(&window);
    }
    /// The window that gets what the user types; null when it is another program's.
    QWindow *keyboardOwner() const
    {
        if (keyWindow && keyWindow->isVisible())
            return keyWindow;
        return m_previousKeyWindow && m_previousKeyWindow->isVisible() ? m_previousKeyWindow.data()
                                                                       : nullptr;
    }
    /// The user turns to another window; null for another program's.
    void focus(QWindow *window)
    {
        keyWindow = window;
        m_previousKeyWindow = nullptr;
    }
    int count(const QString &call) const { return static_cast<int>(calls.count(call)); }
    /// The rectangle in force; null when none was ever set.
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
    Capability traitsAnswer = Capability::applied();
    Capability exclusionAnswer = Capability::applied();
    Capability clickThroughAnswer = Capability::applied();
    std::function<void()> compositingHandler;

private:
    QPointer<QWindow> m_previousKeyWindow;
    // Only compared, never used: the windows may be gone.
    QSet<const QWindow *> m_withTraits;
    QSet<const QWindow *> m_orderedFront;
};

} // namespace quellora
