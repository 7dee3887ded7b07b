#include "QtFuzz.h"
#include "query/PictureImport.h"

#include <QBuffer>
#include <QImageReader>

using namespace quellora;
using namespace quellora::fuzz;

/// The input as a pasted picture (JPEG, PNG or WebP). What comes out is a JPEG at most 1280 wide.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    prepareQt();
    constexpr qint64 mostPixels = 1 << 20;
    QByteArray picture = bytes(view(data, size));
    {
        // Large pictures take long and reach nothing that small ones do not.
        QBuffer buffer(&picture);
        buffer.open(QIODevice::ReadOnly);
        const QSize dimensions = QImageReader(&buffer).size();
        if (dimensions.isValid() && qint64{dimensions.width()} * dimensions.height() > mostPixels)
            return -1;
    }
    const auto outcome = PictureImport::convert({picture});
    if (outcome)
        require(outcome->startsWith("\xff\xd8\xff"));
    else
        require(!outcome.error().isEmpty());
    return 0;
}
