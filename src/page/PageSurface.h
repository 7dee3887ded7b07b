#pragma once

#include "page/MessageBudget.h"
#include "page/RestartBudget.h"
#include "page/ScriptPacer.h"
#include "page/SilenceWatch.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>
#include <QVariant>

#include <functional>

namespace quellora {

/// A page and the pictures it refers to by pagerequests::pictureAddress().
struct PageContent
{
    /// UTF-8 bytes.
    QByteArray html = {};
    /// Part of the pictures' addresses; cannot be guessed.
    QByteArray pictureKey = {};
    /// Bytes of JPEG or PNG files by screenshot number.
    QHash<qint64, QByteArray> pictures = {};
};

/// Shows one page at a time, runs scripts in it and forwards its messages. Main thread only.
/// Everything in a message comes from page content and is untrusted.
class PageSurface : public QObject
{
    Q_OBJECT

public:
    /// Identifies one load; 0 is none.
    using LoadId = quint64;

    /// Monotonic time.
    using Clock = std::function<std::chrono::nanoseconds()>;

    explicit PageSurface(QObject *parent = nullptr);
    PageSurface(Clock clock, QObject *parent);

    /// Loads a page from the event loop and logs @p logLine at that moment. Until then another call
    /// replaces the load silently. While the page is held, the load waits.
    LoadId load(const PageContent &page, const QString &logLine);

    /// Runs a script in the page shown; its result and its errors are ignored.
    void evaluate(const QString &script);

    /// As evaluate(), in the world of the bridge script, which the page's scripts cannot reach.
    void evaluateInBridge(const QString &script);

    /// As evaluate(), for the updates of a stream: one script runs at a time, is made just before
    /// it runs, and is followed by a pause if it was slow. A request replaces one that waits. A
    /// load that starts or finishes drops them.
    /// @param hasRun called when the script has run, unless it was dropped
    void evaluatePaced(ScriptPacer::Maker script, std::function<void()> hasRun = nullptr);

    /// While held (the user drags the scrollbar), neither loads nor evaluatePaced() scripts start;
    /// the newest of each starts on release.
    void setHeld(bool held);

    /// True after the page's process has ended too often, until the next load starts.
    bool isPageLost() const { return m_isPageLost; }

Q_SIGNALS:
    /// The page and everything it refers to has loaded.
    void loadFinished(quellora::PageSurface::LoadId id);
    /// The page could not be loaded; @p provisional if nothing of it had arrived.
    void loadFailed(quellora::PageSurface::LoadId id, const QString &description, bool provisional);
    /// The page posted a message.
    void message(const QString &name, const QVariant &body);
    /// The user clicked on a link in the page.
    void linkActivated(const QString &address);
    /// The process that runs the page ended. Unless the page is lost, it is reloaded automatically
    /// and loadFinished() is emitted again.
    void renderProcessTerminated();

protected:
    virtual void startLoad(LoadId id, const PageContent &page) = 0;
    /// Runs a script and afterwards calls scriptDone() with @p token, unless it is 0.
    virtual void runScript(const QString &script, quint64 token) = 0;
    virtual void runBridgeScript(const QString &script) = 0;
    /// Starts the latest load again, in a new process.
    /// @param asText answers are shown as text, because rendering them took too long
    virtual void restartLoad(bool asText) = 0;
    /// Runs an empty script and afterwards calls heard() with @p number.
    virtual void ask(quint64 number) = 0;
    /// Whether the page is on the screen.
    virtual bool isSeen() const = 0;
    /// Ends the process that runs the page; renderProcessEnded() follows.
    virtual void endProcess() = 0;

    /// Call when the script given with @p token has run or can no longer run.
    void scriptDone(quint64 token) { m_pacer.done(token); }
    /// Call when the script of ask() has run.
    void heard(quint64 number) { m_silence.heard(number); }
    /// Call when the page gets onto the screen.
    void watch() { m_silence.begin(); }
    /// A second of watching is over; for tests.
    void tickSilence() { m_silence.tick(); }
    /// Call for each message of the page; returns whether to forward it. Most messages of a flood
    /// are refused; the flood is logged once.
    bool admitsMessage();
    /// Call when the process that runs the page has ended; @p how is for the log.
    void renderProcessEnded(const QString &how);

private:
    void startLatestLoad();
    void endSilentProcess();

    LoadId m_latestLoad = 0;
    LoadId m_startedLoad = 0;
    /// Starts the latest load; empty once it has started.
    std::function<void()> m_waitingLoad;
    ScriptPacer m_pacer;
    RestartBudget m_restarts;
    MessageBudget m_messages;
    SilenceWatch m_silence;
    bool m_wasSilent = false;
    bool m_isHeld = false;
    bool m_isPageLost = false;
};

} // namespace quellora
