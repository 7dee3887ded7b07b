#pragma once

#include "app/UserDefaults.h"
#include "platform/Platform.h"

#include <QList>
#include <QMap>
#include <QPair>
#include <QPointer>
#include <QWindow>

#include <utility>

/// Recording stand-ins for every platform role. Each one keeps what it was asked for in public
/// members, answers what the test put into its `…Answer` members and lets the test raise the
/// system's own events (press(), setDark(), setCompositing()).
namespace quellora {

/// Panel role that shows and hides windows for real but leaves the focus to the test.
class FakePanelWindow : public PanelWindow
{
public:
    Capability applyPanelTraits(QWindow &window) override
    {
        calls << QStringLiteral("applyPanelTraits");
        panel = &window;
        return traitsAnswer;
    }
    Capability excludeFromCapture(QWindow &window) override
    {
        calls << QStringLiteral("excludeFromCapture");
        panel = &window;
        shownBeforeExclusion = shownBeforeExclusion || window.isVisible();
        return exclusionAnswer;
    }
    Capability setClickThrough(QWindow &, const QRect &responseRect) override
    {
        calls << QStringLiteral("setClickThrough");
        clickThroughRects << responseRect;
        return clickThroughAnswer;
    }
    Capability orderFront(QWindow &window) override
    {
        calls << QStringLiteral("orderFront");
        window.show();
        return Capability::applied();
    }
    Capability makeKey(QWindow &window) override
    {
        calls << QStringLiteral("makeKey");
        keyWindow = &window;
        return Capability::applied();
    }
    void resignKey(QWindow &) override
    {
        calls << QStringLiteral("resignKey");
        keyWindow = nullptr;
    }
    bool isCompositing() const override { return compositing; }
    void onCompositingChanged(std::function<void()> handler) override
    {
        compositingHandler = std::move(handler);
    }

    /// The desktop starts or stops compositing.
    void setCompositing(bool on)
    {
        if (on == compositing)
            return;
        compositing = on;
        if (compositingHandler)
            compositingHandler();
    }
    int count(const QString &call) const { return static_cast<int>(calls.count(call)); }
    /// The rectangle in force; null when none was ever set.
    QRect clickThroughRect() const
    {
        return clickThroughRects.isEmpty() ? QRect() : clickThroughRects.last();
    }

    QStringList calls;
    QList<QRect> clickThroughRects;
    QPointer<QWindow> panel;
    QPointer<QWindow> keyWindow;
    bool shownBeforeExclusion = false;
    bool compositing = true;
    Capability traitsAnswer = Capability::applied();
    Capability exclusionAnswer = Capability::applied();
    Capability clickThroughAnswer = Capability::applied();
    std::function<void()> compositingHandler;
};

/// Hot-key service with claims of other programs.
class FakeGlobalHotkeys : public GlobalHotkeys
{
public:
    struct Entry
    {
        QString key;
        quint32 keyCode = 0;
        quint32 modifiers = 0;
        quint32 signature = 0;
        quint32 id = 0;
        bool operator==(const Entry &) const = default;
    };

    void installHandler(std::function<void(quint32 id)> onPress) override
    {
        ++installs;
        handler = std::move(onPress);
    }
    void removeHandler() override
    {
        ++removals;
        handler = nullptr;
    }
    Result registerHotkey(const QString &key, quint32 keyCode, quint32 modifiers, quint32 signature,
                          quint32 id) override
    {
        attempts << Entry{key, keyCode, modifiers, signature, id};
        if (const int status = claims.value({key, modifiers}, 0))
            return {status, 0};
        const Registration registration = ++m_last;
        registered.insert(registration, attempts.last());
        return {0, registration};
    }
    void unregisterHotkey(Registration registration) override
    {
        if (registered.remove(registration))
            ++unregistrations;
        else
            ++unknownUnregistrations;
    }

    /// Another program holds this combination: registering it fails with @p status.
    void claim(const QString &key, quint32 modifiers, int status = -9878)
    {
        claims.insert({key, modifiers}, status);
    }
    void release(const QString &key, quint32 modifiers) { claims.remove({key, modifiers}); }
    /// The service reports a press with this id, whatever is registered.
    void press(quint32 id)
    {
        if (handler)
            handler(id);
    }
    /// The user presses a combination; true when it was registered.
    bool pressCombo(const QString &key, quint32 modifiers)
    {
        for (const Entry &entry : std::as_const(registered)) {
            if (entry.key == key && entry.modifiers == modifiers) {
                press(entry.id);
                return true;
            }
        }
        return false;
    }
    QList<quint32> registeredIds() const
    {
        QList<quint32> ids;
        for (const Entry &entry : registered)
            ids << entry.id;
        return ids;
    }

