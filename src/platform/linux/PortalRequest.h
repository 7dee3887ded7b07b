#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QString>
#include <QVariantMap>

namespace quellora {

/// One call to the desktop portal (org.freedesktop.portal.Desktop) whose result arrives as the
/// Response signal of a request object (org.freedesktop.portal.Request). Asynchronous and without a
/// timeout, because the user may have to answer a dialog first; destroy it to ignore the result.
/// Main thread only.
class PortalRequest : public QObject
{
    Q_OBJECT
public:
    enum class Outcome {
        Done,
        /// The user declined or closed the dialog.
        Cancelled,
        /// See the error text.
        Failed,
    };

    static QString service();
    /// The portal's object.
    static QString path();
    /// A call of the portal's object, to which arguments can be added.
    static QDBusMessage call(const QString &interface, const QString &method);

    /// Sends the call. Results are delivered from the event loop.
    /// @param bus connected
    /// @param call ends before the options
    /// @param options last argument of the call; `handle_token` is added to it
    PortalRequest(const QDBusConnection &bus, QDBusMessage call, QVariantMap options,
                  QObject *parent = nullptr);
    ~PortalRequest() override;

Q_SIGNALS:
    /// Emitted once.
    /// @param error for Outcome::Failed, a text for the log
    void finished(quellora::PortalRequest::Outcome outcome, const QVariantMap &results,
                  const QString &error);

private Q_SLOTS:
    void responded(const QDBusMessage &response);

private:
    void handleReply(const QDBusMessage &reply);
    void finishWith(const QDBusMessage &response);

    QDBusConnection m_bus;
    /// Object path of the request.
    QString m_handle;
    /// Unique bus name of the portal; empty until the call was answered.
    QString m_owner;
    /// Responses that arrived before the answer to the call.
    QList<QDBusMessage> m_early;
    bool m_isFinished = false;
};

} // namespace quellora
