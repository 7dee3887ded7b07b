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
        auto document = m_buffers->parser.iterate(
            simdjson::padded_string_view(json.constData(), size_t(*size), size_t(json.size())));
        for (ondemand::field field : document.get_object()) {
            const std::string_view arrayKey = field.unescaped_key();
            if (arrayKey != "notes" && arrayKey != "turns")
                continue;
            for (ondemand::object entry : field.value().get_array()) {
                for (ondemand::field member : entry) {
                    const std::string_view key = member.unescaped_key();
                    const auto kind =
                        std::find_if(textKeys.begin(), textKeys.end(), [&](const TextKey &each) {
                            return each.array == arrayKey && each.key == key;
                        });
                    if (kind == textKeys.end())
                        continue;
                    if (auto hit = findIn(member.value().get_string(), kind->place))
                        return hit;
                }
            }
        }
        return std::nullopt;
    } catch (const simdjson::simdjson_error &) {
        // Not in the form that the program writes.
        return findStrictly(QByteArray::fromRawData(json.constData(), *size));
    }
}

/// Decodes like loading a thread does.
std::optional<ThreadHit> ThreadTextReader::findStrictly(const QByteArray &json)
{
    const auto file = SessionFile::decode(json);
    if (!file)
        return std::nullopt;
    for (const auto &note : file->notes) {
        if (auto hit = findIn(note.text.toStdString(), Place::Note))
            return hit;
    }
    for (const auto &turn : file->turns) {
        if (auto hit = findIn(turn.prompt.toStdString(), Place::Question))
            return hit;
        if (auto hit = findIn(turn.response.toStdString(), Place::Answer))
            return hit;
    }
    return std::nullopt;
}

} // namespace quellora
