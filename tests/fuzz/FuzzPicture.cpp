#include "QtFuzz.h"
#include "query/PictureImport.h"

#include <QBuffer>
#include <QImageReader>
#include <QtEndian>

using namespace quellora;
using namespace quellora::fuzz;

namespace {

/// Width and height as the picture claims them.
QSize sizeOf(QByteArray &picture)
{
    constexpr qsizetype widthAt = 16;
    // The reader of the toolkit reserves memory before it knows the size.
    if (picture.startsWith("\x89PNG")) {
        return picture.size() < widthAt + 8
                   ? QSize()
                   : QSize(qFromBigEndian<qint32>(picture.constData() + widthAt),
                           qFromBigEndian<qint32>(picture.constData() + widthAt + 4));
    }
    QBuffer buffer(&picture);
    buffer.open(QIODevice::ReadOnly);
    return QImageReader(&buffer).size();
}

} // namespace

/// The input as a pasted picture (JPEG, PNG or WebP). What comes out is a JPEG.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    prepareQt();
    constexpr qint64 mostPixels = 1 << 20;
    QByteArray picture = bytes(view(data, size));
    // Large pictures take long and reach nothing that small ones do not.
    const QSize claimed = sizeOf(picture);
    if (claimed.isValid() && qint64{claimed.width()} * claimed.height() > mostPixels)
        return -1;
    const auto outcome = PictureImport::convert({picture});
    if (outcome)
        require(outcome->startsWith("\xff\xd8\xff"));
    else
        require(!outcome.error().isEmpty());
    return 0;
}
