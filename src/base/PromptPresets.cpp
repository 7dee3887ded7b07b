#include "base/PromptPresets.h"

#include "base/UserDefaults.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QUuid>

#include <algorithm>

namespace quellora {

namespace {

const QString idKey = QStringLiteral("id");
const QString nameKey = QStringLiteral("name");
const QString textKey = QStringLiteral("text");

QString storageKey()
{
    return QString::fromLatin1(DefaultsKey::promptPresets);
}

bool isId(const QString &text)
{
    static const QRegularExpression form(QStringLiteral("\\A[a-z0-9-]{1,40}\\z"));
    return form.match(text).hasMatch();
}

bool isKept(const QString &name, const QString &text)
{
    return !name.isEmpty() && name.size() <= PromptPresets::maximumNameLength && !text.isEmpty() &&
           text.size() <= PromptPresets::maximumTextLength;
}

} // namespace

PromptPresets::PromptPresets(UserDefaults &defaults, QObject *parent)
    : QObject(parent), m_defaults(defaults)
{
    load();
    connect(&m_defaults, &UserDefaults::changed, this, [this](const QString &key) {
        if (key != storageKey())
            return;
        const QList<PromptPreset> before = m_list;
        load();
        if (m_list != before)
            Q_EMIT changed();
    });
}

const QList<PromptPreset> &PromptPresets::builtIn()
{
    static const QList<PromptPreset> list{
        {QStringLiteral("explain"), QStringLiteral("Explain"),
         QStringLiteral("Explain what is on the screen in simple words.")},
        {QStringLiteral("fix-error"), QStringLiteral("Fix the error"),
         QStringLiteral("Find the error on the screen. Say what causes it and how to fix it, with "
                        "the exact commands or code.")},
        {QStringLiteral("translate"), QStringLiteral("Translate"),
         QStringLiteral("Translate the text on the screen into English. Keep its structure.")},
    };
    return list;
}

void PromptPresets::load()
{
    const auto stored = m_defaults.stringValue(storageKey());
    const QJsonDocument document =
        stored ? QJsonDocument::fromJson(stored->toUtf8()) : QJsonDocument();
    if (!document.isArray()) {
        m_list = builtIn();
        return;
    }
    m_list.clear();
    for (const QJsonValue &entry : document.array()) {
        if (isFull())
            break;
        PromptPreset preset{entry[idKey].toString(), cleanName(entry[nameKey].toString()),
                            cleanText(entry[textKey].toString())};
        if (isId(preset.id) && isKept(preset.name, preset.text) && indexOf(preset.id) < 0)
            m_list.append(std::move(preset));
    }
}

void PromptPresets::store(const QList<PromptPreset> &list)
{
    QJsonArray entries;
    for (const PromptPreset &preset : list)
        entries.append(
            QJsonObject{{idKey, preset.id}, {nameKey, preset.name}, {textKey, preset.text}});
    // Reloads through the store's signal.
    m_defaults.setString(storageKey(),
                         QString::fromUtf8(QJsonDocument(entries).toJson(QJsonDocument::Compact)));
}

qsizetype PromptPresets::indexOf(const QString &id) const
{
    const auto found = std::find_if(m_list.begin(), m_list.end(),
                                    [&id](const PromptPreset &each) { return each.id == id; });
    return found == m_list.end() ? -1 : found - m_list.begin();
}

std::optional<PromptPreset> PromptPresets::find(const QString &id) const
{
    const qsizetype index = indexOf(id);
    return index < 0 ? std::nullopt : std::optional(m_list.at(index));
}

std::optional<PromptPreset> PromptPresets::named(const QString &name) const
{
    const QString wanted = cleanName(name);
    for (const PromptPreset &prompt : m_list) {
        if (prompt.name.compare(wanted, Qt::CaseInsensitive) == 0)
            return prompt;
    }
    return find(wanted);
}

QString PromptPresets::cleanName(const QString &name)
{
    return name.simplified();
}

QString PromptPresets::cleanText(const QString &text)
{
    // A zero byte would end the text in some of the places it is shown.
    return QString(text).remove(QChar::Null).trimmed();
}

QString PromptPresets::problem(const QString &name, const QString &text, const QString &id) const
{
    const QString keptName = cleanName(name);
    const QString keptText = cleanText(text);
    if (keptName.isEmpty())
        return QStringLiteral("The prompt needs a name.");
    if (keptName.size() > maximumNameLength)
        return QStringLiteral("The name can have at most %1 characters.").arg(maximumNameLength);
    if (keptText.isEmpty())
        return QStringLiteral("The prompt needs a text.");
    if (keptText.size() > maximumTextLength)
        return QStringLiteral("The text can have at most %1 characters.").arg(maximumTextLength);
    const bool isTaken = std::any_of(m_list.begin(), m_list.end(), [&](const PromptPreset &each) {
        return each.id != id && each.name.compare(keptName, Qt::CaseInsensitive) == 0;
    });
    return isTaken ? QStringLiteral("Another prompt has this name.") : QString();
}

QString PromptPresets::add(const QString &name, const QString &text)
{
    if (isFull() || !problem(name, text).isEmpty())
        return {};
    const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    store(m_list + QList<PromptPreset>{{id, cleanName(name), cleanText(text)}});
    return id;
}

bool PromptPresets::change(const QString &id, const QString &name, const QString &text)
{
    const qsizetype index = indexOf(id);
    if (index < 0 || !problem(name, text, id).isEmpty())
        return false;
    QList<PromptPreset> list = m_list;
    list[index] = {id, cleanName(name), cleanText(text)};
    store(list);
    return true;
}

void PromptPresets::remove(const QString &id)
{
    const qsizetype index = indexOf(id);
    if (index < 0)
        return;
    QList<PromptPreset> list = m_list;
    list.removeAt(index);
    store(list);
}

void PromptPresets::move(const QString &id, int steps)
{
    const qsizetype from = indexOf(id);
    if (from < 0)
        return;
    const qsizetype to = std::clamp<qsizetype>(from + steps, 0, m_list.size() - 1);
    QList<PromptPreset> list = m_list;
    list.move(from, to);
    if (to != from)
        store(list);
}

} // namespace quellora
