#include "platform/contract/WaylandHarness.h"

#include "platform/contract/OtherProgram.h"
#include "platform/contract/ProbeWindow.h"

#include <QGuiApplication>
#include <QScreen>

#include <tuple>
#include <utility>

namespace quellora {
namespace {

const QString x11OnWayland = QStringLiteral("gnome");
const QString kwin = QStringLiteral("kwin");
/// How long KWin may take to return the keyboard to another program, in milliseconds.
constexpr int keyboardReturnTime = 600;

/// The notifier of a desktop with a status bar.
class FakeTray : public BusService
{
public:
    explicit FakeTray(const QString &busAddress)
        : BusService(busAddress, QStringLiteral("org.kde.StatusNotifierWatcher"),
                     QStringLiteral("/StatusNotifierWatcher"))
    {}

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.member() != QStringLiteral("Get"))
            return false;
        connection.send(message.createReply(QVariant::fromValue(QDBusVariant(true))));
        return true;
    }
};

QString nameOf(const Combo &combo)
{
    QString name;
    for (const auto &[flag, word] :
         {std::pair{Qt::ControlModifier, "ctrl+"}, std::pair{Qt::AltModifier, "alt+"},
          std::pair{Qt::MetaModifier, "super+"}, std::pair{Qt::ShiftModifier, "shift+"}}) {
        if (combo.modifiers & flag)
            name += QString::fromLatin1(word);
    }
    return name + combo.key;
}

/// Whether the window is a panel, which has a place of its own choice.
bool isPanel(const QWindow &window)
{
    return window.flags() & Qt::BypassWindowManagerHint;
}

} // namespace

QString WaylandHarness::prepare()
{
    m_desktop = qEnvironmentVariable("QUELLORA_TEST_DESKTOP");
    m_user.connectToServer(qEnvironmentVariable("QUELLORA_TEST_DESKTOP_SOCKET"));
    if (!m_user.waitForConnected(5000))
        return QStringLiteral("start it with with_wayland.py");
    return LinuxHarness::prepare();
}

QMap<Ability, QString> WaylandHarness::missingAbilities() const
{
    QMap<Ability, QString> missing{
        {Ability::ChangeCompositing,
         QStringLiteral("changes of compositing (a Wayland desktop always composites)")},
        {Ability::ChangePermissions,
         QStringLiteral("changes of the permissions (the desktop asks when a picture is taken)")},
        {Ability::GrabHotkeys,
         QStringLiteral(
             "hot keys of other programs' windows (a Wayland desktop keeps them; its own "
             "shortcuts run the program's commands)")},
        {Ability::ClaimHotkeys,
         QStringLiteral("hot keys of other programs (a Wayland desktop keeps them)")},
        {Ability::RenderSymbols,
         QStringLiteral("rendering of symbols (this system has no symbol set)")},
    };
    if (m_desktop == x11OnWayland)
        missing.insert(
            Ability::PassClicks,
            QStringLiteral("clicks through the answer (GNOME hands them to XWayland, which "
                           "does not hand them on to programs that are no X clients)"));
    else
        missing.insert(Ability::RaiseCovered,
                       QStringLiteral("raising a covered window (a Wayland desktop lets no program "
                                      "without the focus do so)"));
    if (m_desktop == kwin)
        missing.insert(
            Ability::StayInactive,
            QStringLiteral("a panel that is never the active window (KWin activates what "
                           "is clicked or has the keyboard; our panel gives it back)"));
    return missing;
}

std::unique_ptr<OtherWindow> WaylandHarness::openOther()
{
    // A program of this desktop, also where our own is an X client.
    QMap<QString, QString> variables{
        {QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland")}};
    if (m_desktop != QStringLiteral("sway"))
        variables.insert(QStringLiteral("QUELLORA_OTHER_FULL_SCREEN"), QStringLiteral("1"));
    auto other = OtherProgram::start(variables);
    if (!other || !tell(QStringLiteral("settle")))
        return nullptr;
    return other;
}

bool WaylandHarness::isAbove(QWindow &ours, const OtherWindow &)
{
    if (!ours.isVisible())
        return false;
    const QImage screen = picture();
    const double scale = screen.width() / double(QGuiApplication::primaryScreen()->size().width());
    const QRgb colour = QColor(Qt::darkCyan).rgb();
    const auto inPixels = [scale](const QRect &area) {
        return QRectF(area.x() * scale, area.y() * scale, area.width() * scale,
                      area.height() * scale)
            .toRect();
    };
    if (isPanel(ours)) {
        // Wherever the pointer is, it covers few of these.
        int shown = 0;
        const QRect area = inPixels(ours.geometry());
        for (int step = 1; step < 10; ++step) {
            const QPoint at = area.topLeft() + QPoint(area.width(), area.height()) * step / 10;
            shown += screen.valid(at) && screen.pixel(at) == colour;
        }
        return shown >= 6;
    }
    // The desktop has chosen its place: it is what has our colour outside our panels.
    int found = 0;
    for (int y = 0; y < screen.height(); ++y) {
        for (int x = 0; x < screen.width(); ++x) {
            if (screen.pixel(x, y) != colour)
                continue;
            const QWindowList windows = QGuiApplication::topLevelWindows();
            found += std::none_of(windows.begin(), windows.end(), [&](const QWindow *window) {
                return isPanel(*window) && window->isVisible() &&
                       inPixels(window->geometry()).contains(x, y);
            });
        }
    }
    return found > ours.width() * ours.height() / 4;
}

bool WaylandHarness::isProgramActive()
{
    const auto active = tell(QStringLiteral("active"));
    return active && active->toLongLong() == QCoreApplication::applicationPid();
}

bool WaylandHarness::press(const QList<Combo> &combos)
{
    // A click on the panel, or the end of its typing, moves the keyboard there and back.
    if (m_desktop == kwin && isProgramActive())
        std::ignore = QTest::qWaitFor([this] { return !isProgramActive(); }, keyboardReturnTime);
    return std::all_of(combos.begin(), combos.end(), [this](const Combo &combo) {
        return tell(QStringLiteral("press ") + nameOf(combo)).has_value();
    });
}

bool WaylandHarness::click(const QPoint &position)
{
    return tell(QStringLiteral("click %1 %2").arg(position.x()).arg(position.y())).has_value();
}

void WaylandHarness::setStatusArea(bool on)
{
    if (!on)
        m_tray.reset();
    else if (!m_tray)
        m_tray = std::make_unique<FakeTray>(busAddress());
}

std::optional<QString> WaylandHarness::tell(const QString &command)
{
    m_user.write(command.toUtf8() + '\n');
    // The desktop may need our windows to act meanwhile.
    if (!QTest::qWaitFor([this] { return m_user.canReadLine(); }, 30000))
        return std::nullopt;
    const QString answer = QString::fromUtf8(m_user.readLine()).trimmed();
    if (answer == QStringLiteral("ok") || answer.startsWith(QStringLiteral("ok ")))
        return answer.mid(3);
    qWarning("%s: %s", qPrintable(command), qPrintable(answer));
    return std::nullopt;
}

QImage WaylandHarness::picture()
{
    const QString file = path("screen.ppm");
    return tell(QStringLiteral("picture ") + file) ? QImage(file, "PPM") : QImage();
}

} // namespace quellora
