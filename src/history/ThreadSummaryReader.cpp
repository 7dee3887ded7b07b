#include "history/ThreadSummaryReader.h"

#include "history/SessionFile.h"
#include "platform/FileStatus.h"

#include <QFile>

#include <simdjson.h>

#include <algorithm>
#include <tuple>
#include <utility>

namespace quellora {

namespace {

namespace ondemand = simdjson::ondemand;
using simdjson::simdjson_result;

/// The description is not what the program itself writes; the strict reader decides about it.
struct Unusual
{};

template <typename T>
T need(simdjson_result<T> &&result)
{
    T value;
    if (std::move(result).get(value) != simdjson::SUCCESS)
        throw Unusual();
    return value;
}

bool isUuid(std::string_view text)
{
    if (text.size() != 36)
        return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isHyphen = i == 8 || i == 13 || i == 18 || i == 23;
        const char c = text[i];
        const bool isHex =
            (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
        if (isHyphen ? c != '-' : !isHex)
            return false;
    }
    return true;
}

/// A date in the form that the program writes, with digits only where digits belong.
QDateTime plainDate(std::string_view text)
{
    constexpr std::string_view pattern = "0000-00-00T00:00:00Z";
    if (text.size() != pattern.size())
        throw Unusual();
    for (size_t i = 0; i < pattern.size(); ++i) {
        const bool isDigit = text[i] >= '0' && text[i] <= '9';
        if (pattern[i] == '0' ? !isDigit : text[i] != pattern[i])
            throw Unusual();
    }
    const auto number = [text](size_t at, size_t digits) {
        int value = 0;
        for (size_t i = at; i < at + digits; ++i)
            value = value * 10 + (text[i] - '0');
        return value;
    };
    const QDateTime date(QDate(number(0, 4), number(5, 2), number(8, 2)),
                         QTime(number(11, 2), number(14, 2), number(17, 2)), Qt::UTC);
    if (!date.isValid())
        throw Unusual();
    return date;
}

QString toText(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

void requireString(ondemand::value value)
{
    if (need(value.type()) != ondemand::json_type::string)
        throw Unusual();
}

void requireIntegerOrNull(ondemand::value value)
{
    if (!need(value.is_null()))
        need(value.get_int64());
}

/// What a note or a turn shows of itself.
struct Entry
{
    /// The key of its text that may become the title, and of one that never does.
    std::string_view titleKey;
    std::string_view otherKey;
    /// Key of the number of a screenshot, which may be missing.
    std::string_view screenshotKey;
};

constexpr Entry noteEntry{"text", {}, {}};
constexpr Entry turnEntry{"prompt", "response", "screenshotIndex"};

/// Looks at every entry and returns the first one's title text.
std::pair<qint64, QString> readEntries(ondemand::value value, const Entry &entry)
{
    qint64 count = 0;
    QString title;
    for (auto element : need(value.get_array())) {
        bool hasId = false;
        bool hasDate = false;
        bool hasTitle = false;
        bool hasOther = entry.otherKey.empty();
        ondemand::object object = need(need(std::move(element)).get_object());
        for (auto result : object) {
            ondemand::field field = need(std::move(result));
            const std::string_view key = need(field.unescaped_key());
            if (key == "id") {
                hasId = isUuid(need(field.value().get_string()));
            } else if (key == "createdAt") {
                plainDate(need(field.value().get_string()));
                hasDate = true;
            } else if (key == entry.titleKey) {
                hasTitle = true;
                if (count == 0)
                    title = toText(need(field.value().get_string()));
                else
                    requireString(field.value());
            } else if (!entry.otherKey.empty() && key == entry.otherKey) {
                hasOther = true;
                requireString(field.value());
            } else if (!entry.screenshotKey.empty() && key == entry.screenshotKey) {
                requireIntegerOrNull(field.value());
            }
        }
        if (!hasId || !hasDate || !hasTitle || !hasOther)
            throw Unusual();
        ++count;
    }
    return {count, title};
}

QList<qint64> readScreenshots(ondemand::value value)
{
    QList<qint64> indices;
    for (auto element : need(value.get_array())) {
        bool hasIndex = false;
        bool hasDate = false;
        ondemand::object object = need(need(std::move(element)).get_object());
        for (auto result : object) {
            ondemand::field field = need(std::move(result));
            const std::string_view key = need(field.unescaped_key());
            if (key == "index") {
                const int64_t index = need(field.value().get_int64());
                if (std::exchange(hasIndex, true))
                    throw Unusual();
                indices.append(index);
            } else if (key == "capturedAt") {
                plainDate(need(field.value().get_string()));
                hasDate = true;
            }
        }
        if (!hasIndex || !hasDate)
            throw Unusual();
    }
    return indices;
}

struct Description
{
    ThreadSummary summary;
    QList<qint64> screenshots;
};

/// The description in the form that the program writes it; throws Unusual for everything else.
Description readUsual(ondemand::parser &parser, simdjson::padded_string_view json)
{
    Description found;
    QString notePreview;
    QString turnPreview;
    unsigned seen = 0;
    const auto once = [&seen](unsigned bit) {
        if (seen & bit)
            throw Unusual();
        seen |= bit;
    };
    ondemand::document document = need(parser.iterate(json));
    ondemand::object object = need(document.get_object());
    for (auto result : object) {
        ondemand::field field = need(std::move(result));
        const std::string_view key = need(field.unescaped_key());
        ondemand::value value = field.value();
        if (key == "id") {
            once(1);
            const std::string_view id = need(value.get_string());
            if (!isUuid(id))
                throw Unusual();
            found.summary.id = QUuid::fromString(QLatin1String(id.data(), qsizetype(id.size())));
        } else if (key == "createdAt") {
            once(2);
            found.summary.createdAt = plainDate(need(value.get_string()));
        } else if (key == "updatedAt") {
            once(4);
            found.summary.updatedAt = plainDate(need(value.get_string()));
        } else if (key == "notes") {
            once(8);
            std::tie(found.summary.notes, notePreview) = readEntries(value, noteEntry);
        } else if (key == "turns") {
            once(16);
            std::tie(found.summary.turns, turnPreview) = readEntries(value, turnEntry);
        } else if (key == "screenshots") {
            once(32);
            found.screenshots = readScreenshots(value);
        } else if (key == "customTitle") {
            once(64);
            found.summary.customTitle = toText(need(value.get_string()));
        } else {
            throw Unusual();
        }
    }
    if ((seen & 63) != 63 || document.current_location().error() != simdjson::OUT_OF_BOUNDS)
        throw Unusual();
    found.summary.previewText = found.summary.turns > 0   ? CaptureSession::firstLine(turnPreview)
                                : found.summary.notes > 0 ? CaptureSession::firstLine(notePreview)
                                                          : QStringLiteral("Screenshot");
    return found;
}

/// The same through the reader that also loads threads.
tl::expected<Description, QString> readStrictly(const QByteArray &json)
{
    const auto file = SessionFile::decode(json);
    if (!file)
        return tl::unexpected(file.error());
    CaptureSession session;
    session.notes = file->notes;
    session.turns = file->turns;
    Description found;
    found.summary = {file->id,
                     file->createdAt,
                     file->updatedAt,
                     file->customTitle,
                     session.previewText(),
                     file->turns.size(),
                     file->notes.size(),
                     0};
    for (const auto &screenshot : file->screenshots)
        found.screenshots.append(screenshot.index);
    return found;
}

} // namespace

struct ThreadSummaryReader::Memory
{
    ondemand::parser parser;
    QByteArray json;
};

ThreadSummaryReader::ThreadSummaryReader(const QString &sessionsRoot)
    : m_root(QFile::encodeName(sessionsRoot)), m_memory(std::make_unique<Memory>())
{}

ThreadSummaryReader::~ThreadSummaryReader() = default;

QByteArray ThreadSummaryReader::folderOf(const QByteArray &root, const QUuid &id)
{
    return root + '/' + id.toByteArray(QUuid::WithoutBraces).toUpper();
}

tl::expected<ThreadSummary, QString> ThreadSummaryReader::read(const QUuid &id)
{
    auto summary = readDescription(id, folderOf(m_root, id));
    if (summary && summary->id != id)
        return tl::unexpected(QStringLiteral("it describes thread ") + uuidText(summary->id));
    return summary;
}

tl::expected<ThreadSummary, QString> ThreadSummaryReader::readDescription(const QUuid &id,
                                                                          const QByteArray &folder)
{
    using Kind = StoreError::Kind;
    // The JSON reader looks a little beyond the end.
    constexpr auto padding = static_cast<qsizetype>(simdjson::SIMDJSON_PADDING);
    QByteArray &json = m_memory->json;
    const auto size = readFileInto(folder + "/session.json", largestDescription, padding, json);
    if (!size) {
        switch (size.error().kind) {
        case ReadFailure::Kind::Nothing:
            return tl::unexpected(StoreError{Kind::SessionNotFound, id, 0, {}}.description());
        case ReadFailure::Kind::NotAFile:
            return tl::unexpected(QStringLiteral("not a regular file"));
        case ReadFailure::Kind::TooLarge:
            return tl::unexpected(QStringLiteral("the description is too large"));
        case ReadFailure::Kind::Other:
            break;
        }
        return tl::unexpected(size.error().text);
    }
    std::fill_n(json.data() + *size, padding, '\0');

    tl::expected<Description, QString> found;
    try {
        found = readUsual(
            m_memory->parser,
            simdjson::padded_string_view(json.constData(), size_t(*size), size_t(json.size())));
    } catch (const Unusual &) {
        found = readStrictly(QByteArray::fromRawData(json.constData(), *size));
    }
    if (!found)
        return tl::unexpected(found.error());
    for (const qint64 index : std::as_const(found->screenshots)) {
        const QByteArray image =
            folder + '/' + QFile::encodeName(CaptureSessionStore::screenshotFileName(index));
        if (fileStatus(image).kind != FileStatus::Kind::File) {
            return tl::unexpected(
                StoreError{Kind::ScreenshotFileMissing, id, index, {}}.description());
        }
    }
    found->summary.screenshots = found->screenshots.size();
    return found->summary;
}

} // namespace quellora