    QList<Entry> attempts;
    QMap<Registration, Entry> registered;
    QMap<QPair<QString, quint32>, int> claims;
    std::function<void(quint32)> handler;
    int installs = 0;
    int removals = 0;
    int unregistrations = 0;
    /// Attempts to release something that was not registered.
    int unknownUnregistrations = 0;

private:
    Registration m_last = 0;
};

/// The keyboard of the program's windows.
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
    /// A key goes down; nobody hears of it while nothing is installed.
    void press(const KeyDown &key)
    {
        // A copy: the handler may remove itself.
        if (const auto onKeyDown = handler)
            onKeyDown(key);
    }

    std::function<void(const KeyDown &)> handler;
    int installs = 0;
};

/// Symbols that the test puts there.
class FakeSymbols : public SystemSymbols
{
public:
    QImage image(const QString &name, double, int) const override { return images.value(name); }

    QMap<QString, QImage> images;
};

class FakePermissions : public Permissions
{
public:
    bool isAccessibilityTrusted() const override { return accessibility; }
    bool isScreenRecordingGranted() const override { return screenRecording; }
    void requestScreenRecording() override { ++requests; }
    void onChanged(std::function<void()> newHandler) override { handler = std::move(newHandler); }

    /// The system's answers change.
    void answer(bool newAccessibility, bool newScreenRecording)
    {
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
    bool reducesMotion() const override { return lessMotion; }
    void onMotionChanged(std::function<void()> newHandler) override
    {
        motionHandler = std::move(newHandler);
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
        if (on == lessMotion)
            return;
        lessMotion = on;
        if (motionHandler)
            motionHandler();
    }

    bool dark = false;
    bool lessMotion = false;
    std::function<void()> handler;
    std::function<void()> motionHandler;
};

class FakeWorkspace : public Workspace
{
public:
    Capability openUrl(const QUrl &url) override
    {
        urls << url;
        return answer;
    }
    Capability openFile(const QString &path) override
    {
        files << path;
        return answer;
    }

    QList<QUrl> urls;
    QStringList files;
    Capability answer = Capability::applied();
};

class FakeStatusArea : public StatusArea
{
public:
    bool isAvailable() const override { return available; }
    void onChanged(std::function<void()> newHandler) override { handler = std::move(newHandler); }

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
        return answer;
    }

    QStringList calls;
    QPointer<QWindow> activated;
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

/// All fakes together; use the typed members to prepare and inspect them.
class FakePlatform : public Platform
{
public:
    PanelWindow &panelWindow() override { return panel; }
    GlobalHotkeys &globalHotkeys() override { return hotkeys; }
    KeyMonitor &keyMonitor() override { return keys; }
    Permissions &permissions() override { return permission; }
    Appearance &appearance() override { return systemAppearance; }
    Workspace &workspace() override { return opened; }
    StatusArea &statusArea() override { return area; }
    SystemSymbols &symbols() override { return systemSymbols; }
    ApplicationShell &shell() override { return applicationShell; }
    DeviceInfo &deviceInfo() override { return device; }
    CaptureTool captureTool() const override { return tool; }
    QString applicationSupportDirectory() const override { return supportDirectory; }
    std::unique_ptr<UserDefaults> makeUserDefaults() const override
    {
        return std::make_unique<JsonUserDefaults>();
    }

    FakePanelWindow panel;
    FakeGlobalHotkeys hotkeys;
    FakeKeys keys;
    FakePermissions permission;
    FakeAppearance systemAppearance;
    FakeWorkspace opened;
    FakeStatusArea area;
    FakeSymbols systemSymbols;
    FakeShell applicationShell;
    FakeDeviceInfo device;
    CaptureTool tool{QStringLiteral("/nonexistent/capture"),
                     {QStringLiteral("-x"), QStringLiteral("-C")}};
    QString supportDirectory;
};

} // namespace quellora
