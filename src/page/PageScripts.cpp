#include "page/PageScripts.h"

#include <QFile>
#include <QWebEngineScript>

namespace quellora::pagescripts {

namespace {

QByteArray resource(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("bundled file %s is missing", qUtf8Printable(path));
    return file.readAll();
}

QByteArray source(const char *name)
{
    return resource(QStringLiteral(":/quellora/page-scripts/%1.js").arg(QLatin1StringView(name)));
}

/// The bridge with the parts that post messages.
QByteArray bridgeScript()
{
    const QByteArrayList parts{source("scroll-position").trimmed(), source("presses").trimmed(),
                               source("copy-buttons").trimmed(), source("find").trimmed()};
    return source("bridge").replace("%parts%", parts.join(",\n"));
}

/// The face script with the faces' bytes in it.
QByteArray faceScript()
{
    QByteArray script = source("fonts");
    for (const char *face : {"inter-400", "inter-500", "inter-600", "mono-400"}) {
        const QString path =
            QStringLiteral(":/quellora/fonts/%1.woff2").arg(QLatin1StringView(face));
        script.replace("%" + QByteArray(face) + "%", resource(path).toBase64());
    }
    return script;
}

QVariant script(const QString &name, const QByteArray &code, QWebEngineScript::InjectionPoint point,
                bool inFrames, quint32 world = QWebEngineScript::MainWorld)
{
    QWebEngineScript value;
    value.setName(name);
    value.setSourceCode(QString::fromUtf8(code));
    value.setInjectionPoint(point);
    value.setWorldId(world);
    value.setRunsOnSubFrames(inFrames);
    return QVariant::fromValue(value);
}

} // namespace

QString motionScript(bool isReduced)
{
    return QString::fromUtf8(source("motion").replace("%reduced%", isReduced ? "true" : "false"));
}

QVariantList userScripts(bool isMotionReduced)
{
    return {
        script(QStringLiteral("bridge"), bridgeScript(), QWebEngineScript::DocumentCreation, false,
               QWebEngineScript::ApplicationWorld),
        script(QStringLiteral("no-peer-connections"), source("no-peer-connections"),
               QWebEngineScript::DocumentCreation, true),
        script(QStringLiteral("fonts"), faceScript(), QWebEngineScript::DocumentCreation, false),
        script(QStringLiteral("page-name"), source("page-name"), QWebEngineScript::DocumentCreation,
               false),
        script(QStringLiteral("text-color"), source("text-color"),
               QWebEngineScript::DocumentCreation, false),
        script(QStringLiteral("motion"), motionScript(isMotionReduced).toUtf8(),
               QWebEngineScript::DocumentCreation, false),
    };
}

} // namespace quellora::pagescripts
