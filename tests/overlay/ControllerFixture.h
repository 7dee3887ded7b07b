#pragma once

#include "backend/NotificationCenter.h"
#include "backend/SessionManager.h"
#include "base/Settings.h"
#include "fakes/FakeFileChooser.h"
#include "fakes/FakePlatform.h"
#include "fakes/FakeThreadLibrary.h"
#include "fakes/LogCapture.h"
#include "hotkeys/HotkeyBindings.h"
#include "hotkeys/HotkeyManager.h"
#include "overlay/OverlayWindowController.h"
#include "page/FakePageSurface.h"
#include "query/PermissionChecker.h"
#include "query/ProxyQueryService.h"
#include "ui/Ui.h"

#include <QNetworkAccessManager>
#include <QPromise>
#include <QQmlEngine>

#include <memory>

namespace quellora {

/// The complete overlay with fake collaborators and no web engine.
struct ControllerFixture
{
    explicit ControllerFixture(const VantiroConfig &vantiroConfig = {}) : config(vantiroConfig)
    {
        prepareQmlEngine(engine);
        make();
    }

    void make()
    {
        auto pageSurface = std::make_unique<FakePageSurface>();
        surface = pageSurface.get();
        overlay = std::make_unique<OverlayWindowController>(
            config, OverlayWindowController::Collaborators{
                        platform, settings, defaults, notifications, session, service, engine,
                        std::move(pageSurface), QUrl(), nullptr, BackendEndpoints("http://host"),
                        [this](CaptureTarget target) {
                            targets << target;
                            return capture.future();
                        },
                        [this] { ++quits; }, hotkeys, &library, &permissions, &chooser});
    }

    VantiroConfig config;
    LogCapture log;
    FakePlatform platform;
    PermissionChecker permissions{platform.systemPermissions, platform.systemVocabulary};
    JsonUserDefaults defaults;
    Settings settings{defaults};
    NotificationCenter notifications;
    QNetworkAccessManager network;
    AuthService auth{network, BackendEndpoints("http://host"), [] { return DeviceFields(); }};
    SessionManager session{auth, notifications};
    ProxyQueryService service{network, BackendEndpoints("http://host")};
    /// Undecided until the test answers.
    FakeDesktopShortcuts shortcuts;
    HotkeyManager hotkeys{platform.hotkeys, platform.systemVocabulary,
                          &std::chrono::steady_clock::now,
                          [this](const HotkeyId &action, const QString &line) {
                              permissions.setProblem(action.jsonKey(), line);
                          },
                          &shortcuts};
    FakeThreadLibrary library;
    FakeFileChooser chooser;
    QPromise<ScreenshotCapture::Outcome> capture;
    QList<CaptureTarget> targets;
    QQmlEngine engine;
    FakePageSurface *surface = nullptr;
    int quits = 0;
    std::unique_ptr<OverlayWindowController> overlay;
};

} // namespace quellora
