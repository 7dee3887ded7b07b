#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

/// Test data that others wrote; where it comes from is in Fetch.cmake.
namespace quellora::corpora {

/// A case of the JSON test suite.
struct JsonCase
{
    /// What a reader does with it.
    enum class Verdict { Accepts, Refuses, Chooses };

    QString name;
    QByteArray text;
    Verdict verdict = Verdict::Chooses;
};

/// All cases of the JSON test suite, by name.
QList<JsonCase> jsonCases();

/// The big list of naughty strings.
QStringList naughtyStrings();

} // namespace quellora::corpora
