#include "platform/contract/X11Harness.h"

#include "platform/contract/OtherProgram.h"
#include "platform/linux/WindowHintsX11.h"
#include "platform/linux/X11Tools.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QScreen>

#include <sys/stat.h>

#include <utility>

namespace quellora {
namespace {

/// The keycode of a key on a US keyboard; 0 if there is none.
int keycodeOf(const QString &key)
{
    const QList<std::pair<int, QString>> rows{{10, QStringLiteral("1234567890-=")},
                                              {24, QStringLiteral("qwertyuiop[]")},
                                              {38, QStringLiteral("asdfghjkl;'`")},
                                              {51, QStringLiteral("\\zxcvbnm,./")}};
    for (const auto &[first, row] : rows) {
        if (const auto at = row.indexOf(key); at >= 0 && key.size() == 1)
            return first + static_cast<int>(at);
    }
    return 0;
}

QString xdotoolName(const Combo &combo)
{
    QString name;
    const QList<std::pair<Qt::KeyboardModifier, const char *>> words{{Qt::ControlModifier, "ctrl+"},
                                                                     {Qt::AltModifier, "alt+"},
                                                                     {Qt::MetaModifier, "super+"},
                                                                     {Qt::ShiftModifier, "shift+"}};
    for (const auto &[flag, word] : words) {
        if (combo.modifiers & flag)
            name += QString::fromLatin1(word);
    }
    if (combo.key == QStringLiteral("escape"))
        return name + QStringLiteral("Escape");
    return name + (combo.key.size() > 1 ? combo.key : QString::number(keycodeOf(combo.key)));
}

quint16 xModifiers(const Combo &combo)
{
    return static_cast<quint16>((combo.modifiers & Qt::ControlModifier ? XCB_MOD_MASK_CONTROL : 0) |
                                (combo.modifiers & Qt::AltModifier ? XCB_MOD_MASK_1 : 0) |
                                (combo.modifiers & Qt::MetaModifier ? XCB_MOD_MASK_4 : 0) |
                                (combo.modifiers & Qt::ShiftModifier ? XCB_MOD_MASK_SHIFT : 0));
}

} // namespace

QString X11Harness::prepare()
{
    qputenv("XDG_DATA_HOME", path("data").toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", path("config").toLocal8Bit());
    m_client = std::make_unique<OtherClient>();
    if (!m_bus.start())
        return QStringLiteral("the session bus did not start");
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toLocal8Bit());
    m_portal = std::make_unique<FakePortal>(m_bus.address());
    if (!m_portal->isServing())
        return QStringLiteral("the portal did not start");
    // Writes to a temporary file and renames it, so that "opened" is always complete. Blocks on the
    // pipe "hold" while that exists and fails while "fail" exists.
    QFile opener(path("xdg-open"));
    if (!opener.open(QIODevice::WriteOnly) ||
        !opener.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner))
        return opener.errorString();
    opener.write(QStringLiteral("#!/bin/sh\ncd '%1'\n[ -p hold ] && read -r line < hold\n"
                                "[ -e fail ] && exit 4\n"
                                "printf '%s\\n' \"$@\" > part && /bin/mv part opened\n")
                     .arg(m_folder.path())
                     .toLocal8Bit());
    qputenv("PATH", m_folder.path().toLocal8Bit() + ':' + qgetenv("PATH"));
    return {};
}

QMap<Ability, QString> X11Harness::missingAbilities() const
{
    return {
        {Ability::ChangePermissions,
         QStringLiteral("changes of the permissions (X11 has no permissions)")},
        {Ability::RenderSymbols,
         QStringLiteral("rendering of symbols (this system has no symbol set)")},
    };
}

std::unique_ptr<Platform> X11Harness::makePlatform()
{
    QFile::remove(path("opened"));
    QFile::remove(path("fail"));
    return Platform::create();
}

std::unique_ptr<OtherWindow> X11Harness::openOther()
{
    return OtherProgram::start();
}

bool X11Harness::isAbove(QWindow &ours, const OtherWindow &other)
{
    const xcb_window_t native = nativeWindow(ours);
    const auto &program = static_cast<const OtherProgram &>(other);
    return native != XCB_NONE && m_client->isViewable(native) &&
           m_client->isAbove(native, static_cast<xcb_window_t>(program.window()));
}

bool X11Harness::isProgramActive()
{
    const QList<quint32> active = m_client->property(m_client->root(), "_NET_ACTIVE_WINDOW");
    const QWindowList windows = QGuiApplication::topLevelWindows();
    return std::any_of(windows.begin(), windows.end(), [&active](const QWindow *window) {
        const xcb_window_t native = nativeWindow(*window);
        return native != XCB_NONE && active.contains(native);
    });
}

bool X11Harness::press(const QList<Combo> &combos)
{
    QStringList arguments{QStringLiteral("key")};
    for (const Combo &combo : combos)
        arguments << xdotoolName(combo);
    return runTool(QStringLiteral("xdotool"), arguments);
}

bool X11Harness::click(const QPoint &position)
{
    const QPoint pixels = position * qRound(QGuiApplication::primaryScreen()->devicePixelRatio());
    return xdotool(QStringLiteral("mousemove %1 %2 click 1").arg(pixels.x()).arg(pixels.y()));
}

bool X11Harness::claimHotkey(const Combo &combo)
{
    return m_client->grabKey(keycodeOf(combo.key), xModifiers(combo)) == 0;
}

bool X11Harness::releaseHotkey(const Combo &combo)
{
    m_client->ungrabKey(keycodeOf(combo.key), xModifiers(combo));
    return true;
}

void X11Harness::setDark(bool on)
{
    m_portal->value = on ? 1U : 2U;
    m_portal->sendChange(QStringLiteral("org.freedesktop.appearance"),
                         QStringLiteral("color-scheme"), m_portal->value);
}

void X11Harness::setReducesMotion(bool on)
{
    m_portal->animations = !on;
    m_portal->sendChange(QStringLiteral("org.gnome.desktop.interface"),
                         QStringLiteral("enable-animations"), !on);
}

void X11Harness::setOwned(const QByteArray &selection, bool on)
{
    if (on)
        m_client->ownSelection(selection);
    else
        m_client->disownSelection(selection);
}

void X11Harness::holdOpening(bool on)
{
    if (on) {
        ::mkfifo(qPrintable(path("hold")), 0600);
        return;
    }
    // Blocks until the opener, which has already been started, opens its end.
    QFile pipe(path("hold"));
    if (pipe.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        pipe.write("go on\n");
    pipe.remove();
}

void X11Harness::failOpening()
{
    QFile mark(path("fail"));
    if (!mark.open(QIODevice::WriteOnly))
        qWarning() << mark.errorString();
}

QList<QUrl> X11Harness::opened()
{
    QFile file(path("opened"));
    QList<QUrl> all;
    if (file.open(QIODevice::ReadOnly)) {
        for (const QByteArray &line : file.readAll().trimmed().split('\n'))
            all << QUrl::fromEncoded(line);
    }
    return all;
}

QString X11Harness::installedPath(const QString &program) const
{
    const QFileInfo file(program);
    return file.absolutePath() == QCoreApplication::applicationDirPath()
               ? QStringLiteral(QUELLORA_BIN_DIR) + u'/' + file.fileName()
               : program;
}

} // namespace quellora
