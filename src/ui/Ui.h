#pragma once

class QQmlEngine;

namespace quellora {

/// Sets the shared components up: faces, default font, text rendering and what assistive programs
/// see of text fields. Needs the application object; call once before the first window. Main
/// thread.
void initializeUi();

/// Lets QML of @p engine import Quellora.Ui and the program's other modules.
void prepareQmlEngine(QQmlEngine &engine);

} // namespace quellora
