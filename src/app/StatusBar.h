#pragma once

#include <QList>
#include <QString>

#include <functional>
#include <memory>

namespace quellora {

/// A row of the status item's menu.
struct StatusMenuItem
{
    /// Empty for a separator.
    QString title;
    /// Empty for a disabled row.
    std::function<void()> action;

    bool isSeparator() const { return title.isEmpty(); }
};

/// An item in the system's status area, removed on destruction. Main thread only.
class StatusItem
{
public:
    virtual ~StatusItem() = default;
    /// Whether the desktop currently has a status area that can show the item.
    virtual bool hasButton() const = 0;
    /// Sets the icon to the named system symbol. If there is none, falls back to the description's
    /// first letter and returns false.
    virtual bool setSymbol(const QString &symbolName, const QString &description) = 0;
    virtual void setMenu(const QList<StatusMenuItem> &items) = 0;
    /// Sets the callback for a click on the item.
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
