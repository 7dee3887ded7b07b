#pragma once

#include <QString>
#include <QVariantList>

namespace quellora::pagescripts {

/// The scripts that run in every page beside its own, as QWebEngineScript values: the message
/// bridge with the Copy buttons, in the application's world, no peer connections, the bundled
/// faces.
/// @param isMotionReduced whether things stand still
QVariantList userScripts(bool isMotionReduced);
/// Makes things stand still, or move again, in a page that is there.
QString motionScript(bool isReduced);

} // namespace quellora::pagescripts
