#include "history/ThreadTextReader.h"

#include "history/SessionFile.h"
#include "history/ThreadSummaryReader.h"
#include "platform/FileStatus.h"

#include <QFile>

#include <simdjson.h>

#include <algorithm>
#include <array>

namespace quellora {

namespace {

namespace ondemand = simdjson::ondemand;
using Place = ThreadHit::Place;

/// Length of a snippet's text before and after the occurrence, in bytes.
constexpr qsizetype lengthBefore = 20;
constexpr qsizetype lengthAfter = 200;

bool continuesCharacter(char c)
{
    return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

QString textOf(std::string_view utf8)
{
    return QString::fromUtf8(utf8.data(), qsizetype(utf8.size()));
}

/// A part of a text as one line.
QString lineOf(std::string_view utf8)
{
    // Not simplified(): the spaces at the ends separate the parts of a snippet.
    QString line;
    for (const QChar c : textOf(utf8)) {
        if (!c.isSpace())
            line += c;
        else if (!line.endsWith(QLatin1Char(' ')))
            line += QLatin1Char(' ');
    }
    return line;
}

/// The last @p lengthBefore bytes before the occurrence, from the beginning of a word if possible.
std::string_view contextBefore(std::string_view utf8, qsizetype start)
{
    qsizetype from = std::max<qsizetype>(0, start - lengthBefore);
    if (from > 0) {
        const auto space = utf8.find_first_of(" \n\t", size_t(from) - 1);
        if (space < size_t(start))
            from = qsizetype(space) + 1;
    }
    while (from < start && continuesCharacter(utf8[size_t(from)]))
        ++from;
    return utf8.substr(size_t(from), size_t(start - from));
}

std::string_view contextAfter(std::string_view utf8, qsizetype end)
{
    auto to = std::min<qsizetype>(qsizetype(utf8.size()), end + lengthAfter);
    while (to < qsizetype(utf8.size()) && to > end && continuesCharacter(utf8[size_t(to)]))
        --to;
    return utf8.substr(size_t(end), size_t(to - end));
}

ThreadHit hitIn(std::string_view utf8, const TextRange &range, Place place)
{
    const qsizetype end = range.start + range.length;
    const std::string_view before = contextBefore(utf8, range.start);
    const std::string_view after = contextAfter(utf8, end);
    const auto ellipsis = [](bool isCut) { return isCut ? QStringLiteral("…") : QString(); };
    QString lead = lineOf(before);
    while (lead.startsWith(QLatin1Char(' ')))
        lead.remove(0, 1);
    lead.prepend(ellipsis(before.size() < size_t(range.start)));
    const QString occurrence = lineOf(utf8.substr(size_t(range.start), size_t(range.length)));
    return {place,
            lead + occurrence + lineOf(after) + ellipsis(size_t(end) + after.size() < utf8.size()),
            lead.size(),
            occurrence.size(),
            {}};
}

/// The kinds of texts in the objects of an array of the description.
struct TextKey
{
    std::string_view array;
    std::string_view key;
    Place place;
};

constexpr std::array textKeys{TextKey{"notes", "text", Place::Note},
                              TextKey{"turns", "prompt", Place::Question},
                              TextKey{"turns", "response", Place::Answer}};

/// Nothing if the member is no text that is searched.
std::optional<Place> placeOf(std::string_view array, std::string_view key)
{
    const auto kind = std::find_if(textKeys.begin(), textKeys.end(), [&](const TextKey &each) {
        return each.array == array && each.key == key;
    });
    return kind == textKeys.end() ? std::nullopt : std::optional(kind->place);
}

/// The hit in the versions of a turn that are not on show.
template <typename Find>
std::optional<ThreadHit> hitInVersions(ondemand::object versions, const Find &find)
{
    std::optional<ThreadHit> hit;
    qsizetype position = 0;
    qsizetype shown = 0;
    for (ondemand::field member : versions) {
        const std::string_view key = member.unescaped_key();
        if (key == "shown") {
            shown = qsizetype(int64_t(member.value().get_int64()));
        } else if (key == "others") {
            for (ondemand::object version : member.value().get_array()) {
                for (ondemand::field text : version) {
                    const auto place = placeOf("turns", text.unescaped_key());
                    if (hit || !place)
                        continue;
                    hit = find(text.value().get_string(), *place);
                    if (hit)
                        hit->version = position;
                }
                ++position;
            }
        }
    }
    if (hit && *hit->version >= shown)
        ++*hit->version;
    return hit;
}

/// The hit in a note or a turn.
template <typename Find>
std::optional<ThreadHit> hitInEntry(ondemand::object entry, std::string_view array,
                                    const Find &find)
{
    std::optional<ThreadHit> hit;
    std::optional<ThreadHit> hitInOther;
    std::string_view id;
    for (ondemand::field member : entry) {
        const std::string_view key = member.unescaped_key();
        if (key == "id") {
            id = member.value().get_string();
        } else if (array == "turns" && key == "versions") {
            if (!hit)
                hitInOther = hitInVersions(member.value().get_object(), find);
        } else if (const auto place = placeOf(array, key); place && !hit) {
            hit = find(member.value().get_string(), *place);
        }
    }
    if (!hit)
        hit = std::move(hitInOther);
    if (hit)
        hit->entry = uuidFromText(textOf(id)).value_or(QUuid());
    return hit;
}

} // namespace

struct ThreadTextReader::Buffers
{
    ondemand::parser parser;
    QByteArray json;
};

ThreadTextReader::ThreadTextReader(const QString &sessionsRoot, const QString &text,
                                   const QLocale &locale)
    : m_root(QFile::encodeName(sessionsRoot))
    , m_text(text, locale)
    , m_buffers(std::make_unique<Buffers>())
{}

ThreadTextReader::~ThreadTextReader() = default;

std::optional<ThreadHit> ThreadTextReader::findIn(std::string_view utf8, Place place)
{
    const auto range = m_text.findIn(utf8);
    if (!range)
        return std::nullopt;
    ThreadHit hit = hitIn(utf8, *range, place);
    hit.reduced = m_text.reduced(hit.snippet.mid(hit.start));
    return hit;
}

std::optional<ThreadHit> ThreadTextReader::find(const QUuid &id)
{
    // The JSON parser may read beyond the end of the text.
    constexpr auto padding = static_cast<qsizetype>(simdjson::SIMDJSON_PADDING);
    QByteArray &json = m_buffers->json;
    const auto size = readFileInto(ThreadSummaryReader::folderOf(m_root, id) + "/session.json",
                                   ThreadSummaryReader::largestDescription, padding, json);
    if (!size)
        return std::nullopt;
    std::fill_n(json.data() + *size, padding, '\0');
    try {
        return findQuickly(*size);
    } catch (const simdjson::simdjson_error &) {
        // Not in the form that the program writes.
        return findStrictly(QByteArray::fromRawData(json.constData(), *size));
    }
}

/// Searches the description in the buffer, which has @p size bytes. Throws if it is not as
/// expected.
std::optional<ThreadHit> ThreadTextReader::findQuickly(qsizetype size)
{
    const QByteArray &json = m_buffers->json;
    const auto find = [this](std::string_view text, Place place) { return findIn(text, place); };
    auto document = m_buffers->parser.iterate(
        simdjson::padded_string_view(json.constData(), size_t(size), size_t(json.size())));
    for (ondemand::field field : document.get_object()) {
        const std::string_view arrayKey = field.unescaped_key();
        if (arrayKey != "notes" && arrayKey != "turns")
            continue;
        for (ondemand::object entry : field.value().get_array()) {
            if (auto hit = hitInEntry(entry, arrayKey, find))
                return hit;
        }
    }
    return std::nullopt;
}

/// Decodes like loading a thread does.
std::optional<ThreadHit> ThreadTextReader::findStrictly(const QByteArray &json)
{
    const auto file = SessionFile::decode(json);
    if (!file)
        return std::nullopt;
    for (const auto &note : file->notes) {
        if (auto hit = findIn(note.text.toStdString(), Place::Note)) {
            hit->entry = note.id;
            return hit;
        }
    }
    for (const auto &turn : file->turns) {
        // The version on show first.
        QList<qsizetype> positions{turn.shownVersion};
        for (qsizetype position = 0; position < turn.versionCount(); ++position) {
            if (position != turn.shownVersion)
                positions.append(position);
        }
        const QList<CaptureSession::TurnVersion> versions = turn.versions();
        for (const qsizetype position : positions) {
            const CaptureSession::TurnVersion &version = versions.at(position);
            auto hit = findIn(version.prompt.toStdString(), Place::Question);
            if (!hit)
                hit = findIn(version.response.toStdString(), Place::Answer);
            if (!hit)
                continue;
            hit->entry = turn.id;
            if (position != turn.shownVersion)
                hit->version = position;
            return hit;
        }
    }
    return std::nullopt;
}

} // namespace quellora
