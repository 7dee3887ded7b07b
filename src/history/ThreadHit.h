#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QUuid>

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

    bool operator==(const ThreadHit &) const = default;
};

/// One batch of a search's result.
using ThreadHits = QHash<QUuid, ThreadHit>;

} // namespace quellora
