#include "base/UserDefaults.h"

#include "base/Json.h"
#include "base/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>
#include <QStandardPaths>

#include <algorithm>
#include <utility>

namespace quellora {

namespace {

constexpr std::chrono::milliseconds longestRetryDelay = std::chrono::minutes(1);

} // namespace

JsonUserDefaults::JsonUserDefaults(QString path, QObject *parent,
                                   std::chrono::milliseconds retryDelay)
    : UserDefaults(parent), m_path(std::move(path)), m_firstRetryDelay(retryDelay)
{
    m_writer.setMaxThreadCount(1);
    m_retry.setParent(this);
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &JsonUserDefaults::scheduleWrite);
    load();
}

JsonUserDefaults::~JsonUserDefaults()
{
    flush();
}

QString JsonUserDefaults::defaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/Quellora/defaults.json");
}

std::optional<bool> JsonUserDefaults::boolValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    return value.isBool() ? std::optional(value.toBool()) : std::nullopt;
}

std::optional<QString> JsonUserDefaults::stringValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    return value.isString() ? std::optional(value.toString()) : std::nullopt;
}

std::optional<QMap<QString, QString>> JsonUserDefaults::stringDictionary(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    if (!value.isObject())
        return std::nullopt;
    QMap<QString, QString> entries;
    const QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (it->isString())
            entries.insert(it.key(), it->toString());
    }
    return entries;
}

void JsonUserDefaults::setBool(const QString &key, bool value)
{
    store(key, value);
}

void JsonUserDefaults::setString(const QString &key, const QString &value)
{
    store(key, value);
}

void JsonUserDefaults::setStringDictionary(const QString &key, const QMap<QString, QString> &value)
{
    QJsonObject object;
    for (auto it = value.begin(); it != value.end(); ++it)
        object.insert(it.key(), it.value());
    store(key, object);
}

void JsonUserDefaults::remove(const QString &key)
{
    store(key, QJsonValue(QJsonValue::Undefined));
}

void JsonUserDefaults::load()
{
    QFile file(m_path);
    if (m_path.isEmpty() || !file.exists())
        return;
    QString reason;
    if (!file.open(QIODevice::ReadOnly)) {
        reason = file.errorString();
    } else if (const auto values = parseJsonObject(file.readAll())) {
        m_values = *values;
        return;
    } else {
        reason = values.error();
    }
    file.close();
    const QString aside = m_path + QStringLiteral(".damaged");
    QFile::remove(aside);
    const bool kept = QFile::rename(m_path, aside);
    Log::event(QStringLiteral("[UserDefaults] ERROR: Could not read %1: %2. Using defaults%3")
                   .arg(m_path, reason,
                        kept ? QStringLiteral(", the file is kept as %1").arg(aside) : QString()));
}

void JsonUserDefaults::store(const QString &key, const QJsonValue &value)
{
    if (m_values.value(key) == value && m_values.contains(key) == !value.isUndefined())
        return;
    if (value.isUndefined())
        m_values.remove(key);
    else
        m_values.insert(key, value);
    scheduleWrite();
    Q_EMIT changed(key);
}

void JsonUserDefaults::scheduleWrite()
{
    if (m_path.isEmpty())
        return;
    m_isDirty = true;
    // After a failed write, changes wait for the next attempt.
    if (m_writing || m_retry.isActive())
        return;
    m_isDirty = false;
    m_writing = std::make_shared<Write>();
    m_writer.start([this, path = m_path, values = m_values, write = m_writing] {
        write->error = writeFile(path, values);
        QMetaObject::invokeMethod(
            this, [this, write] { finish(write); }, Qt::QueuedConnection);
    });
}

void JsonUserDefaults::finish(const std::shared_ptr<Write> &write)
{
    // flush() may already have handled this write.
    if (write != m_writing)
        return;
    m_writing.reset();
    report(write->error);
    if (m_lastError.isEmpty() && m_isDirty)
        scheduleWrite();
}

void JsonUserDefaults::report(const QString &error)
{
    if (error.isEmpty()) {
        if (!m_lastError.isEmpty())
            Log::event(QStringLiteral("[UserDefaults] %1 is written again").arg(m_path));
        m_lastError.clear();
        m_retry.stop();
        return;
    }
    m_isDirty = true;
    const std::chrono::milliseconds delay =
        m_lastError.isEmpty() ? m_firstRetryDelay
                              : std::min(m_retry.intervalAsDuration() * 2, longestRetryDelay);
    if (error != m_lastError)
        Log::event(QStringLiteral("[UserDefaults] ERROR: Could not write %1: %2 (non-fatal)")
                       .arg(m_path, error));
    m_lastError = error;
    m_retry.start(delay);
}

void JsonUserDefaults::flush()
{
    m_writer.waitForDone();
    if (m_writing) {
        const auto write = std::exchange(m_writing, nullptr);
        report(write->error);
    }
    if (!m_isDirty)
        return;
    m_isDirty = false;
    report(writeFile(m_path, m_values));
}

QString JsonUserDefaults::writeFile(const QString &path, const QJsonObject &values)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    file.setDirectWriteFallback(false);
    const QByteArray json = QJsonDocument(values).toJson(QJsonDocument::Indented);
    // Unbuffered, so that write() reports failures; otherwise QSaveFile could commit an empty file.
    if (file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        if (file.write(json) == json.size() && file.commit())
            return {};
    }
    return file.errorString();
}

} // namespace quellora
