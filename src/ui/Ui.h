#pragma once

class QQmlEngine;

namespace quellora {

class Appearance;

/// Sets the shared components up: faces, default font, text rendering, the windows' icon and what
/// assistive programs see of text fields. Needs the application object; call once before the first
/// window. Main thread.
void initializeUi();

/// Keeps a QML module in a program that links its static library, which drops what nobody names.
/// @tparam registerTypes the generated function qml_register_types_<URI with underscores>
template <void (*registerTypes)()>
void keepQmlModule()
{
    [[maybe_unused]] static void (*volatile kept)() = registerTypes;
}

/// Lets QML of @p engine import Quellora.Ui and the program's other modules.
void prepareQmlEngine(QQmlEngine &engine);

/// Lets what @p engine shows move as much as the system's user wants, from now on. Takes the one
/// motion handler of @p appearance, which must outlive the windows. Main thread.
void followMotion(QQmlEngine &engine, Appearance &appearance);

} // namespace quellora
