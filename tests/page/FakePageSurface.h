#pragma once

#include "page/PageSurface.h"

#include <QStringList>

namespace quellora {

/// A page surface that records what it is asked for; the test plays the page.
class FakePageSurface : public PageSurface
{
public:
    FakePageSurface() : PageSurface([this] { return now; }, nullptr) {}

    /// Finishes the load that has started last.
    void finishLoad() { Q_EMIT loadFinished(loads.last().first); }
    void failLoad(const QString &description, bool provisional)
    {
        Q_EMIT loadFailed(loads.last().first, description, provisional);
    }
    /// The page posts a message.
    void post(const QString &name, const QVariant &body)
    {
        if (admitsMessage())
            Q_EMIT message(name, body);
    }
    /// The page's process dies.
    void crash() { renderProcessEnded(QStringLiteral("killed")); }
    /// The page answers the question asked last.
    void answer() { heard(questions.last()); }
    /// A second passes.
    void passSecond() { tickSilence(); }
    /// The script given with a token last has run.
    void finishScript() { scriptDone(tokens.last()); }

    QString page() const
    {
        return loads.isEmpty() ? QString() : QString::fromUtf8(loads.last().second.html);
    }

    /// Loads that have started.
    QList<QPair<LoadId, PageContent>> loads;
    QStringList scripts;
    QStringList bridgeScripts;
    QList<quint64> tokens;
    /// Loads that were started again.
    int restarts = 0;
    bool wasRestartedAsText = false;
    /// Numbers of the questions whether the page still runs.
    QList<quint64> questions;
    bool isOnScreen = false;
    std::chrono::nanoseconds now{0};
    /// Whether scripts run at once; otherwise finishScript() ends them.
    bool runsAtOnce = true;

protected:
    void startLoad(LoadId id, const PageContent &page) override { loads.append({id, page}); }
    void runScript(const QString &script, quint64 token) override
    {
        scripts.append(script);
        if (token == 0)
            return;
        tokens.append(token);
        if (runsAtOnce)
            scriptDone(token);
    }
    void runBridgeScript(const QString &script) override { bridgeScripts.append(script); }
    void restartLoad(bool asText) override
    {
        ++restarts;
        wasRestartedAsText = asText;
    }
    void ask(quint64 number) override { questions.append(number); }
    bool isSeen() const override { return isOnScreen; }
    void endProcess() override { renderProcessEnded(QStringLiteral("killed")); }
};

} // namespace quellora
