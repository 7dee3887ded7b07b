#include "fakes/FakePanelWindow.h"
#include "picker/RegionPicker.h"
#include "picker/RegionWindow.h"
#include "support/TestProgram.h"

#include <QAccessible>
#include <QGuiApplication>
#include <QPainter>
#include <QScreen>
#include <QSignalSpy>

using namespace quellora;

namespace {

/// A picture whose pixels have twice the screen's density.
QImage pictureOf(const QScreen &screen, QColor colour = Qt::red)
{
    QImage image(screen.size() * 2, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

} // namespace

class TestRegionPicker : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_panels = std::make_unique<FakePanelWindow>();
        m_picker = std::make_unique<RegionPicker>(*m_panels, 1.0);
        QSignalSpy shown(m_picker.get(), &RegionPicker::shown);
        QScreen *screen = QGuiApplication::primaryScreen();
        m_picker->show({{screen, pictureOf(*screen)}}, 0);
        QVERIFY(shown.wait());
        const QWindowList windows = QGuiApplication::topLevelWindows();
        QCOMPARE(windows.size(), 1);
        m_window = qobject_cast<RegionWindow *>(windows.first());
        QVERIFY(m_window);
    }
    void cleanup()
    {
        m_picker.reset();
        QVERIFY(QGuiApplication::topLevelWindows().isEmpty());
        m_panels.reset();
    }

    void coversScreenAndTakesKeyboard()
    {
        QCOMPARE(m_window->geometry(), QGuiApplication::primaryScreen()->geometry());
        QVERIFY(m_panels->isFloating(*m_window));
        QVERIFY(!m_panels->shownBeforeExclusion);
        QCOMPARE(m_panels->count("excludeFromCapture"), 1);
        QCOMPARE(m_panels->keyboardOwner(), m_window);
        m_picker.reset();
        QVERIFY(!m_panels->keyboardOwner());
    }

    void mouseDrawsAndReturnTakes()
    {
        QSignalSpy chosen(m_picker.get(), &RegionPicker::chosen);
        QTest::keyClick(m_window, Qt::Key_Return);
        QVERIFY2(chosen.isEmpty(), "nothing is selected yet");
        drag({100, 50}, {200, 90});
        // Points become pixels of the picture.
        QCOMPARE(m_picker->part(), QRect(QPoint(200, 100), QPoint(400, 180)));
        QTest::keyClick(m_window, Qt::Key_Return);
        QCOMPARE(chosen.size(), 1);
        QCOMPARE(chosen.first(), (QVariantList{0, m_picker->part(), false}));
    }

    void otherWaysToTake()
    {
        QSignalSpy chosen(m_picker.get(), &RegionPicker::chosen);
        drag({100, 50}, {200, 90});
        QTest::keyClick(m_window, Qt::Key_Enter);
        QCOMPARE(chosen.takeFirst().at(2), false);
        QTest::keyClick(m_window, Qt::Key_Return, Qt::ShiftModifier);
        QCOMPARE(chosen.takeFirst().at(2), true);
        QTest::mouseDClick(m_window, Qt::LeftButton, {}, {150, 70});
        QCOMPARE(chosen.takeFirst().at(2), false);
        QTest::mouseDClick(m_window, Qt::LeftButton, {}, {500, 500});
        QVERIFY2(chosen.isEmpty(), "a double click elsewhere takes nothing");
    }

    void keysMoveAndResize()
    {
        QTest::keyClick(m_window, Qt::Key_Left);
        const QSize whole = QGuiApplication::primaryScreen()->size() * 2;
        const QRect middle(whole.width() / 4, whole.height() / 4, whole.width() / 2,
                           whole.height() / 2);
        QCOMPARE(m_picker->part(), middle);
        QTest::keyClick(m_window, Qt::Key_Left);
        QTest::keyClick(m_window, Qt::Key_Down);
        QCOMPARE(m_picker->part(), middle.translated(-1, 1));
        QTest::keyClick(m_window, Qt::Key_Right, Qt::ControlModifier);
        QTest::keyClick(m_window, Qt::Key_Up, Qt::ControlModifier);
        QCOMPARE(m_picker->part(), middle.translated(9, -9));
        QTest::keyClick(m_window, Qt::Key_Left, Qt::ShiftModifier);
        QTest::keyClick(m_window, Qt::Key_Down, Qt::ShiftModifier);
        QCOMPARE(m_picker->part(), middle.translated(9, -9).adjusted(0, 0, -1, 1));
        QTest::keyClick(m_window, Qt::Key_Right, Qt::ShiftModifier | Qt::ControlModifier);
        QCOMPARE(m_picker->part(), middle.translated(9, -9).adjusted(0, 0, 9, 1));
        QTest::keyClick(m_window, Qt::Key_A);
        QCOMPARE(m_picker->part(), middle.translated(9, -9).adjusted(0, 0, 9, 1));
    }

