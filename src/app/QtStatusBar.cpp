#include "app/QtStatusBar.h"

#include "platform/Platform.h"

#include <QAction>
#include <QFile>
#include <QIconEngine>
#include <QMap>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QSvgRenderer>
#include <QSystemTrayIcon>

#include <utility>

namespace quellora {

namespace {

// A light glyph with a dark outline is legible on both dark and light bars.
constexpr QColor outlineColor(0x12, 0x12, 0x1c);
constexpr QColor fillColor(0xf2, 0xf3, 0xf5);

/// Path of the bundled SVG for a system symbol; empty if there is none.
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

/// Name of the symbol in the icon theme that the desktop draws in its bar's colour.
const QString themedSymbol = QStringLiteral("quellora-symbolic");

/// Pictures with the name of a symbol in the icon theme, so that a tray that knows the name can use
/// the symbol and others use the pictures.
class NamedPictures : public QIconEngine
{
public:
    NamedPictures(const QIcon &pictures, const QString &name) : m_pictures(pictures), m_name(name)
    {}

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State state) override
    {
        m_pictures.paint(painter, rect, Qt::AlignCenter, mode, state);
    }
    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state) override
    {
        return m_pictures.pixmap(size, mode, state);
    }
    QSize actualSize(const QSize &size, QIcon::Mode mode, QIcon::State state) override
    {
        return m_pictures.actualSize(size, mode, state);
    }
    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override
    {
        return m_pictures.availableSizes(mode, state);
    }
    QString iconName() override { return m_name; }
    bool isNull() override { return m_pictures.isNull(); }
    QIconEngine *clone() const override { return new NamedPictures(m_pictures, m_name); }

private:
    QIcon m_pictures;
    QString m_name;
};

/// Whether the tray draws symbols of the icon theme in the colour of its bar, and follows changes
/// of it. Other trays show them as they are, so that they may be dark on a dark bar. What colour
/// the bar has is not known here: it is not always that of the windows.
bool recoloursSymbols()
{
    const QStringList desktops =
        qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(QLatin1Char(':'));
    return desktops.contains(QLatin1StringView("KDE")) ||
           desktops.contains(QLatin1StringView("GNOME"));
}

/// Renders a single-colour SVG in a light colour with a dark outline; null on failure.
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
        for (const auto &[color, width] :
             {std::pair(outlineColor, "4"), std::pair(fillColor, "1.75")}) {
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

/// The system's own symbol as a mask that the system colours; null if it has none.
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

/// The pictures for @p path, with the name of the theme's symbol where the desktop has a use for it
/// and it is installed; null on failure.
QIcon statusPictures(const QString &path)
{
    const QIcon pictures = renderSymbol(path);
    if (pictures.isNull() || !recoloursSymbols())
        return pictures;
    // A theme without the symbol would answer with the program's coloured icon.
    if (QIcon::fromTheme(themedSymbol).name() != themedSymbol)
        return pictures;
    return QIcon(new NamedPictures(pictures, themedSymbol));
}

/// Fallback icon: the first letter of the text.
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
        painter.strokePath(letter, QPen(outlineColor, size / 8.0));
        painter.fillPath(letter, fillColor);
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
    ~QtStatusItem() override
    {
        m_area.onChanged({});
        // A menu that is destroyed with its items leaves those of the tray behind.
        m_menu.clear();
    }

    bool hasButton() const override { return m_area.isAvailable(); }

    bool setSymbol(const QString &symbolName, const QString &description) override
    {
        m_icon = QtStatusBar::symbolIcon(m_symbols, symbolName);
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
    /// Creates the tray icon once a tray is available. Qt selects the tray protocol only once, so
    /// creating the icon earlier could select the wrong one. Qt itself handles tray restarts.
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
    /// Declared after the menu it shows, so that it is destroyed first.
    std::unique_ptr<QSystemTrayIcon> m_item;
};

} // namespace

QIcon QtStatusBar::symbolIcon(const SystemSymbols &symbols, const QString &symbolName)
{
    const QIcon icon = systemSymbol(symbols, symbolName);
    return icon.isNull() ? statusPictures(symbolFile(symbolName)) : icon;
}

std::unique_ptr<StatusItem> QtStatusBar::makeItem()
{
    return std::make_unique<QtStatusItem>(m_area, m_symbols);
}

} // namespace quellora
