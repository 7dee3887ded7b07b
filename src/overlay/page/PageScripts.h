#pragma once

#include <QVariantList>

namespace quellora::pagescripts {

/// The scripts that run in every page beside its own, as QWebEngineScript values: the message
/// bridge with the Copy buttons, no peer connections, the bundled faces.
QVariantList userScripts();

} // namespace quellora::pagescripts
