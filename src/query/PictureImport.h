#pragma once

#include <QByteArray>
#include <QFuture>
#include <QString>

#include <tl/expected.hpp>

namespace quellora {

/// A picture that the user pastes or drops: a file's content or, without it, a path.
struct OfferedPicture
{
    QByteArray bytes = {};
    QString file = {};

    bool operator==(const OfferedPicture &) const = default;
};

/// Turns pictures of the user into what a capture gives: JPEG at most 1280 pixels wide. Takes PNG,
/// JPEG and WebP by their content, whatever their name says. Sizes are checked before decoding;
/// transparency becomes white. Stateless.
class PictureImport
{
public:
    /// JPEG bytes, or why there are none as a sentence for the user.
    using Outcome = tl::expected<QByteArray, QString>;

    /// Limits of a picture: the file in bytes, all pixels, and those of a side.
    static constexpr qint64 maximumBytes = 20'000'000;
    static constexpr qint64 maximumPixels = 64'000'000;
    static constexpr int maximumSide = 32767;

    /// Imports on a worker thread, one picture after the other. Thread-safe.
    static QFuture<Outcome> importInBackground(const OfferedPicture &picture);
    /// Imports on the calling thread. Does not wait for a pipe.
    static Outcome convert(const OfferedPicture &picture);
    /// What the user is told of a picture of another format.
    static QString formatProblem();
};

} // namespace quellora
