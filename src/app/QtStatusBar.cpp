#include "app/QtStatusBar.h"

#include "platform/Platform.h"

#include <QAction>
#include <QFile>
#include <QIcon>
#include <QMap>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QSvgRenderer>
#include <QSystemTrayIcon>

#include <utility>

namespace quellora {

namespace {

// Legible on dark and bright panels alike.
constexpr QColor darkEdge(0x12, 0x12, 0x1c);
constexpr QColor lightInk(0xf2, 0xf3, 0xf5);

/// The bundled drawing that stands for a system symbol; empty when there is none.
QString symbolFile(const QString &symbolName)
{
    static const QMap<QString, QString> symbols{
        {QStringLiteral("gear"), QStringLiteral("settings")}};
    const auto it = symbols.find(symbolName);
    if (it == symbols.end())
        return {};
    const QString path = QStringLiteral(":/quellora/icons/%1.svg").arg(*it);
    return QFile::exists(path) ? path : QString();
}

/// Renders the one-colour drawing light with a dark edge.
QIcon renderSymbol(const QString &path)
{
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray svg = file.readAll();
    QIcon icon;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        for (const auto &[color, width] : {std::pair(darkEdge, "4"), std::pair(lightInk, "1.75")}) {
            QByteArray tinted = svg;
            tinted.replace("currentColor", color.name().toLatin1());
            tinted.replace("stroke-width=\"2\"", QByteArray("stroke-width=\"") + width + '"');
            QSvgRenderer(tinted).render(&painter);
        }
        painter.end();
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

/// The system's own drawing, left to the system to colour; null when it has none.
QIcon systemSymbol(const SystemSymbols &symbols, const QString &name)
{
    constexpr double points = 16;
    QIcon icon;
    for (const int scale : {1, 2}) {
        const QImage image = symbols.image(name, points, scale);
        if (image.isNull())
            return {};
        icon.addPixmap(QPixmap::fromImage(image));
    }
    icon.setIsMask(true);
    return icon;
}

/// The text's first letter, where there is no drawing.
QIcon letterIcon(const QString &text)
{
    QIcon icon;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        QFont font;
        font.setPixelSize(size * 7 / 8);
        font.setBold(true);
        QPainterPath letter;
        letter.addText(0, 0, font, text.left(1));
        letter.translate(QRectF(image.rect()).center() - letter.boundingRect().center());
        painter.strokePath(letter, QPen(darkEdge, size / 8.0));
        painter.fillPath(letter, lightInk);
        painter.end();
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

class QtStatusItem : public StatusItem
{
public:
    QtStatusItem(StatusArea &area, const SystemSymbols &symbols) : m_area(area), m_symbols(symbols)
    {
        m_area.onChanged([this] { show(); });
    }
    ~QtStatusItem() override { m_area.onChanged({}); }

    bool hasButton() const override { return m_area.isAvailable(); }

    bool setSymbol(const QString &symbolName, const QString &description) override
    {
        m_icon = systemSymbol(m_symbols, symbolName);
        if (m_icon.isNull())
            m_icon = renderSymbol(symbolFile(symbolName));
        m_description = description;
        const bool hasSymbol = !m_icon.isNull();
        if (!hasSymbol)
            m_icon = letterIcon(description);
        return hasSymbol;
    }

    void setMenu(const QList<StatusMenuItem> &items) override
    {
        m_menu.clear();
        for (const StatusMenuItem &item : items) {
            if (item.isSeparator()) {
                m_menu.addSeparator();
                continue;
            }
            QAction *action = m_menu.addAction(item.title);
            action->setEnabled(static_cast<bool>(item.action));
            if (item.action)
                QObject::connect(action, &QAction::triggered, &m_menu, item.action);
        }
        show();
    }

    void setAction(std::function<void()> action) override { m_action = std::move(action); }

private:
    /// The toolkit decides once which protocol it speaks, so the item is made only when there is a
    /// tray to speak to. From then on the toolkit itself tells trays that are restarted.
    void show()
    {
        if (m_item || !m_area.isAvailable() || m_menu.isEmpty())
            return;
        m_item = std::make_unique<QSystemTrayIcon>(m_icon);
        m_item->setToolTip(m_description);
        m_item->setContextMenu(&m_menu);
        QObject::connect(m_item.get(), &QSystemTrayIcon::activated, m_item.get(),
                         [this](QSystemTrayIcon::ActivationReason reason) {
                             if (reason == QSystemTrayIcon::Trigger && m_action)
                                 m_action();
                         });
        m_item->show();
    }

    StatusArea &m_area;
    const SystemSymbols &m_symbols;
    QIcon m_icon;
    QString m_description;
    std::function<void()> m_action;
    QMenu m_menu;
    /// After the menu, which it shows.
    std::unique_ptr<QSystemTrayIcon> m_item;
};

} // namespace

std::unique_ptr<StatusItem> QtStatusBar::makeItem()
{
    return std::make_unique<QtStatusItem>(m_area, m_symbols);
}

} // namespace quellora
