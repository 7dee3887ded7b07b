#include "overlay/AnswerReader.h"

#include "history/PendingRemovals.h"
#include "page/StreamingRenderer.h"
#include "panels/BottomPanelsModel.h"

#include <utility>

namespace quellora {

AnswerReader::AnswerReader(Collaborators collaborators)
    : m_collaborators(std::move(collaborators)), m_announcer(m_collaborators.interval)
{
    const StreamingRenderer &stream = m_collaborators.stream;
    connect(&stream, &StreamingRenderer::answerStarted, this, [this](const QString &answer) {
        m_announcer.clear();
        m_answer = SpokenAnswer();
        m_isReading = isActive();
        // What was there before has been read out.
        if (m_isReading)
            m_answer.append(answer);
    });
    connect(&stream, &StreamingRenderer::answerGrew, this, [this](const QString &piece) {
        m_isReading = m_isReading && isActive();
        if (m_isReading)
            m_announcer.say(m_answer.append(piece));
    });
    connect(&stream, &StreamingRenderer::answerEnded, this, [this] {
        if (std::exchange(m_isReading, false) && isActive())
            m_announcer.say(m_answer.finish());
    });
    connect(&stream, &StreamingRenderer::answerLeft, this, [this] {
        m_isReading = false;
        m_announcer.clear();
    });
    connect(&stream, &StreamingRenderer::messageShown, this, [this](const QString &markdown) {
        if (isActive())
            m_announcer.say(SpokenAnswer::sentencesOf(markdown, SpokenAnswer::Code::Read));
    });

    OverlayModel &overlay = m_collaborators.overlay;
    connect(&m_announcer, &Announcer::announced, &overlay, &OverlayModel::announced);
    connect(&overlay, &OverlayModel::stripChanged, this, &AnswerReader::readStrip);
    connect(&overlay, &OverlayModel::usageChanged, this, &AnswerReader::readStrip);
    connect(&overlay, &OverlayModel::clicksChanged, this, &AnswerReader::readStrip);
    connect(&overlay, &OverlayModel::noticeChanged, this, [this] {
        if (isActive())
            m_announcer.say({m_collaborators.overlay.notice()});
    });
    connect(&overlay, &OverlayModel::copyAnswerRequested, this, [this] {
        if (isActive())
            m_announcer.say({QStringLiteral("Copied")});
    });
    connect(&m_collaborators.panels, &BottomPanelsModel::messageChanged, this,
            &AnswerReader::readBlockingMessage);
    connect(&m_collaborators.panels, &BottomPanelsModel::attachmentChanged, this,
            &AnswerReader::readAttachment);
}

bool AnswerReader::isActive() const
{
    return m_collaborators.isVisible() && m_collaborators.isHeard();
}

void AnswerReader::hush()
{
    m_isReading = false;
    m_announcer.clear();
}

void AnswerReader::readRemoval(const QString &text)
{
    if (isActive())
        m_announcer.say({text, QStringLiteral("Undo is offered for %1 seconds")
                                   .arg(PendingRemovals::undoTime.count())});
}

void AnswerReader::readStrip()
{
    const OverlayModel &overlay = m_collaborators.overlay;
    const Strip before =
        std::exchange(m_strip, {overlay.status(), overlay.saveState(), overlay.usageTier(),
                                overlay.takesClicks(), overlay.canAskAgain()});
    QString version = m_version;
    // While an answer arrives or a message covers the thread, the version stays the same.
    if (overlay.versionCount() > 1)
        version = QStringLiteral("Version %1 of %2")
                      .arg(overlay.shownVersion() + 1)
                      .arg(overlay.versionCount());
    const bool isOtherVersion = std::exchange(m_version, version) != version;
    if (!isActive())
        return;
    if (m_strip.status != before.status) {
        const bool isComplete = before.status == OverlayModel::Status::Streaming &&
                                m_strip.status == OverlayModel::Status::Answer;
        m_announcer.sayState(isComplete ? QStringLiteral("Answer complete") : overlay.statusText());
        const bool hasFailed = before.status == OverlayModel::Status::Waiting && !isComplete;
        if (hasFailed && m_strip.canAskAgain && !before.canAskAgain)
            m_announcer.say({QStringLiteral("Retry is offered")});
    }
    if (isOtherVersion)
        m_announcer.say({m_version});
    if (m_strip.saveState != before.saveState &&
        m_strip.saveState == OverlayModel::SaveState::Failed)
        m_announcer.say({QStringLiteral("Not saved: ") + overlay.saveProblem()});
    if (m_strip.usage != before.usage && overlay.isUsageShown())
        m_announcer.say({QStringLiteral("Usage %1%").arg(overlay.usagePercent())});
    if (m_strip.takesClicks != before.takesClicks)
        m_announcer.say({m_strip.takesClicks ? QStringLiteral("Clicks: answer")
                                             : QStringLiteral("Clicks: through")});
}

void AnswerReader::readBlockingMessage()
{
    const BottomPanelsModel &panels = m_collaborators.panels;
    const QString id = panels.isMessageBlocking() ? panels.messageId() : QString();
    const bool isNew = std::exchange(m_messageId, id) != id;
    if (isNew && !id.isEmpty() && isActive())
        m_announcer.say({panels.messageHeader()});
}

void AnswerReader::readAttachment()
{
    const bool isAttached = m_collaborators.panels.hasAttachedScreenshot();
    if (std::exchange(m_isAttached, isAttached) != isAttached && isAttached && isActive())
        m_announcer.say({QStringLiteral("Screenshot attached")});
}

} // namespace quellora
