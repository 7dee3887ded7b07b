#include "platform/contract/X11Harness.h"

#include "platform/contract/OtherProgram.h"
#include "platform/linux/WindowHintsX11.h"
#include "platform/linux/X11Tools.h"

#include <QGuiApplication>
#include <QScreen>

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
    m_client = std::make_unique<OtherClient>();
    return LinuxHarness::prepare();
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

void X11Harness::setOwned(const QByteArray &selection, bool on)
{
    if (on)
        m_client->ownSelection(selection);
    else
        m_client->disownSelection(selection);
}

} // namespace quellora
