#include "query/LastQuestion.h"

#include "base/Settings.h"
#include "history/ThreadController.h"

#include <utility>

namespace quellora {

LastQuestion::LastQuestion(ThreadController &threads, Settings &settings, QObject *parent)
    : QObject(parent), m_threads(threads), m_settings(settings)
{
    connect(&m_threads, &ThreadController::sessionChanged, this, [this] {
        const auto &session = m_threads.currentSession();
        if (m_edited && (!session || session->id != m_edited->threadId))
            abandonEditing();
    });
}

std::optional<AskedQuestion> LastQuestion::question() const
{
    const auto &session = m_threads.currentSession();
    if (!session)
        return std::nullopt;
    if (const auto found = m_unanswered.constFind(session->id); found != m_unanswered.cend())
        return *found;
    if (session->turns.isEmpty())
        return std::nullopt;
    const CaptureSession::Turn &turn = session->turns.constLast();
    return AskedQuestion{session->id, turn.prompt, screenshotOfTurn(*session, turn.id), turn.id};
}

bool LastQuestion::isUnanswered() const
{
    const auto &session = m_threads.currentSession();
    return session && m_unanswered.contains(session->id);
}

void LastQuestion::setUnanswered(const AskedQuestion &question)
{
    m_unanswered.insert(question.threadId, question);
    Q_EMIT changed();
}

void LastQuestion::forget(const QUuid &threadId)
{
    if (m_unanswered.remove(threadId))
        Q_EMIT changed();
}

void LastQuestion::beginEditing()
{
    const auto asked = question();
    if (!asked || m_edited)
        return;
    m_draft = m_settings.userPrompt().value_or(QString());
    m_edited = asked;
    // A failed question is still in the box.
    if (m_draft == asked->prompt && isUnanswered())
        m_draft.clear();
    m_settings.setUserPrompt(asked->prompt);
    Q_EMIT changed();
}

void LastQuestion::cancelEditing()
{
    if (m_edited)
        endEditing(m_draft);
}

std::optional<AskedQuestion> LastQuestion::takeEdited()
{
    const auto edited = m_edited;
    cancelEditing();
    return edited;
}

void LastQuestion::abandonEditing()
{
    if (!m_edited)
        return;
    const QString written = m_settings.userPrompt().value_or(QString());
    const bool isWorthKeeping = written != m_edited->prompt && !written.trimmed().isEmpty();
    if (!isWorthKeeping)
        endEditing(m_draft);
    else
        endEditing(m_draft.isEmpty() ? written : m_draft + QLatin1Char('\n') + written);
}

void LastQuestion::endEditing(const QString &promptBox)
{
    m_edited.reset();
    m_settings.setUserPrompt(promptBox);
    Q_EMIT changed();
}

} // namespace quellora
