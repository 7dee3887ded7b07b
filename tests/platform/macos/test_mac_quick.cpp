#include "platform/macos/EditMenu.h"
#include "platform/macos/HoverDelivery.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

using namespace quellora;

/// Qt Quick items receive the events that the macOS port synthesizes.
class TestMacQuick : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_engine = std::make_unique<QQmlEngine>();
        m_window = std::make_unique<QQuickWindow>();
        m_window->setGeometry(100, 50, 200, 100);
    }
    void cleanup()
    {
        m_window.reset();
        m_engine.reset();
    }

    void textEditHandlesEditCommands()
    {
        QQuickItem *field = show("import QtQuick\nTextEdit { width: 200; height: 100 }");
        QVERIFY(field);
        field->setProperty("text", QStringLiteral("one two"));
        field->forceActiveFocus();
        QVERIFY(sendStandardKey(*m_window, QKeySequence::SelectAll));
        QCOMPARE(field->property("selectedText"), QVariant(QStringLiteral("one two")));
        QVERIFY(sendStandardKey(*m_window, QKeySequence::Cut));
        QCOMPARE(field->property("text"), QVariant(QString()));
        QVERIFY(sendStandardKey(*m_window, QKeySequence::Undo));
        QCOMPARE(field->property("text"), QVariant(QStringLiteral("one two")));
        QVERIFY(sendStandardKey(*m_window, QKeySequence::Redo));
        QCOMPARE(field->property("text"), QVariant(QString()));
        QVERIFY(sendStandardKey(*m_window, QKeySequence::Paste));
        QVERIFY(sendStandardKey(*m_window, QKeySequence::Paste));
        QCOMPARE(field->property("text"), QVariant(QStringLiteral("one twoone two")));
    }

    void itemsReceiveHoverEvents()
    {
        QQuickItem *area =
            show("import QtQuick\n"
                 "Rectangle { width: 100; height: 100\n"
                 "  property bool hovered: handler.hovered\n"
                 "  property bool contained: mouse.containsMouse\n"
                 "  HoverHandler { id: handler }\n"
                 "  MouseArea { id: mouse; anchors.fill: parent; hoverEnabled: true }"
                 "}");
        QVERIFY(area);
        HoverDelivery hover(*m_window);
        const QPointF origin = m_window->position();
        hover.pointerMoved(origin + QPointF(50, 50), true);
        QVERIFY(area->property("hovered").toBool());
        QVERIFY(area->property("contained").toBool());
        hover.pointerMoved(origin + QPointF(150, 50), true);
        QVERIFY(!area->property("hovered").toBool());
        QVERIFY(!area->property("contained").toBool());
        hover.pointerMoved(origin + QPointF(50, 50), true);
        QVERIFY(area->property("contained").toBool());
        hover.pointerMoved(origin + QPointF(500, 50), false);
        QVERIFY(!area->property("hovered").toBool());
        QVERIFY(!area->property("contained").toBool());
    }

private:
    QQuickItem *show(const char *qml)
    {
        QQmlComponent component(m_engine.get());
        component.setData(qml, {});
        auto *item = qobject_cast<QQuickItem *>(component.create());
        if (!item)
            return nullptr;
        item->setParent(m_window->contentItem());
        item->setParentItem(m_window->contentItem());
        m_window->show();
        return QTest::qWaitForWindowExposed(m_window.get()) ? item : nullptr;
    }

    std::unique_ptr<QQmlEngine> m_engine;
    std::unique_ptr<QQuickWindow> m_window;
};

QUELLORA_TEST(QGuiApplication, TestMacQuick)
#include "test_mac_quick.moc"
