#pragma once

#include "OverlayFixture.h"

#include <QAccessible>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>

namespace quellora {

/// Base of test classes that drive a fresh overlay with mouse and keyboard events.
class OverlayDriver : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        initializeUi();
        QGuiApplication::setQuitOnLastWindowClosed(false);
    }
    void init()
    {
        m_fixture = std::make_unique<OverlayFixture>();
        // Opens and closes the menu like the window controller.
        connect(&f().overlay, &OverlayModel::menuToggled, &f().overlay,
                [this] { f().overlay.setMenuOpen(!f().overlay.isMenuOpen()); });
        connect(&f().menu, &HamburgerMenuModel::closeRequested, &f().overlay,
                [this] { f().overlay.setMenuOpen(false); });
    }
    void cleanup() { m_fixture.reset(); }

protected:
    OverlayFixture &f() { return *m_fixture; }

    void show()
    {
        f().show();
        QVERIFY(QTest::qWaitForWindowExposed(&f().panel));
    }
    void showActive()
    {
        f().panel.setFlag(Qt::WindowDoesNotAcceptFocus, false);
        show();
        f().panel.requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(&f().panel));
        QVERIFY(f().find("promptInput")->hasActiveFocus());
    }

    QPoint centre(const char *name)
    {
        f().panel.grabWindow(); // updates the layout
        const QQuickItem *item = f().find(name);
        if (!item) {
            QTest::qFail(name, __FILE__, __LINE__);
            return {};
        }
        return item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint();
    }
    void press(const QPoint &at) { QTest::mousePress(&f().panel, Qt::LeftButton, {}, at); }
    void moveTo(const QPoint &at)
    {
        QMouseEvent event(QEvent::MouseMove, at, f().panel.mapToGlobal(at), Qt::NoButton,
                          Qt::LeftButton, {});
        QCoreApplication::sendEvent(&f().panel, &event);
    }
    void click(const char *name)
    {
        QTest::mouseClick(&f().panel, Qt::LeftButton, {}, centre(name));
    }
    void wheel(const char *name, const QPoint &pixels, const QPoint &angle,
               const QPointingDevice *device = QPointingDevice::primaryPointingDevice())
    {
        const QPoint at = centre(name);
        QWheelEvent event(at, f().panel.mapToGlobal(at), pixels, angle, {}, {}, Qt::NoScrollPhase,
                          false, Qt::MouseEventNotSynthesized, device);
        QCoreApplication::sendEvent(&f().panel, &event);
    }
    void type(const QString &text)
    {
        for (const QChar character : text)
            QTest::keyClick(&f().panel, character.toLatin1());
    }
    QString text(const char *name) { return f().find(name)->property("text").toString(); }
    QString focusName()
    {
        QQuickItem *item = f().panel.activeFocusItem();
        QAccessibleInterface *accessible =
            item ? QAccessible::queryAccessibleInterface(item) : nullptr;
        return accessible ? accessible->text(QAccessible::Name) : QString();
    }
    /// Whether no frame is rendered for 250 ms within eight attempts. True if only the caret
    /// blinks, false during animations.
    bool isStill()
    {
        QSignalSpy frames(&f().panel, &QQuickWindow::frameSwapped);
        const auto hasNoFrames = [&frames] {
            frames.clear();
            QTest::qWait(250);
            return frames.isEmpty();
        };
        for (int attempt = 0; attempt < 8; ++attempt) {
            if (hasNoFrames())
                return true;
        }
        return false;
    }

private:
    std::unique_ptr<OverlayFixture> m_fixture;
};

} // namespace quellora
