#include "BundledFonts.h"

#include <QFontDatabase>

namespace quellora {

bool loadBundledFonts()
{
    bool loaded = true;
    for (const char *name : {"inter-400", "inter-500", "inter-600", "mono-400"}) {
        const QString path =
            QStringLiteral(":/quellora/fonts/%1.woff2").arg(QLatin1StringView(name));
        loaded = QFontDatabase::addApplicationFont(path) >= 0 && loaded;
    }
    return loaded;
}

} // namespace quellora
