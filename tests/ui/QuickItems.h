#pragma once

#include <QQuickItem>
#include <QQuickWindow>
#include <QtTest>

namespace quellora {

/// The first descendant of @p root, visible or not, whose @p property equals @p value.
inline QQuickItem *findItem(QQuickItem *root, const char *property, const QVariant &value)
{
    for (QQuickItem *item : root->childItems()) {
        if (item->property(property) == value)
            return item;
        if (QQuickItem *found = findItem(item, property, value))
            return found;
    }
    return nullptr;
}

/// The texts of all visible descendants of @p root, in tree order.
inline QStringList visibleTexts(QQuickItem *root)
{
    QStringList texts;
    for (QQuickItem *item : root->childItems()) {
        if (!item->isVisible())
            continue;
        if (item->inherits("QQuickText") && !item->property("text").toString().isEmpty())
            texts << item->property("text").toString();
        texts << visibleTexts(item);
    }
    return texts;
}

/// The rectangle of @p item in its window, in logical pixels.
inline QRectF areaOf(QQuickItem *item)
{
    return item->mapRectToScene(QRectF(0, 0, item->width(), item->height()));
}

inline void click(QQuickItem *item)
{
    QTest::mouseClick(item->window(), Qt::LeftButton, Qt::NoModifier,
                      areaOf(item).center().toPoint());
}

} // namespace quellora
