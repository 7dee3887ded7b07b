#include "ui/Ui.h"

#include "BundledFonts.h"
#include "base/Log.h"
#include "platform/Platform.h"
#include "ui/ControlAccessibility.h"

#include <QFont>
#include <QGuiApplication>
#include <QIcon>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>

#include <memory>

void qml_register_types_Quellora_Ui();

namespace quellora {
namespace {

constexpr int fontSize = 13;

void setApplicationFont(double textScale)
{
    QFont font(QStringLiteral("Inter"));
    font.setPixelSize(qMax(1, qRound(fontSize * textScale)));
    // Preserve the letter shapes and spacing of the design.
    font.setHintingPreference(QFont::PreferNoHinting);
    QGuiApplication::setFont(font);
}

/// The engine's Tokens singleton, which is only created once a component imports it.
QObject *tokens(QQmlEngine &engine)
{
    QQmlComponent component(&engine);
    component.setData("import QtQml\nimport Quellora.Ui\n"
                      "QtObject { readonly property QtObject tokens: Tokens }",
                      QUrl());
    const std::unique_ptr<QObject> holder(component.create());
    if (!holder)
        qFatal("%s", qPrintable(component.errorString()));
    return holder->property("tokens").value<QObject *>();
}

} // namespace

void initializeUi()
{
    if (!loadBundledFonts())
        Log::event(QStringLiteral("[Ui] WARNING: Not all bundled faces could be loaded"));
    setApplicationFont(1);
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/quellora/program/icon.svg")));
    QQuickWindow::setTextRenderType(QQuickWindow::NativeTextRendering);
    installControlAccessibility();
}

void prepareQmlEngine(QQmlEngine &engine)
{
    keepQmlModule<&qml_register_types_Quellora_Ui>();
    engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
}

void followMotion(QQmlEngine &engine, Appearance &appearance)
{
    const auto apply = [tokens = QPointer(tokens(engine)), &appearance] {
        if (tokens)
            tokens->setProperty("reducedMotion", appearance.reducesMotion());
    };
    appearance.onMotionChanged(apply);
    apply();
}

void followTextScale(QQmlEngine &engine, Appearance &appearance)
{
    const auto apply = [tokens = QPointer(tokens(engine)), &appearance] {
        const double scale = appearance.textScale();
        setApplicationFont(scale);
        if (tokens)
            tokens->setProperty("textScale", scale);
    };
    appearance.onTextScaleChanged(apply);
    apply();
}

} // namespace quellora
