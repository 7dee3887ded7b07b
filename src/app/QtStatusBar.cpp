#include "app/QtStatusBar.h"

#include <QAction>
#include <QFile>
#include <QIcon>
#include <QMap>
#include <QMenu>
#include <QPainter>
#include <QSvgRenderer>
#include <QSystemTrayIcon>

namespace quellora {

namespace {

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

/// Renders the one-colour drawing light with a dark edge, legible on dark and bright panels alike.
QIcon renderSymbol(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray svg = file.readAll();
    QIcon icon;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        for (const char *layer : {"#12121c|4", "#f2f3f5|1.75"}) {
            const QList<QByteArray> parts = QByteArray(layer).split('|');
            QByteArray tinted = svg;
            tinted.replace("currentColor", parts.at(0));
            tinted.replace("stroke-width=\"2\"", "stroke-width=\"" + parts.at(1) + '"');
            QSvgRenderer(tinted).render(&painter);
        }
        painter.end();
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

class QtStatusItem : public StatusItem
{
public:
    ~QtStatusItem() override { m_icon.hide(); }

    bool hasButton() const override { return QSystemTrayIcon::isSystemTrayAvailable(); }

    bool setSymbol(const QString &symbolName, const QString &description) override
    {
        const QString path = symbolFile(symbolName);
        if (path.isEmpty())
            return false;
        const QIcon icon = renderSymbol(path);
        if (icon.isNull())
            return false;
        m_icon.setIcon(icon);
        m_icon.setToolTip(description);
        return true;
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
        m_icon.setContextMenu(&m_menu);
        // Without an image there is nothing to see or to press.
        m_icon.setVisible(!m_icon.icon().isNull());
    }

private:
    QMenu m_menu;
    QSystemTrayIcon m_icon;
};

} // namespace

std::unique_ptr<StatusItem> QtStatusBar::makeItem()
{
    return std::make_unique<QtStatusItem>();
}

} // namespace quellora
