#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QUuid>

#include <optional>

namespace quellora {

/// Where the text of a search occurs in a stored thread.
struct ThreadHit
{
    enum class Place { Note, Question, Answer };

    Place place = Place::Note;
    /// One line of text around the occurrence.
    QString snippet;
    /// The occurrence in the snippet, in UTF-16 units.
    qsizetype start = 0;
    qsizetype length = 0;
    /// The snippet from the occurrence on in the reduced form of TextFolding, so that a longer
    /// search text can be compared quickly.
    QByteArray reduced = {};
    /// The note or the turn.
    QUuid entry = {};
    /// Position of the turn's version that contains the text; nothing if that one is on show.
    std::optional<qsizetype> version = {};

    bool operator==(const ThreadHit &) const = default;
};

/// A hit as the user opens it.
struct FoundText
{
    /// The text searched for.
    QString text;
    /// As in ThreadHit.
    QUuid entry;
    std::optional<qsizetype> version;

    bool operator==(const FoundText &) const = default;
};

/// One batch of a search's result.
using ThreadHits = QHash<QUuid, ThreadHit>;

} // namespace quellora
