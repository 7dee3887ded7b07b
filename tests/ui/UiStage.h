#pragma once

#include "QuickItems.h"
#include "ui/Ui.h"

#include <QAccessible>
#include <QQmlComponent>
#include <QQmlEngine>

#include <memory>

namespace quellora {

/// A window of 400 × 200 pixels that contains the given QML.
struct Stage
{
    explicit Stage(const QByteArray &body)
    {
        prepareQmlEngine(engine);
        QQmlComponent component(&engine);
        component.setData("import QtQuick\nimport Quellora.Ui\nItem {\n" + body + "\n}", QUrl());
        root.reset(qobject_cast<QQuickItem *>(component.create()));
        if (!root)
            qFatal("%s", qPrintable(component.errorString()));
        window.resize(400, 200);
        root->setParentItem(window.contentItem());
        root->setSize(QSizeF(400, 200));
        window.show();
        window.requestActivate();
        ready = QTest::qWaitForWindowActive(&window);
        QTest::mouseMove(&window, QPoint(390, 190));
    }

    QQuickItem *item(const QString &objectName)
    {
        return findItem(window.contentItem(), "objectName", objectName);
    }
    int count(const char *property) { return root->property(property).toInt(); }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {})
    {
        QTest::keyClick(&window, key, modifiers);
    }
    QStringList texts() { return visibleTexts(window.contentItem()); }

    QQmlEngine engine;
    QQuickWindow window;
    std::unique_ptr<QQuickItem> root;
    bool ready = false;
};

inline QAccessibleActionInterface *actions(QQuickItem *item)
{
    return QAccessible::queryAccessibleInterface(item)->actionInterface();
}

} // namespace quellora
