#pragma once

#include "base/UserDefaults.h"
#include "fakes/FakeDesktopSession.h"
#include "fakes/FakeDesktopShortcuts.h"
#include "fakes/FakeGlobalHotkeys.h"
#include "fakes/FakeNotifications.h"
#include "fakes/FakePanelWindow.h"
#include "platform/Platform.h"

#include <QFileInfo>
#include <QList>
#include <QMap>
#include <QPointer>
#include <QPromise>
#include <QTemporaryDir>
#include <QWindow>

#include <memory>
#include <optional>
#include <utility>

/// Fakes for every platform interface. Each one records its calls in public members, returns the
/// values of its `answer` and `…Answer` members and simulates system events on request (press(),
/// setDark(), setCompositing()).
namespace quellora {

/// KeyMonitor with simulated key presses.
class FakeKeys : public KeyMonitor
{
public:
    void install(std::function<void(const KeyDown &)> onKeyDown) override
    {
        ++installs;
        handler = std::move(onKeyDown);
    }
    void remove() override { handler = nullptr; }

    bool isInstalled() const { return handler != nullptr; }
    /// Simulates a key press.
    /// @return whether the monitor intercepted it
    bool press(const KeyDown &key)
    {
        // A copy: the handler may remove itself.
        const auto onKeyDown = handler;
        if (onKeyDown)
            onKeyDown(key);
        return onKeyDown != nullptr;
    }

    std::function<void(const KeyDown &)> handler;
    int installs = 0;
};

/// SystemSymbols with the test's own images, stored at one pixel per point.
class FakeSymbols : public SystemSymbols
{
public:
    QImage image(const QString &name, double, int scale) const override
    {
        const QImage single = images.value(name);
        return scale == 1 || single.isNull() ? single : single.scaled(single.size() * scale);
    }

    QMap<QString, QImage> images;
};

class FakePermissions : public Permissions
{
public:
    bool isAccessibilityTrusted() const override { return accessibility; }
    bool isScreenRecordingGranted() const override { return screenRecording; }
    void requestScreenRecording() override { ++requests; }
    void onChanged(std::function<void()> newHandler) override { handler = std::move(newHandler); }

    /// Changes the permissions and calls the handler if they differ.
    void answer(bool newAccessibility, bool newScreenRecording)
    {
        if (accessibility == newAccessibility && screenRecording == newScreenRecording)
            return;
        accessibility = newAccessibility;
        screenRecording = newScreenRecording;
        if (handler)
            handler();
    }

    std::function<void()> handler;
    bool accessibility = true;
    bool screenRecording = true;
    int requests = 0;
};

class FakeAppearance : public Appearance
{
public:
    bool isDark() const override { return dark; }
    void onChanged(std::function<void()> newHandler) override { handler = std::move(newHandler); }
    bool reducesMotion() const override { return reducedMotion; }
    void onMotionChanged(std::function<void()> newHandler) override
    {
        motionHandler = std::move(newHandler);
    }

    double textScale() const override { return scale; }
    void onTextScaleChanged(std::function<void()> newHandler) override
    {
        textScaleHandler = std::move(newHandler);
    }

    void setTextScale(double factor)
    {
        if (factor == scale)
            return;
        scale = factor;
        if (textScaleHandler)
            textScaleHandler();
    }
    void setDark(bool on)
    {
        if (on == dark)
            return;
        dark = on;
        if (handler)
            handler();
    }
    void setReducesMotion(bool on)
    {
        if (on == reducedMotion)
            return;
        reducedMotion = on;
        if (motionHandler)
            motionHandler();
    }

    bool dark = false;
    bool reducedMotion = false;
    std::function<void()> handler;
    double scale = 1;
    std::function<void()> motionHandler;
    std::function<void()> textScaleHandler;
};

class FakeWorkspace : public Workspace
{
public:
    QFuture<OpenResult> openUrl(const QUrl &url) override
    {
        if (!url.isValid())
            return refuse(QStringLiteral("the address"), QStringLiteral("it is not valid"));
        urls << url;
        return begin();
    }
    QFuture<OpenResult> openFile(const QString &path) override
    {
        if (!QFileInfo(path).isFile())
            return refuse(QStringLiteral("the file"), QStringLiteral("there is no such file"));
        files << path;
        return begin();
    }

    static const OpenResult &opened()
    {
        static const OpenResult result;
        return result;
    }
    /// A failure to open the browser.
    static OpenResult failure()
    {
        return tl::unexpected(OpenFailure{OpenFailure::Kind::Failed, QStringLiteral("the browser"),
                                          QStringLiteral("nobody answers")});
    }
    /// Finishes the oldest pending call.
    void finish(const OpenResult &result)
    {
        const auto promise = m_pending.takeFirst();
        promise->addResult(result);
        promise->finish();
    }

