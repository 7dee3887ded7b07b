#pragma once

#include "PagePosition.h"
#include "base/Settings.h"
#include "fakes/FakeKeyMonitor.h"
#include "fakes/FakePlatform.h"
#include "fakes/FakeThreadLibrary.h"
#include "history/ThreadController.h"
#include "hotkeys/HotkeyManager.h"
#include "hotkeys/HotkeyRebinding.h"
#include "overlay/FindModel.h"
#include "overlay/NonFocusPanel.h"
#include "overlay/OverlayModel.h"
#include "overlay/ResponseScrollbarModel.h"
#include "panels/BottomPanelsModel.h"
#include "panels/HamburgerMenuModel.h"
#include "sheets/history/HistoryModel.h"
#include "sheets/settings/SettingsModel.h"
#include "ui/Ui.h"

#include <QBuffer>
#include <QPainter>
#include <QQmlEngine>

namespace quellora {

/// The real panel and views on top of fake collaborators.
struct OverlayFixture
{
    /// @param hasDesktopKeys whether the desktop has shortcuts of its own; see `shortcuts`
    explicit OverlayFixture(bool hasDesktopKeys = false)
        : panels(stored)
        , manager(
              hotkeys, words, &std::chrono::steady_clock::now,
              [](const HotkeyId &, const QString &) {}, hasDesktopKeys ? &shortcuts : nullptr)
        , settings(stored, *panels.models(), rebinding, words,
                   hasDesktopKeys ? guide() : ShortcutGuide())
        , threads(stored, nullptr)
        , history(library, threads, removals)
        , sidebar(history, threads, words, QLocale(QStringLiteral("en_US")), [this] { return now; })
        , panel(platform)
    {
        prepareQmlEngine(engine);
        stored.setUserPrompt(QString());
        stored.setHasLaunchedBefore(true);
        stored.setAppearance(Settings::Appearance::Dark);
        panels.setHotkeys(
            {{QStringLiteral("capture"), QStringLiteral("Ctrl+Alt+Super+C")},
             {QStringLiteral("capture_no_send"), QStringLiteral("Ctrl+Alt+Super+Shift+C")},
             {QStringLiteral("toggle"), QStringLiteral("Ctrl+Alt+Super+T")},
             {QStringLiteral("opacity_up"), QStringLiteral("Ctrl+Alt+Super+]")},
             {QStringLiteral("opacity_down"), QStringLiteral("Ctrl+Alt+Super+[")},
             {QStringLiteral("new_thread"), QStringLiteral("Super+N")}});
        overlay.setStopShortcut(QStringLiteral("Super+."));
        panels.models()->setOffer({{QStringLiteral("claude-fast"), QStringLiteral("Fast"),
                                    QStringLiteral("Quick answers, fewest credits")},
                                   {QStringLiteral("claude-balanced"), QStringLiteral("Balanced"),
                                    QStringLiteral("Good for most screens")},
                                   {QStringLiteral("claude-deep"), QStringLiteral("Deep"),
                                    QStringLiteral("Slower, for hard problems")}},
                                  QStringLiteral("claude-balanced"));
        panel.resize(624, 744);
        manager.start(rebinding.hotkeysConfig());
    }

    static ShortcutGuide guide()
    {
        return {QStringLiteral("Add these lines to ~/.config/sway/config, then reload sway."),
                [](const QString &, const QString &command) {
                    return QStringLiteral("bindsym Ctrl+Mod1+Mod4+c exec quellora ") + command;
                },
                QStringLiteral("Settings → Apps → Quellora → Global Shortcuts")};
    }

    /// Opens and closes the settings sheet and applies the theme like OverlaySettings.
    void connectSettings()
    {
        QObject::connect(&menu, &HamburgerMenuModel::settingsRequested, &settings,
                         [this] { settings.setOpen(true); });
        QObject::connect(&settings, &SettingsModel::closeRequested, &settings, [this] {
            settings.setOpen(false);
            rebinding.cancelHotkeyCapture();
        });
        QObject::connect(&stored, &Settings::appearanceChanged, &settings,
                         [this] { setLight(stored.appearance() == Settings::Appearance::Light); });
    }
    /// Offers what concerns stored threads, and the undo of removals, like the window controller.
    void connectRemovals()
    {
        settings.setThreads(library, history);
        QObject::connect(&removals, &PendingRemovals::changed, &overlay,
                         [this] { overlay.setUndoText(removals.text()); });
        QObject::connect(&overlay, &OverlayModel::undoRequested, &removals, &PendingRemovals::undo);
    }
    void setLight(bool isLight)
    {
        overlay.setAppliedTheme(isLight ? AppTheme::Light : AppTheme::Dark);
        settings.setLightTheme(isLight);
    }

    void show()
    {
        panel.setContent(engine, {overlay, panels, menu, scrollbar, responseView, nullptr, &sidebar,
                                  &settings, &finding});
        panel.show();
    }

    QQuickItem *find(const char *objectName) const
    {
        return findIn(panel.overlayItem(), QLatin1String(objectName));
    }

