#pragma once

#include <QString>
#include <QVariantList>

namespace quellora::pagescripts {

/// The scripts that run in every page besides its own, as QWebEngineScript values: the message
/// bridge with the Copy buttons (in the application world), removal of peer connections, bundled
/// fonts, text colour and motion.
/// @param isMotionReduced whether animations are off
QVariantList userScripts(bool isMotionReduced);
/// Script that turns the animations of a loaded page off or on.
QString motionScript(bool isReduced);

} // namespace quellora::pagescripts
