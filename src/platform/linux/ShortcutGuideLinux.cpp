#include "platform/linux/ShortcutGuideLinux.h"

#include "platform/linux/KeysymNames.h"
#include "platform/linux/PermissionsLinux.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>

namespace quellora {

namespace {

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
    const QString key = combo.mid(keyStart);
    const QString name = KeysymNames::ofKey(key);
    parts.append(name.isEmpty() ? key : name);
    return parts.join(u'+');
}

ShortcutGuide ShortcutGuideLinux::guideFor(const QStringList &desktops, const QString &program)
{
    const auto command = [program](const QString &, const QString &name) {
        return program + u' ' + name;
    };
    const QString anyPlace = QStringLiteral("your desktop's settings");
    const auto isDesktop = [&desktops](QLatin1StringView name) {
        return desktops.contains(name, Qt::CaseInsensitive);
    };
    if (isDesktop(QLatin1StringView("sway")))
        return {QStringLiteral("Add these lines to ~/.config/sway/config, then reload sway."),
                [program](const QString &combo, const QString &name) {
                    // A line without a key is an error to sway: it stays a comment until it has
                    // one.
                    return combo.isEmpty()
                               ? QStringLiteral("# bindsym KEY exec %1 %2").arg(program, name)
                               : QStringLiteral("bindsym %1 exec %2 %3")
                                     .arg(swayCombo(combo), program, name);
                },
                anyPlace};
    if (isDesktop(QLatin1StringView("GNOME")))
        return {QStringLiteral("Add these commands in Settings → Keyboard → View and Customize "
                               "Shortcuts → Custom Shortcuts."),
                command, QStringLiteral("Settings → Apps → Quellora → Global Shortcuts")};
    if (isDesktop(QLatin1StringView("KDE")))
        return {QStringLiteral("Add these commands in System Settings → Shortcuts → Custom "
                               "Shortcuts."),
                command, QStringLiteral("System Settings → Shortcuts → Quellora")};
    return {QStringLiteral("Bind these commands to keys in your desktop's settings."), command,
            anyPlace};
}

ShortcutGuide ShortcutGuideLinux::current()
{
    if (PermissionsLinux::currentSession() != PermissionsLinux::Session::Wayland)
        return {};
    return guideFor(qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':', Qt::SkipEmptyParts),
                    programInShell());
}

} // namespace quellora
