#include "overlay/AnswerNotice.h"

#include "base/Settings.h"
#include "platform/Notifications.h"

#include <utility>

namespace quellora {

AnswerNotice::AnswerNotice(Notifications &notifications, const Settings &settings,
                           std::function<bool()> isPanelVisible, QObject *parent)
    : QObject(parent)
    , m_notifications(notifications)
    , m_settings(settings)
    , m_isPanelVisible(std::move(isPanelVisible))
{
    connect(&m_notifications, &Notifications::chosen, this, &AnswerNotice::showRequested);
}

AnswerNotice::~AnswerNotice()
{
    m_notifications.close();
}

void AnswerNotice::answerEnded(bool isComplete)
{
    if (!m_settings.notifyWhenAnswerReady() || m_isPanelVisible())
        return;
    if (isComplete)
        m_notifications.show(QStringLiteral("Your answer is ready"),
                             QStringLiteral("Show Quellora to read it."));
    else
        m_notifications.show(QStringLiteral("Your answer failed"),
                             QStringLiteral("Show Quellora to see why."));
}

void AnswerNotice::panelShown()
{
    m_notifications.close();
}

} // namespace quellora