    void keysWaitForMouse()
    {
        QTest::mousePress(m_window, Qt::LeftButton, {}, {100, 50});
        QTest::mouseMove(m_window, {200, 90});
        const QRect part = m_picker->part();
        QTest::keyClick(m_window, Qt::Key_Right);
        QCOMPARE(m_picker->part(), part);
        QTest::mouseRelease(m_window, Qt::LeftButton, {}, {200, 90});
    }

    void rightButtonClears()
    {
        drag({100, 50}, {200, 90});
        QTest::mouseClick(m_window, Qt::RightButton, {}, {150, 70});
        QVERIFY(m_picker->part().isEmpty());
    }

    void escapeDismisses()
    {
        QSignalSpy dismissed(m_picker.get(), &RegionPicker::dismissed);
        QTest::keyClick(m_window, Qt::Key_Escape);
        QCOMPARE(dismissed.size(), 1);
    }

    void closingDismisses()
    {
        QSignalSpy dismissed(m_picker.get(), &RegionPicker::dismissed);
        QVERIFY(!m_window->close());
        QCOMPARE(dismissed.size(), 1);
    }

    void changedScreenDismisses()
    {
        QSignalSpy dismissed(m_picker.get(), &RegionPicker::dismissed);
        Q_EMIT QGuiApplication::primaryScreen()->geometryChanged({});
        QCOMPARE(dismissed.size(), 1);
    }

    void pressTakesLostKeyboardBack()
    {
        m_panels->focus(nullptr);
        QVERIFY(!m_panels->keyboardOwner());
        QTest::mouseClick(m_window, Qt::LeftButton, {}, {10, 10});
        QCOMPARE(m_panels->keyboardOwner(), m_window);
    }

    void selectionIsSpoken()
    {
        QAccessibleInterface *root = m_window->accessibleRoot();
        QVERIFY(root && root->isValid());
        QCOMPARE(root->role(), QAccessible::Dialog);
        QCOMPARE(root->text(QAccessible::Name),
                 "Choose a region: draw it with the mouse, or press an arrow key");
        drag({100, 50}, {200, 90});
        QCOMPARE(root->text(QAccessible::Name),
                 "Region 201 by 81 at 200, 100: Return sends it, Shift and Return attaches it");
        QCOMPARE(m_window->accessibleRoot(), root);
    }

    void partIsBrightAndTheRestDimmed()
    {
        drag({100, 50}, {200, 90});
        const QImage seen = painted();
        QCOMPARE(seen.pixelColor(150, 70), QColor(Qt::red));
        QCOMPARE(seen.pixelColor(100, 50), QColor(Qt::red));
        const QColor dimmed = seen.pixelColor(400, 400);
        QVERIFY2(dimmed.red() > 110 && dimmed.red() < 150, qPrintable(dimmed.name()));
        // The frame lies around the part.
        QCOMPARE(seen.pixelColor(98, 70), QColor(0x2f, 0x80, 0xed));
        QCOMPARE(seen.pixelColor(150, 48), QColor(0x2f, 0x80, 0xed));
    }

    void sizeLabelStaysOnScreen()
    {
        const int bottom = m_window->height() - 1;
        for (const QRect &part : {QRect(QPoint(300, 300), QPoint(400, 340)),
                                  QRect(QPoint(300, 500), QPoint(400, bottom)),
                                  QRect(QPoint(0, 0), QPoint(m_window->width() - 1, bottom))}) {
            QTest::mouseClick(m_window, Qt::RightButton, {}, {1, 1});
            const QImage before = painted();
            drag(part.topLeft(), part.bottomRight());
            QCOMPARE_NE(painted(), before);
            QVERIFY2(labelPixels(painted()) > 200, "the label is not on the screen");
        }
    }

private:
    void drag(QPoint from, QPoint to)
    {
        QTest::mousePress(m_window, Qt::LeftButton, {}, from);
        QTest::mouseMove(m_window, to);
        QTest::mouseRelease(m_window, Qt::LeftButton, {}, to);
    }
    /// What the window shows now, without the hint.
    QImage painted()
    {
        m_window->setHintShown(false);
        QImage image(m_window->size(), QImage::Format_RGB32);
        image.fill(Qt::green);
        QPainter painter(&image);
        m_window->draw(painter);
        return image;
    }
    static int labelPixels(const QImage &image)
    {
        int count = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x)
                count += image.pixelColor(x, y) == QColor(0x0b, 0x0c, 0x11);
        }
        return count;
    }

    std::unique_ptr<FakePanelWindow> m_panels;
    std::unique_ptr<RegionPicker> m_picker;
    RegionWindow *m_window = nullptr;
};

QUELLORA_TEST(QGuiApplication, TestRegionPicker)
#include "test_region_picker.moc"
