#pragma once

#include <QObject>

#include <functional>

namespace quellora {

class Notifications;
class Settings;

/// Announces the end of an answer on the desktop if the user enabled this and the panel is hidden
/// at that moment. The notification contains neither the question nor the answer. Main thread only.
class AnswerNotice : public QObject
{
    Q_OBJECT
public:
    /// The references must outlive this object.
    /// @param isPanelVisible whether the user can see the panel
    AnswerNotice(Notifications &notifications, const Settings &settings,
                 std::function<bool()> isPanelVisible, QObject *parent = nullptr);
    /// Closes the notification.
    ~AnswerNotice() override;

    /// An answer is complete, or its query failed.
    void answerEnded(bool isComplete);
    /// Closes the notification: the user sees the panel.
    void panelShown();

Q_SIGNALS:
    /// The user chose the notification.
    void showRequested();

private:
    Notifications &m_notifications;
    const Settings &m_settings;
    std::function<bool()> m_isPanelVisible;
};

} // namespace quellora