    QList<QUrl> urls;
    QStringList files;
    /// The immediate result of every call; if nullopt, calls stay pending until finish().
    std::optional<OpenResult> answer = opened();

private:
    static QFuture<OpenResult> refuse(const QString &what, const QString &reason)
    {
        return QtFuture::makeReadyFuture<OpenResult>(
            tl::unexpected(OpenFailure{OpenFailure::Kind::Refused, what, reason}));
    }
    QFuture<OpenResult> begin()
    {
        const auto promise = std::make_shared<QPromise<OpenResult>>();
        promise->start();
        m_pending << promise;
        if (answer)
            finish(*answer);
        return promise->future();
    }

    QList<std::shared_ptr<QPromise<OpenResult>>> m_pending;
};

class FakeStatusArea : public StatusArea
{
public:
    bool isAvailable() const override { return available; }
    void onChanged(std::function<void()> newHandler) override { handler = std::move(newHandler); }

    /// Simulates the tray appearing or disappearing.
    void setAvailable(bool on)
    {
        if (on == available)
            return;
        available = on;
        if (handler)
            handler();
    }

    bool available = true;
    std::function<void()> handler;
};

class FakeShell : public ApplicationShell
{
public:
    Capability becomeAccessory() override
    {
        calls << QStringLiteral("becomeAccessory");
        return answer;
    }
    Capability makeOrdinary(QWindow &window) override
    {
        calls << QStringLiteral("makeOrdinary");
        ordinary = &window;
        return answer;
    }
    Capability installEditMenu() override
    {
        calls << QStringLiteral("installEditMenu");
        return answer;
    }
    Capability activate(QWindow &window) override
    {
        calls << QStringLiteral("activate");
        activated = &window;
        window.show();
        if (onActivated)
            onActivated(window);
        return answer;
    }

    QStringList calls;
    QPointer<QWindow> activated;
    QPointer<QWindow> ordinary;
    std::function<void(QWindow &)> onActivated;
    Capability answer = Capability::applied();
};

class FakeDeviceInfo : public DeviceInfo
{
public:
    QString osVersion() const override { return version; }
    QString cpuArch() const override { return arch; }

    QString version = QStringLiteral("Test OS 1.0");
    QString arch = QStringLiteral("x86_64");
};

/// A Platform made of the fakes, which are accessible as typed members.
class FakePlatform : public Platform
{
public:
    FakePlatform()
    {
        applicationShell.onActivated = [this](QWindow &window) { panel.focus(&window); };
    }

    PanelWindow &panelWindow() override { return panel; }
    GlobalHotkeys &globalHotkeys() override { return hotkeys; }
    KeyMonitor &keyMonitor() override { return keys; }
    Permissions &permissions() override { return systemPermissions; }
    Appearance &appearance() override { return systemAppearance; }
    Workspace &workspace() override { return systemWorkspace; }
    StatusArea &statusArea() override { return systemStatusArea; }
    SystemSymbols &symbols() override { return systemSymbols; }
    ApplicationShell &shell() override { return applicationShell; }
    DeviceInfo &deviceInfo() override { return device; }
    DesktopSession &desktopSession() override { return session; }
    Notifications &notifications() override { return systemNotifications; }
    CaptureTool captureTool() const override { return tool; }
    DesktopShortcuts *desktopShortcuts() override { return shortcuts.get(); }
    Vocabulary vocabulary() const override { return systemVocabulary; }
    ShortcutGuide shortcutGuide() const override { return systemShortcutGuide; }
    QString applicationSupportDirectory() const override { return supportDirectory; }
    std::unique_ptr<UserDefaults> makeUserDefaults() const override
    {
        return std::make_unique<JsonUserDefaults>(
            preferences.filePath(QStringLiteral("defaults.json")));
    }

    FakePanelWindow panel;
    FakeGlobalHotkeys hotkeys;
    FakeKeys keys;
    FakePermissions systemPermissions;
    FakeAppearance systemAppearance;
    FakeWorkspace systemWorkspace;
    FakeStatusArea systemStatusArea;
    FakeSymbols systemSymbols;
    FakeShell applicationShell;
    FakeDeviceInfo device;
    FakeDesktopSession session;
    FakeNotifications systemNotifications;
    /// Null unless the test sets it.
    std::unique_ptr<FakeDesktopShortcuts> shortcuts;
    CaptureTool tool{QStringLiteral("/nonexistent/capture"),
                     {QStringLiteral("-x"), QStringLiteral("-C")}};
    ShortcutGuide systemShortcutGuide;
    Vocabulary systemVocabulary = Vocabulary::macOS();
    QString supportDirectory = QStringLiteral("/nonexistent/support");
    /// Folder of the file shared by all UserDefaults created here.
    QTemporaryDir preferences;
};

} // namespace quellora
