#include "history/ThreadSummaryReader.h"

#include "history/SessionFile.h"
#include "platform/FileStatus.h"

#include <QFile>

#include <simdjson.h>

#include <algorithm>
#include <exception>
#include <tuple>
#include <utility>

namespace quellora {

namespace {

namespace ondemand = simdjson::ondemand;
using simdjson::simdjson_result;

/// Thrown when the description is not exactly in the form that the program writes; the strict
/// reader is used then.
struct UnexpectedForm : std::exception
{};

template <typename T>
T require(simdjson_result<T> &&result)
{
    T value;
    if (std::move(result).get(value) != simdjson::SUCCESS)
        throw UnexpectedForm();
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

/// Parses a date in exactly the form that the program writes.
QDateTime parseDate(std::string_view text)
{
    constexpr std::string_view pattern = "0000-00-00T00:00:00Z";
    if (text.size() != pattern.size())
        throw UnexpectedForm();
    for (size_t i = 0; i < pattern.size(); ++i) {
        const bool isDigit = text[i] >= '0' && text[i] <= '9';
        if (pattern[i] == '0' ? !isDigit : text[i] != pattern[i])
            throw UnexpectedForm();
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
        throw UnexpectedForm();
    return date;
}

QString toText(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

void requireString(ondemand::value value)
{
    if (require(value.type()) != ondemand::json_type::string)
        throw UnexpectedForm();
}

void requireIntegerOrNull(ondemand::value value)
{
    if (!require(value.is_null()))
        require(value.get_int64());
}

/// The keys of a note or a turn.
struct Entry
{
    /// Key of the text used as a title, and of a required text that is not.
    std::string_view titleKey;
    std::string_view otherKey;
    /// Key of the optional screenshot number.
    std::string_view screenshotKey;
    bool hasId = true;
    /// Key of the optional other versions.
    std::string_view versionsKey = {};
};

constexpr Entry noteEntry{"text", {}, {}};
constexpr Entry turnEntry{"prompt", "response", "screenshotIndex", true, "versions"};
constexpr Entry versionEntry{"prompt", "response", "screenshotIndex", false};

void requireVersions(ondemand::value value);

/// Validates all entries; returns their number and the first one's title text.
std::pair<qint64, QString> readEntries(ondemand::value value, const Entry &entry)
{
    qint64 count = 0;
    QString title;
    for (auto element : require(value.get_array())) {
        bool hasId = !entry.hasId;
        bool hasVersions = false;
        bool hasDate = false;
        bool hasTitle = false;
        bool hasOther = entry.otherKey.empty();
        ondemand::object object = require(require(std::move(element)).get_object());
        for (auto result : object) {
            ondemand::field field = require(std::move(result));
            const std::string_view key = require(field.unescaped_key());
            if (key == "id" && entry.hasId) {
                hasId = isUuid(require(field.value().get_string()));
            } else if (key == "createdAt") {
                parseDate(require(field.value().get_string()));
                hasDate = true;
            } else if (key == entry.titleKey) {
                hasTitle = true;
                if (count == 0)
                    title = toText(require(field.value().get_string()));
                else
                    requireString(field.value());
            } else if (!entry.otherKey.empty() && key == entry.otherKey) {
                hasOther = true;
                requireString(field.value());
            } else if (!entry.screenshotKey.empty() && key == entry.screenshotKey) {
                requireIntegerOrNull(field.value());
            } else if (!entry.versionsKey.empty() && key == entry.versionsKey) {
                if (std::exchange(hasVersions, true))
                    throw UnexpectedForm();
                requireVersions(field.value());
            } else {
                // The fast parser does not look into values that it skips.
                throw UnexpectedForm();
            }
        }
        if (!hasId || !hasDate || !hasTitle || !hasOther)
            throw UnexpectedForm();
        ++count;
    }
    return {count, title};
}

/// Validates the other versions of a turn.
void requireVersions(ondemand::value value)
{
    int64_t shown = -1;
    qint64 others = -1;
    ondemand::object object = require(value.get_object());
    for (auto result : object) {
        ondemand::field field = require(std::move(result));
        const std::string_view key = require(field.unescaped_key());
        if (key == "shown")
            shown = require(field.value().get_int64());
        else if (key == "others" && others < 0)
            others = readEntries(field.value(), versionEntry).first;
        else
            throw UnexpectedForm();
    }
    if (shown < 0 || shown > others || others >= CaptureSession::maximumVersions)
        throw UnexpectedForm();
}

QList<qint64> readScreenshots(ondemand::value value)
{
    QList<qint64> indices;
    for (auto element : require(value.get_array())) {
        bool hasIndex = false;
        bool hasDate = false;
        ondemand::object object = require(require(std::move(element)).get_object());
        for (auto result : object) {
            ondemand::field field = require(std::move(result));
            const std::string_view key = require(field.unescaped_key());
            if (key == "index") {
                const int64_t index = require(field.value().get_int64());
                if (std::exchange(hasIndex, true))
                    throw UnexpectedForm();
                indices.append(index);
            } else if (key == "capturedAt") {
                parseDate(require(field.value().get_string()));
                hasDate = true;
            } else {
                throw UnexpectedForm();
            }
        }
        if (!hasIndex || !hasDate)
            throw UnexpectedForm();
    }
    return indices;
}

struct Description
{
    ThreadSummary summary;
    QList<qint64> screenshots;
};

/// Fast path for descriptions written by the program; throws UnexpectedForm for any other form.
Description readFast(ondemand::parser &parser, simdjson::padded_string_view json)
{
    Description found;
    QString notePreview;
    QString turnPreview;
    unsigned seen = 0;
    const auto once = [&seen](unsigned bit) {
        if (seen & bit)
            throw UnexpectedForm();
        seen |= bit;
    };
    ondemand::document document = require(parser.iterate(json));
    ondemand::object object = require(document.get_object());
    for (auto result : object) {
        ondemand::field field = require(std::move(result));
        const std::string_view key = require(field.unescaped_key());
        ondemand::value value = field.value();
        if (key == "id") {
            once(1);
            const std::string_view id = require(value.get_string());
            if (!isUuid(id))
                throw UnexpectedForm();
            found.summary.id = QUuid::fromString(QLatin1String(id.data(), qsizetype(id.size())));
        } else if (key == "createdAt") {
            once(2);
            found.summary.createdAt = parseDate(require(value.get_string()));
        } else if (key == "updatedAt") {
            once(4);
            found.summary.updatedAt = parseDate(require(value.get_string()));
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
            found.summary.customTitle = toText(require(value.get_string()));
        } else {
            throw UnexpectedForm();
        }
    }
    if ((seen & 63) != 63 || document.current_location().error() != simdjson::OUT_OF_BOUNDS)
        throw UnexpectedForm();
    found.summary.previewText = found.summary.turns > 0   ? CaptureSession::firstLine(turnPreview)
                                : found.summary.notes > 0 ? CaptureSession::firstLine(notePreview)
                                                          : QStringLiteral("Screenshot");
    return found;
}

/// Fallback that decodes like loading a thread does.
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

struct ThreadSummaryReader::Buffers
{
    ondemand::parser parser;
    QByteArray json;
};

ThreadSummaryReader::ThreadSummaryReader(const QString &sessionsRoot)
    : m_root(QFile::encodeName(sessionsRoot)), m_buffers(std::make_unique<Buffers>())
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
    // The JSON parser may read beyond the end of the text.
    constexpr auto padding = static_cast<qsizetype>(simdjson::SIMDJSON_PADDING);
    QByteArray &json = m_buffers->json;
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
        found = readFast(
            m_buffers->parser,
            simdjson::padded_string_view(json.constData(), size_t(*size), size_t(json.size())));
    } catch (const UnexpectedForm &) {
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
