#include "platform/linux/ShortcutGuideLinux.h"

#include "platform/linux/PermissionsLinux.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>

#include <xkbcommon/xkbcommon.h>

#include <array>

namespace quellora {

namespace {

const QString reason =
    QStringLiteral("In a Wayland session the hotkeys above work only over some windows. ");

/// Returns the X11 name of a key as in `config.json`: a character or a name such as "space".
QString keysymName(const QString &key)
{
    const QList<uint> characters = key.toUcs4();
    const xkb_keysym_t keysym =
        characters.size() == 1
            ? xkb_utf32_to_keysym(characters.first())
            : xkb_keysym_from_name(key.toUtf8().constData(), XKB_KEYSYM_CASE_INSENSITIVE);
    std::array<char, 64> name{};
    return keysym != XKB_KEY_NoSymbol && xkb_keysym_get_name(keysym, name.data(), name.size()) > 0
               ? QString::fromUtf8(name.data())
               : key;
}

/// How a shell calls this program: by its name if that finds it or the launcher beside it,
/// otherwise by its quoted path.
QString programInShell()
{
    const QFileInfo program(QCoreApplication::applicationFilePath());
    const QString found = QStandardPaths::findExecutable(program.fileName());
    if (!found.isEmpty() && QFileInfo(QFileInfo(found).canonicalFilePath()).path() ==
                                QFileInfo(program.canonicalFilePath()).path())
        return program.fileName();
    QString quoted = program.filePath();
    return u'\'' + quoted.replace(u'\'', QLatin1StringView("'\\''")) + u'\'';
}

} // namespace

QString ShortcutGuideLinux::swayCombo(const QString &combo)
{
    // A "+" at the end is the key itself.
    const qsizetype keyStart = combo.lastIndexOf(u'+', -2) + 1;
    QStringList parts;
    for (const QString &modifier : combo.left(keyStart).split(u'+', Qt::SkipEmptyParts)) {
        parts.append(modifier == QLatin1StringView("ctrl")  ? QStringLiteral("Ctrl")
                     : modifier == QLatin1StringView("alt") ? QStringLiteral("Mod1")
                     : modifier == QLatin1StringView("cmd") ? QStringLiteral("Mod4")
                                                            : QStringLiteral("Shift"));
    }
    parts.append(keysymName(combo.mid(keyStart)));
    return parts.join(u'+');
}

ShortcutGuide ShortcutGuideLinux::guideFor(const QStringList &desktops, const QString &program)
{
    const auto command = [program](const QString &, const QString &name) {
        return program + u' ' + name;
    };
    const auto isDesktop = [&desktops](QLatin1StringView name) {
        return desktops.contains(name, Qt::CaseInsensitive);
    };
    if (isDesktop(QLatin1StringView("sway")))
        return {
            reason + QStringLiteral("Add these lines to ~/.config/sway/config, then reload sway."),
            [program](const QString &combo, const QString &name) {
                return QStringLiteral("bindsym %1 exec %2 %3").arg(swayCombo(combo), program, name);
            }};
    if (isDesktop(QLatin1StringView("GNOME")))
        return {reason +
                    QStringLiteral("Add these commands in Settings → Keyboard → View and Customize "
                                   "Shortcuts → Custom Shortcuts."),
                command};
    if (isDesktop(QLatin1StringView("KDE")))
        return {reason +
                    QStringLiteral("Add these commands in System Settings → Shortcuts → Custom "
                                   "Shortcuts."),
                command};
    return {reason + QStringLiteral("Bind these commands to keys in your desktop's settings."),
            command};
}

ShortcutGuide ShortcutGuideLinux::current()
{
    if (PermissionsLinux::currentSession() != PermissionsLinux::Session::Wayland)
        return {};
    return guideFor(qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':', Qt::SkipEmptyParts),
                    programInShell());
}

} // namespace quellora
