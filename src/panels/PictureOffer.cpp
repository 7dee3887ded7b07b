#include "panels/PictureOffer.h"

#include <QFileInfo>

#include <algorithm>

namespace quellora::pictureoffer {

QString format(const QStringList &formats)
{
    // PNG first: programs offer it for a picture of their own, other formats for a file.
    for (const char *accepted : {"image/png", "image/jpeg", "image/webp"}) {
        if (formats.contains(QLatin1StringView(accepted)))
            return QString::fromLatin1(accepted);
    }
    return {};
}

bool hasPictureData(const QStringList &formats)
{
    return std::any_of(formats.begin(), formats.end(), [](const QString &each) {
        return each.startsWith(QLatin1StringView("image/")) ||
               each == QLatin1StringView("application/x-qt-image");
    });
}

QString localFile(const QList<QUrl> &urls)
{
    return urls.size() == 1 ? urls.constFirst().toLocalFile() : QString();
}

bool isPictureName(const QString &path)
{
    static const QStringList suffixes{
        QStringLiteral("png"),  QStringLiteral("jpg"),  QStringLiteral("jpeg"),
        QStringLiteral("webp"), QStringLiteral("gif"),  QStringLiteral("bmp"),
        QStringLiteral("tif"),  QStringLiteral("tiff"), QStringLiteral("svg"),
        QStringLiteral("avif"), QStringLiteral("heic")};
    return suffixes.contains(QFileInfo(path).suffix().toLower());
}

} // namespace quellora::pictureoffer
