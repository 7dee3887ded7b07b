#pragma once

#include "app/UserDefaults.h"
#include "fakes/FakePlatform.h"
#include "overlay/ui/NonFocusPanel.h"
#include "overlay/ui/OverlayModel.h"
#include "overlay/ui/ResponseScrollbarModel.h"
#include "panels/BottomPanelsModel.h"
#include "panels/HamburgerMenuModel.h"
#include "ui/Ui.h"

#include <QBuffer>
#include <QPainter>
#include <QQmlEngine>

namespace quellora {

/// A whole overlay over fakes: the real panel and views, nothing behind them.
struct OverlayFixture
{
    OverlayFixture() : panels(defaults), panel(platform)
    {
        prepareQmlEngine(engine);
        defaults.setString(QLatin1String(DefaultsKey::userPrompt), QString());
        defaults.setBool(QLatin1String(DefaultsKey::hasLaunchedBefore), true);
        HotkeyTexts keys;
        keys.capture = QStringLiteral("Ctrl+Option+Cmd+C");
        keys.captureNoSend = QStringLiteral("Ctrl+Option+Cmd+Shift+C");
        keys.toggle = QStringLiteral("Ctrl+Option+Cmd+T");
        keys.opacityUp = QStringLiteral("Ctrl+Option+Cmd+]");
        keys.opacityDown = QStringLiteral("Ctrl+Option+Cmd+[");
        keys.newThread = QStringLiteral("Cmd+N");
        panels.setHotkeys(keys);
        panels.setAvailableModels({{QStringLiteral("fast"), QStringLiteral("Fast"),
                                    QStringLiteral("Quick answers, fewest credits")},
                                   {QStringLiteral("balanced"), QStringLiteral("Balanced"),
                                    QStringLiteral("Good for most screens")},
                                   {QStringLiteral("deep"), QStringLiteral("Deep"),
                                    QStringLiteral("Slower, for hard problems")}});
        panels.setSelectedModelId(QStringLiteral("balanced"));
        panel.resize(624, 744);
    }

    void show()
    {
        panel.setContent(engine, {overlay, panels, menu, scrollbar, responseView, nullptr});
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

    /// A JPEG that looks like a screen with a table.
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

    FakePanelWindow platform;
    JsonUserDefaults defaults;
    QQmlEngine engine;
    OverlayModel overlay;
    BottomPanelsModel panels;
    HamburgerMenuModel menu;
    ResponseScrollbarModel scrollbar;
    QUrl responseView;
    NonFocusPanel panel;
};

} // namespace quellora
