#pragma once

#include "page/MessageBudget.h"
#include "page/RestartBudget.h"
#include "page/ScriptPacer.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>
#include <QVariant>

#include <functional>

namespace quellora {

/// A page with the pictures that it names by pagerequests::pictureAddress().
struct PageContent
{
    /// UTF-8 bytes.
    QByteArray html = {};
    /// Part of the pictures' addresses; nobody else can guess it.
    QByteArray pictureKey = {};
    /// The bytes of JPEG or PNG files.
    QHash<qint64, QByteArray> pictures = {};
};

/// Something that shows one page at a time, runs scripts in it and passes its messages on. Main
/// thread only. Everything that a message carries comes from page content and is untrusted.
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

    /// Loads a page with the next turn of the event loop, writing @p logLine at that moment. A load
    /// that has not started by then is dropped without a trace when another one is requested. While
    /// the page is held, a load waits.
    LoadId load(const PageContent &page, const QString &logLine);

    /// Runs a script in the page shown; its result and its errors are ignored.
    void evaluate(const QString &script);

    /// As evaluate(), for scripts that follow a stream: one runs at a time, made when its turn has
    /// come, and the page gets time for itself after a slow one. A newer request replaces one that
    /// waits. A load that starts or finishes drops them.
    /// @param hasRun called when the script has run, unless it has been dropped
    void evaluatePaced(ScriptPacer::Maker script, std::function<void()> hasRun = nullptr);

    /// Holds the page as it is while the user drags it: neither loads nor evaluatePaced() scripts
    /// start; the newest of each follow when it is let go.
    void setHeld(bool held);

    /// True when the page's process kept ending, until the next load starts.
    bool isPageLost() const { return m_isPageLost; }

signals:
    /// The page and everything it refers to is there.
    void loadFinished(quellora::PageSurface::LoadId id);
    /// The page could not be loaded; @p provisional when nothing of it had arrived.
    void loadFailed(quellora::PageSurface::LoadId id, const QString &description, bool provisional);
    /// The page posted a message.
    void message(const QString &name, const QVariant &body);
    /// The user clicked on a link in the page.
    void linkActivated(const QString &address);
    /// The process that runs the page ended. The page is loaded again by itself, and finishes
    /// loading again, unless it is lost.
    void renderProcessTerminated();

protected:
    virtual void startLoad(LoadId id, const PageContent &page) = 0;
    /// Runs a script and afterwards calls scriptDone() with @p token, unless it is 0.
    virtual void runScript(const QString &script, quint64 token) = 0;
    /// Starts the latest load again, in a new process.
    virtual void restartLoad() = 0;

    /// To be called when the script given with @p token has run or can no longer run.
    void scriptDone(quint64 token) { m_pacer.done(token); }
    /// To be called for each message of the page: whether it may be passed on. Of a flood, most may
    /// not; it is logged once.
    bool admitsMessage();
    /// To be called when the process that runs the page has ended; @p how for the log.
    void renderProcessEnded(const QString &how);

private:
    void startLatestLoad();

    LoadId m_latestLoad = 0;
    LoadId m_startedLoad = 0;
    /// What starts the latest load, until it has started.
    std::function<void()> m_waitingLoad;
    ScriptPacer m_pacer;
    RestartBudget m_restarts;
    MessageBudget m_messages;
    bool m_isHeld = false;
    bool m_isPageLost = false;
};

} // namespace quellora
