#include "BundledComponents.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace quellora {

QList<BundledComponent> bundledComponents()
{
    QFile file(QStringLiteral(":/quellora/about/bundled.cdx.json"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("the list of bundled components is missing");
    QList<BundledComponent> components;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    for (const QJsonValue value : document[QLatin1StringView("components")].toArray()) {
        const QJsonValue license =
            value[QLatin1StringView("licenses")][0][QLatin1StringView("license")];
        components.append(
            {value[QLatin1StringView("name")].toString(),
             value[QLatin1StringView("version")].toString(),
             license[QLatin1StringView("name")].toString(),
             license[QLatin1StringView("text")][QLatin1StringView("content")].toString()});
    }
    return components;
}

} // namespace quellora
