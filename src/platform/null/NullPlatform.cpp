#include "platform/null/NullPlatform.h"

#include "base/UserDefaults.h"
#include "platform/DesktopSession.h"
#include "platform/EventFilterKeyMonitor.h"
#include "platform/NoGlobalHotkeys.h"
#include "platform/NoSystemSymbols.h"
#include "platform/Notifications.h"
#include "platform/OpenRules.h"

#include <QWindow>

#include <utility>

namespace quellora {
namespace {

Capability noDesktop()
{
    return Capability::unsupported(QStringLiteral("There is no desktop"));
}

class NullPanelWindow : public PanelWindow
{
public:
    Capability applyPanelTraits(QWindow &) override { return noDesktop(); }
    Capability excludeFromCapture(QWindow &) override { return noDesktop(); }
    Capability setClickThrough(QWindow &, const QRect &) override { return noDesktop(); }
    Capability orderFront(QWindow &window) override
    {
        window.show();
        return noDesktop();
    }
    Capability makeKey(QWindow &window) override
    {
        window.requestActivate();
        return noDesktop();
    }
    void resignKey(QWindow &) override {}
    bool isCompositing() const override { return false; }
    void onCompositingChanged(std::function<void()>) override {}
};

class NullPermissions : public Permissions
{
public:
    bool isAccessibilityTrusted() const override { return false; }
    bool isScreenRecordingGranted() const override { return false; }
    void requestScreenRecording() override {}
    void onChanged(std::function<void()>) override {}
};

class NullStatusArea : public StatusArea
{
public:
    bool isAvailable() const override { return false; }
    void onChanged(std::function<void()>) override {}
};

class NullAppearance : public Appearance
{
public:
    bool isDark() const override { return false; }
    void onChanged(std::function<void()>) override {}
    bool reducesMotion() const override { return false; }
    void onMotionChanged(std::function<void()>) override {}
};

class NullWorkspace : public Workspace
{
public:
    QFuture<OpenResult> openUrl(const QUrl &url) override { return fail(url); }
    QFuture<OpenResult> openFile(const QString &path) override
    {
        return fail(QUrl::fromLocalFile(path));
    }

private:
    static QFuture<OpenResult> fail(const QUrl &url)
    {
        return OpenRules::failedFuture(
            OpenRules::failure(url, QStringLiteral("there is no desktop")));
    }
};

class NullShell : public ApplicationShell
{
public:
    Capability becomeAccessory() override { return noDesktop(); }
    Capability makeOrdinary(QWindow &) override { return noDesktop(); }
    Capability installEditMenu() override { return noDesktop(); }
    Capability activate(QWindow &window) override
    {
        window.show();
        window.requestActivate();
        return noDesktop();
    }
};

} // namespace

NullPlatform::NullPlatform(std::unique_ptr<DeviceInfo> deviceInfo, CaptureTool captureTool,
                           QString applicationSupportDirectory, Vocabulary vocabulary)
    : m_panelWindow(std::make_unique<NullPanelWindow>())
    , m_globalHotkeys(std::make_unique<NoGlobalHotkeys>())
    , m_keyMonitor(std::make_unique<EventFilterKeyMonitor>([](quint32) { return QString(); }))
    , m_permissions(std::make_unique<NullPermissions>())
    , m_appearance(std::make_unique<NullAppearance>())
    , m_workspace(std::make_unique<NullWorkspace>())
    , m_statusArea(std::make_unique<NullStatusArea>())
    , m_symbols(std::make_unique<NoSystemSymbols>())
    , m_shell(std::make_unique<NullShell>())
    , m_deviceInfo(std::move(deviceInfo))
    , m_desktopSession(std::make_unique<UnobservedSession>(noDesktop().reason()))
    , m_notifications(std::make_unique<NoNotifications>(noDesktop().reason()))
    , m_captureTool(std::move(captureTool))
    , m_supportDirectory(std::move(applicationSupportDirectory))
    , m_vocabulary(std::move(vocabulary))
{}

NullPlatform::~NullPlatform() = default;

std::unique_ptr<UserDefaults> NullPlatform::makeUserDefaults() const
{
    return std::make_unique<JsonUserDefaults>(JsonUserDefaults::defaultPath());
}

} // namespace quellora
