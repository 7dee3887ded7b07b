#pragma once

class QQmlEngine;

namespace quellora {

class Appearance;

/// Initialises fonts, text rendering, the window icon and accessibility. Requires the application
/// object; call once before the first window is created. Main thread.
void initializeUi();

/// References a QML module in a static library, so that the linker does not discard it.
/// @tparam registerTypes the generated function qml_register_types_<URI with underscores>
template <void (*registerTypes)()>
void keepQmlModule()
{
    [[maybe_unused]] static void (*volatile reference)() = registerTypes;
}

/// Adds the import path of the bundled QML modules to @p engine.
void prepareQmlEngine(QQmlEngine &engine);

/// Applies the system's reduced-motion preference to @p engine, now and on every change. Replaces
/// the motion handler of @p appearance, which must outlive the windows. Main thread.
void followMotion(QQmlEngine &engine, Appearance &appearance);

/// Applies the system's text size to @p engine and the application's font, now and on every change.
/// Replaces the text-size handler of @p appearance, which must outlive the windows. Main thread.
void followTextScale(QQmlEngine &engine, Appearance &appearance);

} // namespace quellora
