#pragma once

#include "history/CaptureSession.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTimeZone>

namespace quellora {

inline const QDateTime noon =
    QDateTime::fromString(QStringLiteral("2026-03-01T12:00:00Z"), Qt::ISODate);

/// What a file holds; "unreadable" if there is none.
inline QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

inline void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("The test could not write a file");
}

/// Sorted names in a folder, hidden ones included.
inline QStringList namesIn(const QString &folder)
{
    return QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

/// A thread of a picture, a note and the given answers, a minute apart.
inline CaptureSession threadOf(const QStringList &answers)
{
    CaptureSession thread = CaptureSession::create(noon);
    thread.addScreenshot(QByteArray("\xff\xd8picture"), noon, noon);
    thread.addNote(QStringLiteral("A note\nwith <b>two</b> lines"), noon.addSecs(1));
    qint64 seconds = 60;
    for (const QString &answer : answers) {
        thread.addTurn(QStringLiteral("What is <this> & *that*?"), answer, noon.addSecs(seconds),
                       noon.addSecs(seconds));
        seconds += 60;
    }
    return thread;
}

} // namespace quellora
