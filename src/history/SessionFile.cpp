#include "history/SessionFile.h"

#include "base/Json.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace quellora {

namespace {

QString dateText(const QDateTime &date)
{
    // UTC in whole seconds, with the suffix "Z".
    return date.toUTC().toString(Qt::ISODate);
}

/// The keys that a turn and each of its other versions have in common.
template <typename T>
QJsonObject answerObject(const T &turn)
{
    QJsonObject object{{QStringLiteral("prompt"), turn.prompt},
                       {QStringLiteral("response"), turn.response},
                       {QStringLiteral("createdAt"), dateText(turn.createdAt)}};
    if (turn.screenshot) {
        const auto &index = turn.screenshot->index;
        object.insert(QStringLiteral("screenshotIndex"), index ? QJsonValue(*index) : QJsonValue());
    }
    return object;
}

/// Reads the members of one object and records the first error.
class Reader
{
public:
    Reader(const QJsonValue &value, QString &error) : m_object(value.toObject()), m_error(error)
    {
        if (!value.isObject())
            fail(QStringLiteral("an entry is not an object"));
    }

    QString text(const char *key)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (!value.isString())
            fail(QStringLiteral("the key \"%1\" is missing or not a string").arg(key));
        return value.toString();
    }

    QUuid uuid(const char *key)
    {
        const auto id = uuidFromText(text(key));
        if (!id)
            fail(QStringLiteral("the key \"%1\" is not a UUID").arg(key));
        return id.value_or(QUuid());
    }

    QDateTime date(const char *key)
    {
        const QDateTime date = QDateTime::fromString(text(key), Qt::ISODate);
        if (!date.isValid() || date.timeSpec() == Qt::LocalTime)
            fail(QStringLiteral("the key \"%1\" is not a date").arg(key));
        return date;
    }

    qint64 integer(const char *key)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        const double number = value.toDouble(0.5);
        if (!value.isDouble() || number != static_cast<double>(value.toInteger(-1)))
            fail(QStringLiteral("the key \"%1\" is missing or not an integer").arg(key));
        return value.toInteger();
    }

    /// Null if the question was sent without a screenshot; absent in files from before this key.
    std::optional<CaptureSession::TurnScreenshot> screenshotIndex()
    {
        const char *key = "screenshotIndex";
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (value.isUndefined())
            return std::nullopt;
        if (value.isNull())
            return CaptureSession::TurnScreenshot();
        return CaptureSession::TurnScreenshot{integer(key)};
    }

    /// The versions of a turn; absent if it has one.
    void versions(CaptureSession::Turn &turn)
    {
        const QJsonValue value = m_object.value(QLatin1String("versions"));
        if (value.isUndefined())
            return;
        Reader versions(value, m_error);
        turn.shownVersion = versions.integer("shown");
        const QJsonArray others = versions.array("others");
        if (turn.shownVersion < 0 || turn.shownVersion > others.size() ||
            others.size() >= CaptureSession::maximumVersions) {
            fail(QStringLiteral("the versions of a turn are out of range"));
            return;
        }
        for (const QJsonValue &other : others) {
            Reader version(other, m_error);
            turn.otherVersions.append({version.text("prompt"), version.text("response"),
                                       version.date("createdAt"), version.screenshotIndex()});
        }
    }

    QJsonArray array(const char *key)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (!value.isArray())
            fail(QStringLiteral("the key \"%1\" is missing or not an array").arg(key));
        return value.toArray();
    }

    std::optional<QString> optionalText(const char *key)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (value.isUndefined() || value.isNull())
            return std::nullopt;
        return text(key);
    }

private:
    void fail(const QString &description)
    {
        if (m_error.isEmpty())
            m_error = description;
    }

    QJsonObject m_object;
    QString &m_error;
};

} // namespace

QByteArray SessionFile::encode() const
{
    QJsonArray noteObjects;
    for (const auto &note : notes) {
        noteObjects.append(QJsonObject{{QStringLiteral("id"), uuidText(note.id)},
                                       {QStringLiteral("text"), note.text},
                                       {QStringLiteral("createdAt"), dateText(note.createdAt)}});
    }
    QJsonArray turnObjects;
    for (const auto &turn : turns) {
        QJsonObject turnObject = answerObject(turn);
        turnObject.insert(QStringLiteral("id"), uuidText(turn.id));
        if (!turn.otherVersions.isEmpty()) {
            QJsonArray others;
            for (const auto &version : turn.otherVersions)
                others.append(answerObject(version));
            turnObject.insert(QStringLiteral("versions"),
                              QJsonObject{{QStringLiteral("shown"), turn.shownVersion},
                                          {QStringLiteral("others"), others}});
        }
        turnObjects.append(turnObject);
    }
    QJsonArray screenshotObjects;
    for (const auto &screenshot : screenshots) {
        screenshotObjects.append(
            QJsonObject{{QStringLiteral("index"), screenshot.index},
                        {QStringLiteral("capturedAt"), dateText(screenshot.capturedAt)}});
    }
    // QJsonObject writes its keys sorted.
    QJsonObject object{{QStringLiteral("id"), uuidText(id)},
                       {QStringLiteral("createdAt"), dateText(createdAt)},
                       {QStringLiteral("updatedAt"), dateText(updatedAt)},
                       {QStringLiteral("notes"), noteObjects},
                       {QStringLiteral("turns"), turnObjects},
                       {QStringLiteral("screenshots"), screenshotObjects}};
    if (customTitle)
        object.insert(QStringLiteral("customTitle"), *customTitle);
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

tl::expected<SessionFile, QString> SessionFile::decode(const QByteArray &json)
{
    const auto object = parseJsonObject(json);
    if (!object)
        return tl::unexpected(object.error());

    QString error;
    SessionFile file;
    Reader reader(*object, error);
    file.id = reader.uuid("id");
    file.createdAt = reader.date("createdAt");
    file.updatedAt = reader.date("updatedAt");
    for (const QJsonValue &value : reader.array("notes")) {
        Reader note(value, error);
        file.notes.append({note.uuid("id"), note.text("text"), note.date("createdAt")});
    }
    for (const QJsonValue &value : reader.array("turns")) {
        Reader turn(value, error);
        file.turns.append({turn.uuid("id"), turn.text("prompt"), turn.text("response"),
                           turn.date("createdAt"), turn.screenshotIndex()});
        turn.versions(file.turns.last());
    }
    for (const QJsonValue &value : reader.array("screenshots")) {
        Reader screenshot(value, error);
        file.screenshots.append({screenshot.integer("index"), screenshot.date("capturedAt")});
    }
    file.customTitle = reader.optionalText("customTitle");
    if (!error.isEmpty())
        return tl::unexpected(error);
    return file;
}

} // namespace quellora
