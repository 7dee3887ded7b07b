#pragma once

#include <QByteArray>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <chrono>

/// What every request to the backend has in common. Used on the network manager's thread.
namespace quellora::http {

/// A request whose credentials reach @p url and no other address: redirects are answers like any
/// other status, and neither cookies nor stored or asked-for credentials are used.
/// @param silence how long the network may say nothing before the request fails
QNetworkRequest request(const QUrl &url, std::chrono::milliseconds silence);

/// Whether @p value can stand in a header line. A line break in a token would add header lines of
/// somebody else's choice.
bool isHeaderValue(const QByteArray &value);
/// Why a token that is no header value is not sent.
QString badTokenText();

/// Posts @p body at most once. Left to themselves, the network classes repeat a request whose
/// connection closes before an answer, and then the backend may act twice.
QNetworkReply *postOnce(QNetworkAccessManager &network, QNetworkRequest request,
                        const QByteArray &body);

/// Whether the transfer of a finished reply broke. Statuses that the reply restates as errors do
/// not count.
bool isBroken(const QNetworkReply &reply);
/// The description of a failed reply.
QString describe(const QNetworkReply &reply);
/// Text of a wait that exceeded its time-out.
QString timeoutText();
/// Closes a reply's connection and deletes it, as soon as the event loop runs.
void endTransfer(QNetworkReply *reply);

} // namespace quellora::http
