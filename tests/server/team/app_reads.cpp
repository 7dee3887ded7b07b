/// Prints as JSON what the app's own readers make of the backend's answers:
///   app_reads record            the answer to a sign-in or verification, from standard input
///   app_reads events            the events of an answer's stream, from standard input, one per
///   line app_reads query URL TOKEN   the outcome of a question to the backend at URL

#include "backend/Records.h"
#include "query/ProxyQueryService.h"
#include "query/StreamEventParser.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QTextStream>

#include <cstdio>

using namespace quellora;

namespace {

void print(const QJsonObject &object)
{
    QTextStream(stdout) << QJsonDocument(object).toJson(QJsonDocument::Compact) << '\n';
}

QByteArray input()
{
    QFile file;
    return file.open(stdin, QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QJsonObject toJson(const DoneInfo &done)
{
    return {{QStringLiteral("type"), QStringLiteral("done")},
            {QStringLiteral("tokensRemaining"), done.tokensRemaining},
            {QStringLiteral("usageWarning75"), done.usageWarning75},
            {QStringLiteral("usageWarning90"), done.usageWarning90},
            {QStringLiteral("usedFallback"), done.usedFallback},
            {QStringLiteral("tokensUsed"), done.tokensUsed}};
}

int readRecord()
{
    const auto response = LoginResponse::decode(input());
    if (!response) {
        QTextStream(stderr) << response.error().description << '\n';
        return 1;
    }
    print(response->toJson());
    return 0;
}

int readEvents()
{
    const QByteArray bytes = input();
    StreamEventParser parser;
    parser.feed({bytes.constData(), static_cast<std::size_t>(bytes.size())});
    parser.finish();
    while (const auto event = parser.next()) {
        const QString text =
            QString::fromUtf8(event->text.data(), static_cast<qsizetype>(event->text.size()));
        if (event->type == StreamEvent::Type::Done)
            print(toJson(event->done));
        else if (event->type == StreamEvent::Type::Chunk)
            print({{QStringLiteral("type"), QStringLiteral("chunk")},
                   {QStringLiteral("text"), text}});
        else
            print({{QStringLiteral("type"), QStringLiteral("error")},
                   {QStringLiteral("message"), text}});
    }
    return 0;
}

void print(const QueryOutcome &outcome)
{
    if (outcome) {
        print(toJson(*outcome));
        return;
    }
    const QueryError &error = outcome.error();
    QJsonObject object{{QStringLiteral("kind"), static_cast<int>(error.kind)},
                       {QStringLiteral("resetInSeconds"), error.resetInSeconds},
                       {QStringLiteral("status"), error.status},
                       {QStringLiteral("message"), error.message}};
    if (error.tokensRemaining)
        object.insert(QStringLiteral("tokensRemaining"), *error.tokensRemaining);
    print(object);
}

int ask(const QString &url, const QString &token)
{
    QNetworkAccessManager network;
    ProxyQueryService service(network, BackendEndpoints(url));
    const RunningQuery *query = service.query({QStringLiteral("What?"), {}, {}, token});
    QObject::connect(query, &RunningQuery::finished, [](const QueryOutcome &outcome) {
        print(outcome);
        QCoreApplication::quit();
    });
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication app(argc, argv);
    const QStringList words = QCoreApplication::arguments();
    if (words.value(1) == QLatin1String("record"))
        return readRecord();
    if (words.value(1) == QLatin1String("events"))
        return readEvents();
    return words.size() == 4 ? ask(words.at(2), words.at(3)) : 2;
}
