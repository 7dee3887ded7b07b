#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QVariant>

#include <functional>

namespace quellora {

/// Something that shows one page at a time, runs scripts in it and passes its messages on. Main
/// thread only. Everything that a message carries comes from page content and is untrusted.
class PageSurface : public QObject
{
    Q_OBJECT

public:
    /// Identifies one load; 0 is none.
    using LoadId = quint64;

    explicit PageSurface(QObject *parent = nullptr) : QObject(parent) {}

    /// Loads a page with the next turn of the event loop, writing @p logLine at that moment. A load
    /// that has not started by then is dropped without a trace when another one is requested.
    /// @param html UTF-8 bytes of the page
    LoadId load(const QByteArray &html, const QString &logLine);

    /// Makes the text of a script at the moment it is to run; an empty text runs nothing.
    using ScriptMaker = std::function<QString()>;

    /// Runs a script in the page shown; its result and its errors are ignored.
    void evaluate(const QString &script);

    /// As evaluate(), for scripts that make earlier ones of this kind pointless: one runs at a
    /// time, and of those that come meanwhile only the newest is kept and run next. A load that
    /// starts drops what is kept.
    void evaluateLatest(ScriptMaker script);

signals:
    /// The page and everything it refers to is there.
    void loadFinished(quellora::PageSurface::LoadId id);
    /// The page could not be loaded; @p provisional when nothing of it had arrived.
    void loadFailed(quellora::PageSurface::LoadId id, const QString &description, bool provisional);
    /// The page posted a message.
    void message(const QString &name, const QVariant &body);
    /// The user clicked on a link in the page.
    void linkActivated(const QString &address);
    /// The process that runs the page ended; the page is loaded again by itself, once.
    void renderProcessTerminated();

protected:
    virtual void startLoad(LoadId id, const QByteArray &html) = 0;
    /// Runs a script and afterwards calls scriptDone() with @p token, unless it is 0.
    virtual void runScript(const QString &script, quint64 token) = 0;

    /// To be called when the script given with @p token has run or can no longer run.
    void scriptDone(quint64 token);
    /// Forgets running and waiting scripts: the page they were meant for is gone.
    void dropScripts();
    LoadId latestLoad() const { return m_latestLoad; }

private:
    LoadId m_latestLoad = 0;
    quint64 m_lastToken = 0;
    quint64 m_runningToken = 0;
    ScriptMaker m_waitingScript;
};

} // namespace quellora
