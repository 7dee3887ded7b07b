#include "query/PictureImport.h"

#include "platform/FileStatus.h"
#include "query/JpegEncoder.h"
#include "query/ScreenshotCapture.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QPainter>
#include <QPromise>
#include <QThreadPool>
#include <QtEndian>

#include <memory>
#include <utility>

namespace quellora {

namespace {

constexpr int jpegQuality = 85;
/// Wider pictures are reduced to this width while they are decoded, which is cheap and leaves
/// enough for the final width.
constexpr int decodedWidth = 2560;
/// Memory for one image, in MiB: the most pixels in the largest format.
constexpr int allocationLimit = 512;

QThreadPool &importPool()
{
    static QThreadPool pool;
    static const bool isSetUp = [] {
        pool.setMaxThreadCount(1);
        qAddPostRoutine([] { importPool().waitForDone(1000); });
        return true;
    }();
    Q_UNUSED(isSetUp)
    return pool;
}

/// Qt's name of the picture's format by its content; empty for any other format.
QByteArray formatOf(const QByteArray &bytes)
{
    if (bytes.startsWith("\x89PNG\r\n\x1a\n"))
        return "png";
    if (bytes.startsWith("\xff\xd8\xff"))
        return "jpeg";
    if (bytes.startsWith("RIFF") && bytes.mid(8, 4) == "WEBP")
        return "webp";
    return {};
}

/// Whether the chunks of a PNG, up to its end, lie within the file. The decoding library reserves
/// as much memory as a chunk claims to need: a gigabyte for a file of 57 bytes.
bool hasWholeChunks(const QByteArray &png)
{
    constexpr qsizetype signatureBytes = 8;
    constexpr qsizetype chunkOverhead = 12;
    for (qsizetype at = signatureBytes; png.size() - at >= chunkOverhead;) {
        const auto length = qFromBigEndian<quint32>(png.constData() + at);
        if (length > png.size() - at - chunkOverhead)
            return false;
        if (QByteArrayView(png).sliced(at + 4, 4) == "IEND")
            return true;
        at += chunkOverhead + length;
    }
    return false;
}

tl::unexpected<QString> tooLarge()
{
    return tl::unexpected(QStringLiteral("The picture is larger than 20 MB."));
}

PictureImport::Outcome readPicture(const QString &path)
{
    QByteArray bytes;
    const QString target = QFileInfo(path).canonicalFilePath();
    const auto size =
        readFileInto(QFile::encodeName(target), PictureImport::maximumBytes, 0, bytes);
    if (size)
        return bytes.left(*size);
    QString reason = size.error().text;
    switch (size.error().kind) {
    case ReadFailure::Kind::TooLarge:
        return tooLarge();
    case ReadFailure::Kind::Nothing:
        reason = QStringLiteral("the file is gone");
        break;
    case ReadFailure::Kind::NotAFile:
        reason = QStringLiteral("it is not a file");
        break;
    case ReadFailure::Kind::Other:
        break;
    }
    return tl::unexpected(QStringLiteral("The picture can't be read: ") + reason);
}

QImage withoutTransparency(const QImage &image)
{
    if (!image.hasAlphaChannel())
        return image.convertToFormat(QImage::Format_RGB32);
    QImage opaque(image.size(), QImage::Format_RGB32);
    opaque.fill(Qt::white);
    QPainter(&opaque).drawImage(0, 0, image);
    return opaque;
}

} // namespace

QString PictureImport::formatProblem()
{
    return QStringLiteral("Only PNG, JPEG and WebP pictures can be attached.");
}

QFuture<PictureImport::Outcome> PictureImport::importInBackground(const OfferedPicture &picture)
{
    const auto promise = std::make_shared<QPromise<Outcome>>();
    promise->start();
    importPool().start([promise, picture] {
        promise->addResult(convert(picture));
        promise->finish();
    });
    return promise->future();
}

PictureImport::Outcome PictureImport::convert(const OfferedPicture &picture)
{
    auto bytes = picture.file.isEmpty() ? Outcome(picture.bytes) : readPicture(picture.file);
    if (!bytes)
        return bytes;
    if (bytes->size() > maximumBytes)
        return tooLarge();
    const QByteArray format = formatOf(*bytes);
    if (format.isEmpty() || !QImageReader::supportedImageFormats().contains(format))
        return tl::unexpected(formatProblem());

    const auto damaged = tl::unexpected(QStringLiteral("The picture is damaged."));
    if (format == "png" && !hasWholeChunks(*bytes))
        return damaged;

    QBuffer buffer(&*bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, format);
    reader.setDecideFormatFromContent(false);
    reader.setAutoTransform(true);
    QImageReader::setAllocationLimit(allocationLimit);
    const QSize size = reader.size();
    if (!size.isValid() || size.isEmpty())
        return damaged;
    if (qint64{size.width()} * size.height() > maximumPixels)
        return tl::unexpected(QStringLiteral("The picture has more than 64 megapixels."));
    if (size.width() > maximumSide || size.height() > maximumSide)
        return tl::unexpected(QStringLiteral("The picture is too wide or too high."));
    if (size.width() > decodedWidth)
        reader.setScaledSize(
            size.scaled(decodedWidth, size.height(), Qt::KeepAspectRatio).expandedTo({1, 1}));
    const QImage decoded = reader.read();
    if (decoded.isNull())
        return damaged;
    QByteArray jpeg = encodeJpeg(
        ScreenshotCapture::resizeIfNeeded(Bitmap::fromImage(withoutTransparency(decoded))),
        jpegQuality);
    if (jpeg.isEmpty())
        return damaged;
    return jpeg;
}

} // namespace quellora
