#include "platform/linux/KeysymNames.h"

#include <QList>

#include <xkbcommon/xkbcommon.h>

#include <array>

namespace quellora {

QString KeysymNames::ofKey(const QString &key)
{
    const QList<uint> characters = key.toUcs4();
    const xkb_keysym_t keysym =
        characters.size() == 1
            ? xkb_utf32_to_keysym(characters.first())
            : xkb_keysym_from_name(key.toUtf8().constData(), XKB_KEYSYM_CASE_INSENSITIVE);
    std::array<char, 64> name{};
    return keysym != XKB_KEY_NoSymbol && xkb_keysym_get_name(keysym, name.data(), name.size()) > 0
               ? QString::fromUtf8(name.data())
               : QString();
}

} // namespace quellora
