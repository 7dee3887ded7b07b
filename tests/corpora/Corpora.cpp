#include "corpora/Corpora.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

namespace quellora::corpora {

namespace {

QByteArray bytesOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s is missing: configure the build again", qUtf8Printable(path));
    return file.readAll();
}

JsonCase::Verdict verdictOf(const QString &name)
{
    if (name.startsWith(QLatin1String("y_")))
        return JsonCase::Verdict::Accepts;
    return name.startsWith(QLatin1String("n_")) ? JsonCase::Verdict::Refuses
                                                : JsonCase::Verdict::Chooses;
}

} // namespace

QList<JsonCase> jsonCases()
{
    const QDir folder(QStringLiteral(QUELLORA_CORPORA "/json"));
    QList<JsonCase> cases;
    for (const QString &file : folder.entryList(QDir::Files, QDir::Name))
        cases.append({file.chopped(5), bytesOf(folder.filePath(file)), verdictOf(file)});
    return cases;
}

QStringList naughtyStrings()
{
    const QJsonDocument list =
        QJsonDocument::fromJson(bytesOf(QStringLiteral(QUELLORA_CORPORA "/naughty-strings.json")));
    QStringList strings;
    for (const QJsonValue &value : list.array())
        strings.append(value.toString());
    return strings;
}

} // namespace quellora::corpora
