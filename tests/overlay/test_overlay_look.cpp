#include "ControllerFixture.h"
#include "support/TestProgram.h"

#include <QAccessible>
#include <QBuffer>
#include <QGuiApplication>
#include <QQuickItem>
#include <QTest>

using namespace quellora;

namespace {

QByteArray jpeg(const QSize &size = {320, 200})
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::red);
    QByteArray data;
    QBuffer buffer(&data);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPG");
    return data;
}

} // namespace

/// The question before a captured picture is sent.
class TestOverlayLook : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_f = std::make_unique<ControllerFixture>();
        m_f->settings.setLookBeforeSending(true);
        m_f->settings.setHasLaunchedBefore(true);
        m_f->overlay->show();
    }
    void cleanup() { m_f.reset(); }

    void asksAndTakesKeyboard()
    {
        QVERIFY(!dialog()->isVisible());
        capture();
        QTRY_VERIFY(dialog()->isVisible());
        QVERIFY(m_f->overlay->look().model().isOpen());
        QCOMPARE(m_f->platform.panel.keyboardOwner(), &panel());
        // No click reaches what is beneath the answer.
        QTRY_COMPARE(m_f->platform.panel.clickThroughRect(), QRect());
        QTRY_COMPARE(focused("Send"), true);
        QTRY_COMPARE(m_f->overlay->look().model().picture().size(), QSize(320, 200));
    }

    void escapeDrops()
    {
        capture();
        key(Qt::Key_Escape);
        QTRY_VERIFY(!m_f->overlay->look().model().isOpen());
        QTRY_VERIFY(!dialog()->isVisible());
        QVERIFY(m_f->log.contains("[OverlayWindowController] Capture dropped by the user"));
        QVERIFY(!m_f->overlay->threads().hasAttachedScreenshot());
        QVERIFY(!m_f->platform.panel.keyboardOwner());
        QVERIFY(!m_f->platform.panel.clickThroughRect().isEmpty());
    }

    void returnSends()
    {
        capture();
        key(Qt::Key_Return);
        QVERIFY(!m_f->overlay->look().model().isOpen());
        // There is no account in this test.
        QVERIFY(m_f->log.contains(QString::fromUtf8(
            "[OverlayWindowController] ERROR: No session token — not logged in")));
        QCOMPARE(m_f->overlay->threads().currentSession()->screenshots.size(), 1);
    }

    void tabReachesAllButtons()
    {
        capture();
        key(Qt::Key_Tab);
        QTRY_COMPARE(focused("Drop"), true);
        key(Qt::Key_Tab);
        QTRY_COMPARE(focused("Attach"), true);
        key(Qt::Key_Return);
        QVERIFY(!m_f->overlay->look().model().isOpen());
        QVERIFY(m_f->overlay->threads().hasAttachedScreenshot());
    }

    void keyboardOfThePromptIsKept()
    {
        panel().makeKey();
        capture();
        key(Qt::Key_Escape);
        QTRY_VERIFY(!m_f->overlay->look().model().isOpen());
        QCOMPARE(m_f->platform.panel.keyboardOwner(), &panel());
    }

    void hiddenPanelIsShown()
    {
        m_f->overlay->toggleVisibility();
        QVERIFY(!m_f->overlay->isVisible());
        capture();
        QVERIFY(m_f->overlay->isVisible());
        QCOMPARE(m_f->platform.panel.keyboardOwner(), &panel());
    }

    void coversOpenSettings()
    {
        m_f->overlay->settings().open();
        capture();
        key(Qt::Key_Escape);
        QTRY_VERIFY(!m_f->overlay->look().model().isOpen());
        QVERIFY2(m_f->overlay->settings().model().isOpen(), "Escape closed both");
        QCOMPARE(m_f->platform.panel.clickThroughRect(), QRect());
    }

    void focusReturnsToWhereItWas()
    {
        panel().requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(&panel()));
        item("menuButton")->forceActiveFocus(Qt::TabFocusReason);
        capture();
        QTRY_COMPARE(focused("Send"), true);
        key(Qt::Key_Escape);
        QTRY_COMPARE(panel().activeFocusItem(), item("menuButton"));
    }

    void fitsEveryPanel_data()
    {
        QTest::addColumn<QSize>("window");
        QTest::addColumn<QSize>("picture");
        for (const QSize &window : {QSize(320, 280), QSize(624, 744), QSize(1000, 300)}) {
            for (const QSize &picture : {QSize(1280, 800), QSize(1280, 30), QSize(40, 900)})
                QTest::addRow("%dx%d of %dx%d", picture.width(), picture.height(), window.width(),
                              window.height())
                    << window << picture;
        }
    }
    void fitsEveryPanel()
    {
        QFETCH(QSize, window);
        QFETCH(QSize, picture);
        panel().resize(window);
        capture(jpeg(picture));
        QTRY_COMPARE(m_f->overlay->look().model().picture().size(), picture);
        const QRectF outer(0, 0, window.width(), window.height());
        const auto card = item("lookCard");
        const auto shown = item("lookPicture");
        const QRectF cardRect = card->mapRectToScene(card->boundingRect());
        const QRectF shownRect = shown->mapRectToScene(shown->boundingRect());
        QVERIFY(outer.contains(cardRect));
        QVERIFY(cardRect.contains(shownRect));
        QVERIFY(shownRect.width() >= 1 && shownRect.height() >= 1);
        // In its own shape, but for a rounded point.
        QVERIFY(qAbs(shownRect.width() * picture.height() - shownRect.height() * picture.width()) <=
                2 * qMax(picture.width(), picture.height()));
    }

    void dialogIsNamed()
    {
        capture();
        QAccessibleInterface *interface = QAccessible::queryAccessibleInterface(dialog());
        QVERIFY(interface);
        QCOMPARE(interface->role(), QAccessible::Dialog);
        QCOMPARE(interface->text(QAccessible::Name), "Send this picture?");
        QTRY_COMPARE(interface->text(QAccessible::Description),
                     QString::fromUtf8("320 × 200 · goes with your prompt"));
    }

private:
    NonFocusPanel &panel() { return m_f->overlay->panel(); }
    QQuickItem *item(const char *name)
    {
        return panel().overlayItem()->findChild<QQuickItem *>(QLatin1String(name));
    }
    QQuickItem *dialog() { return item("lookDialog"); }
    void capture(const QByteArray &data = jpeg())
    {
        m_f->overlay->triggerCaptureAndSend(CaptureTarget::Screen);
        m_f->capture.start();
        m_f->capture.addResult(ScreenshotCapture::Result{data, 1});
        m_f->capture.finish();
        QTRY_VERIFY(m_f->overlay->look().model().isOpen());
        panel().requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(&panel()));
    }
    void key(Qt::Key key) { QTest::keyClick(&panel(), key); }
    /// Whether the button with this text has the focus.
    bool focused(const char *text)
    {
        const QQuickItem *focus = panel().activeFocusItem();
        return focus && focus->property("text").toString() == QLatin1String(text);
    }

    std::unique_ptr<ControllerFixture> m_f;
};

QUELLORA_TEST(QGuiApplication, TestOverlayLook)
#include "test_overlay_look.moc"
