#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

/// Which picture, if any, is among what another program offers on the clipboard or by a drag.
namespace quellora::pictureoffer {

/// The format to ask for among @p formats; empty if no accepted picture is offered as data.
QString format(const QStringList &formats);
/// Whether pictures are offered as data, if only in other formats.
bool hasPictureData(const QStringList &formats);
/// The path of the only file in @p urls; empty for several ones and for what is not on this
/// machine, which is never fetched.
QString localFile(const QList<QUrl> &urls);
/// Whether the file's name is that of a picture.
bool isPictureName(const QString &path);

} // namespace quellora::pictureoffer
