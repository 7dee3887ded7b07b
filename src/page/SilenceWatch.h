#pragma once

#include <QTimer>

#include <functional>

namespace quellora {

/// Notices that a page no longer runs scripts: asks it once a second, and tells when it has not
/// answered for five. Main thread only.
///
/// Seconds are counted by questions, so time in which this thread is busy or the machine sleeps is
/// no silence of the page.
class SilenceWatch
{
public:
    /// Unanswered questions after which a page counts as silent.
    static constexpr int patience = 5;
    /// The same for a process that has not answered yet, because it may take long to start, and for
    /// one that replaces another, until it has loaded the page: long texts take long even as text.
    static constexpr int startPatience = 30;

    struct Page
    {
        /// Asks for a call of heard() with this number, after everything asked before.
        std::function<void(quint64 number)> ask;
        /// Whether the user sees the page, so that silence matters although nothing is under way.
        std::function<bool()> isSeen;
        std::function<void()> isSilent;
    };

    explicit SilenceWatch(Page page);

    /// The page has been given something to do, or is seen from now on.
    void begin();
    /// A load has started or ended; while it runs the page is watched.
    void setLoading(bool isLoading);
    /// The page has answered.
    void heard(quint64 number);
    /// The page's process has ended.
    void forget();

    /// A second is over. Called by the watch itself.
    void tick();

private:
    Page m_page;
    QTimer m_seconds;
    quint64 m_asked = 0;
    /// The answer to wait for: everything begun was before that question.
    quint64 m_awaited = 0;
    int m_unanswered = 0;
    bool m_isLoading = false;
    bool m_hasAnswered = false;
    /// The process has not yet loaded the page of the one before it.
    bool m_isReplaced = false;
};

} // namespace quellora
