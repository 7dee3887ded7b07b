#pragma once

#include "overlay/Announcer.h"
#include "overlay/OverlayModel.h"
#include "page/SpokenAnswer.h"

#include <QObject>

#include <functional>

namespace quellora {

class BottomPanelsModel;
class StreamingRenderer;

/// Reads answers out to screen readers as they arrive, sentence by sentence, and says what changes
/// in the strip: the status, notices, a failed save, usage, where clicks go, which version is on
/// show, Retry after a failure. A blocking message and an attached screenshot are said as well.
/// Does nothing unless a screen reader runs and the panel is visible. Main thread only.
class AnswerReader : public QObject
{
    Q_OBJECT

public:
    /// All must outlive this object.
    struct Collaborators
    {
        StreamingRenderer &stream;
        OverlayModel &overlay;
        BottomPanelsModel &panels;
        /// Whether a screen reader is listening.
        std::function<bool()> isHeard;
        /// Whether the panel is on the screen.
        std::function<bool()> isVisible;
        /// Least time between two announcements.
        std::chrono::milliseconds interval = Announcer::defaultInterval;
    };

    explicit AnswerReader(Collaborators collaborators);

    /// Says that the user has removed something and can undo it.
    /// @param text what was removed
    void readRemoval(const QString &text);
    /// The panel has been hidden: drops what has not been announced.
    void hush();

private:
    /// What has been said of the strip.
    struct Strip
    {
        OverlayModel::Status status = OverlayModel::Status::Ready;
        OverlayModel::SaveState saveState = OverlayModel::SaveState::None;
        OverlayModel::UsageTier usage = OverlayModel::UsageTier::Grey;
        bool takesClicks = false;
        bool canAskAgain = false;
    };

    bool isActive() const;
    void readStrip();
    void readBlockingMessage();
    void readAttachment();

    Collaborators m_collaborators;
    Announcer m_announcer;
    SpokenAnswer m_answer;
    /// The answer that arrives is being read out.
    bool m_isReading = false;
    Strip m_strip;
    /// The version on show as said last; empty if there was none to choose.
    QString m_version;
    QString m_messageId;
    bool m_isAttached = false;
};

} // namespace quellora
