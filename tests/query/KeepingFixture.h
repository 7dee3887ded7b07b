#pragma once

#include "OrchestratorFixture.h"
#include "history/StoreFixture.h"

namespace quellora {

/// Saves threads synchronously.
class StoreSaver : public ThreadSaver
{
public:
    explicit StoreSaver(const CaptureSessionStore &store) : m_store(store) {}
    void save(const CaptureSession &session, const QString &) override
    {
        if (const auto saved = m_store.save(session); !saved)
            qFatal("%s", qPrintable(saved.error().description()));
    }

private:
    const CaptureSessionStore &m_store;
};

/// The query flow with a real store, user actions and textual dumps of threads.
struct KeepingFixture
{
    StoreFixture disk;
    StoreSaver storeSaver{disk.store};
    OrchestratorFixture f{&storeSaver};

    void capture(const QByteArray &jpeg)
    {
        f.orchestrator.captureNoSend();
        f.captureReturns(ScreenshotCapture::Result{jpeg, 1});
    }
    void answer(const QString &text = QStringLiteral("r"))
    {
        f.transfer()->answer(text);
        f.transfer()->finish(done());
    }
    void ask(const QString &prompt)
    {
        f.orchestrator.sendPromptOnly(prompt);
        answer();
    }
    /// Opens a thread as if clicked in History.
    void open(const QUuid &id)
    {
        if (f.threads.currentSession() && f.threads.currentSession()->id == id)
            f.threads.continueThread();
        else
            f.threads.openFromHistory(*disk.store.load(id));
        f.orchestrator.showCurrentThread();
    }
    const CaptureSession &current() const { return *f.threads.currentSession(); }

    /// Dumps a thread as "turns | screenshots | notes", with a turn as "prompt" or
    /// "prompt<screenshot".
    static QString text(const QList<CaptureSession::Screenshot> &screenshots,
                        const QList<CaptureSession::Turn> &turns,
                        const QList<CaptureSession::Note> &notes)
    {
        QStringList words;
        for (const auto &turn : turns) {
            QString word = turn.prompt;
            if (!turn.screenshot)
                word += QLatin1String("<unknown");
            for (const auto &screenshot : screenshots) {
                if (turn.screenshot && turn.screenshot->index == screenshot.index)
                    word += '<' + QString::fromLatin1(screenshot.imageData);
            }
            words << word;
        }
        words << QStringLiteral("|");
        for (const auto &screenshot : screenshots)
            words << QString::fromLatin1(screenshot.imageData);
        words << QStringLiteral("|");
        for (const auto &note : notes)
            words << note.text;
        return words.join(' ');
    }
    static QString text(const CaptureSession &session)
    {
        return text(session.screenshots, session.turns, session.notes);
    }
    /// Dumps a thread from disk; empty if it is not stored.
    QString stored(const QUuid &id) const
    {
        const auto session = disk.store.load(id);
        return session ? text(*session) : QString();
    }
};

} // namespace quellora
