#pragma once

#include <QByteArray>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <chrono>

/// Helpers shared by all requests to the backend. Used on the network manager's thread.
namespace quellora::http {

/// A request whose credentials are sent to @p url only: redirects are not followed, and cookies,
/// stored credentials and credential prompts are disabled. Bodies are never decompressed.
/// @param inactivityTimeout the request fails after this time without network activity
QNetworkRequest request(const QUrl &url, std::chrono::milliseconds inactivityTimeout);

/// Whether @p value is a valid header value. Rejects control characters, which would allow header
/// injection.
bool isHeaderValue(const QByteArray &value);
/// Error text for a token that is not a valid header value.
QString badTokenText();

/// Posts @p body at most once. By default, QNetworkAccessManager resends a request whose connection
/// closes before a response, and the backend might process it twice.
QNetworkReply *postOnce(QNetworkAccessManager &network, QNetworkRequest request,
                        const QByteArray &body);

/// Stops receiving while 16 MiB of the body of @p reply, which must have just been started, are
/// unread.
void boundUnreadData(QNetworkReply *reply);
/// Whether the transfer of a finished reply failed. HTTP error statuses do not count.
bool isBroken(const QNetworkReply &reply);
/// Error text of a failed reply.
QString describe(const QNetworkReply &reply);
/// Error text of a time-out.
QString timeoutText();
/// Closes a reply's connection and deletes the reply from the event loop.
void endTransfer(QNetworkReply *reply);

} // namespace quellora::http
