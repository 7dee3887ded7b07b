#pragma once

#include <QList>
#include <QString>

#include <functional>
#include <memory>

namespace quellora {

/// One row of the status item's menu.
struct StatusMenuItem
{
    /// Empty for a separator.
    QString title;
    /// None: the row is shown but cannot be chosen.
    std::function<void()> action;

    bool isSeparator() const { return title.isEmpty(); }
};

/// An item in the system's status area; gone when destroyed.
class StatusItem
{
public:
    virtual ~StatusItem() = default;
    /// Whether the desktop has a status area that shows the item.
    virtual bool hasButton() const = 0;
    /// Shows the named system symbol; false when there is no such symbol: the item then shows the
    /// description's first letter.
    virtual bool setSymbol(const QString &symbolName, const QString &description) = 0;
    virtual void setMenu(const QList<StatusMenuItem> &items) = 0;
    /// What a click on the item itself does.
    virtual void setAction(std::function<void()> action) = 0;
};

/// Makes status items. Main thread only.
class StatusBar
{
public:
    virtual ~StatusBar() = default;
    virtual std::unique_ptr<StatusItem> makeItem() = 0;
};

} // namespace quellora