    static AdminMessagePayload message(const QString &type, const QString &header,
                                       const QString &body)
    {
        AdminMessagePayload payload;
        payload.id = QStringLiteral("m");
        payload.type = type;
        payload.headerText = header;
        payload.bodyMarkdown = body;
        return payload;
    }
    /// A placeholder for the answer's view that needs no web engine.
    static QUrl emptyResponse()
    {
        const char *item = "import QtQuick\nItem { objectName: \"response\"; "
                           "property QtObject host; property bool reducedMotion; "
                           "property real textScale: 1 }";
        return QUrl(QStringLiteral("data:text/plain,") +
                    QString::fromLatin1(QByteArray(item).toPercentEncoding()));
    }
    static AdminMessagePayload blocking()
    {
        auto payload = message(
            QStringLiteral("BLOCKING"), QStringLiteral("Credit Limit Reached"),
            QStringLiteral("You have used all of your included credits this month.\n\nTo continue "
                           "using Vantiro, please upgrade your plan.\n\n*After upgrading, sign out "
                           "and sign back in to the app to restore access.*"));
        payload.actionLabel = QStringLiteral("Upgrade Now");
        payload.actionUrl = QStringLiteral("https://example.com/account/billing");
        return payload;
    }

    /// Adds six stored threads from several days and opens the newest one.
    void addThreads()
    {
        const auto add = [this](const char *title, const QDateTime &moment, int turns, int notes) {
            CaptureSession session = CaptureSession::create(moment);
            for (int i = 0; i < turns; ++i)
                session.addTurn(QString::fromUtf8(title), QStringLiteral("Answer"), moment, moment);
            for (int i = 0; i < notes; ++i)
                session.addNote(QString::fromUtf8(title), moment);
            library.sessions.insert(session.id, session);
            return session;
        };
        const QDate today = now.date();
        threads.openFromHistory(
            add("Why does the nightly export skip the last rows for two regions?",
                QDateTime(today, QTime(14, 41)), 3, 2));
        add("Capacity review wording", QDateTime(today, QTime(11, 8)), 6, 0);
        add("Explain this stack trace", QDateTime(today.addDays(-1), QTime(17, 52)), 2, 0);
        add("", QDateTime(today.addDays(-1), QTime(9, 15)), 0, 0);
        add("Finance wants amounts in EUR", QDateTime(today.addDays(-3), QTime(16, 20)), 0, 3);
        add("Regular expression for order numbers", QDateTime(today.addDays(-3), QTime(10, 2)), 4,
            1);
    }

    /// A JPEG that resembles a spreadsheet on screen.
    static QByteArray screenshot(const QSize &size = {1280, 800})
    {
        QImage image(size, QImage::Format_RGB32);
        image.fill(Qt::white);
        QPainter painter(&image);
        painter.fillRect(0, 0, size.width(), size.height() / 9, QColor(0x1f, 0x7a, 0x46));
        for (int row = 0; row < 9; ++row) {
            for (int column = 0; column < 7; ++column)
                painter.fillRect(40 + column * 170, 130 + row * 70, 110, 22,
                                 (row + column) % 5 == 0 ? QColor(0xd9, 0x82, 0x2b)
                                                         : QColor(0x8f, 0x95, 0xa8));
        }
        painter.end();
        QByteArray bytes;
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "JPEG", 85);
        return bytes;
    }

    static QQuickItem *findIn(QQuickItem *item, const QString &objectName)
    {
        if (!item || item->objectName() == objectName)
            return item;
        const QList<QQuickItem *> children = item->childItems();
        for (QQuickItem *child : children) {
            if (QQuickItem *found = findIn(child, objectName))
                return found;
        }
        return nullptr;
    }

    /// The vocabulary used in the reference pictures.
    const Vocabulary words = Vocabulary::linuxDesktop();
    FakePanelWindow platform;
    /// A store that can be made to ignore changes of Boolean values.
    struct Defaults : JsonUserDefaults
    {
        void setBool(const QString &key, bool value) override
        {
            if (!isReadOnly)
                JsonUserDefaults::setBool(key, value);
        }
        bool isReadOnly = false;
    };
    Defaults defaults;
    Settings stored{defaults};
    QQmlEngine engine;
    OverlayModel overlay;
    BottomPanelsModel panels;
    HamburgerMenuModel menu;
    ResponseScrollbarModel scrollbar;
    FakeGlobalHotkeys hotkeys;
    FakeKeyMonitor keyMonitor;
    FakeDesktopShortcuts shortcuts;
    HotkeyManager manager;
    HotkeyRebinding rebinding{manager, defaults, keyMonitor, {}};
    SettingsModel settings;
    FindModel finding;
    QUrl responseView;
    QDateTime now = QDateTime(QDate(2025, 3, 14), QTime(15, 0));
    FakeThreadLibrary library;
    ThreadController threads;
    PendingRemovals removals;
    HistoryController history;
    HistoryModel sidebar;
    NonFocusPanel panel;
};

} // namespace quellora
