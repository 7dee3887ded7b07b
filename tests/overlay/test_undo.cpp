#include "OverlayDriver.h"
#include "support/TestProgram.h"

#include <QGuiApplication>

using namespace quellora;

/// Where the panel offers to undo a removal, driven by mouse and keyboard, and what the settings
/// say of the stored threads.
class TestUndo : public OverlayDriver
{
    Q_OBJECT
private Q_SLOTS:
    void historyOffersUndo()
    {
        openHistory();
        deleteRow(1);
        QTRY_COMPARE(f().sidebar.rowCount(), 5);
        QQuickItem *bar = f().find("historyUndo");
        QTRY_VERIFY(bar->isVisible());
        QCOMPARE(text("undoWords"), "Deleted “Capacity review wording”");
        // The focus stays in the list.
        QTRY_COMPARE(focusName().left(7), "Explain");
        // The rows end above the bar.
        const QQuickItem *list = f().find("historyList");
        QCOMPARE(list->y() + list->height(), bar->y());
        // The strip is covered, and offers it only afterwards.
        QVERIFY(!f().find("undoInStrip")->isVisible());
        clickUndo("historyUndo");
        QTRY_COMPARE(f().sidebar.rowCount(), 6);
        QVERIFY(!bar->isVisible());
        QVERIFY(f().history.isHistorySidebarOpen());
        deleteRow(1);
        QTRY_COMPARE(f().sidebar.rowCount(), 5);
        f().history.close();
        QVERIFY(f().find("undoInStrip")->isVisible());
    }

    void historyUndoIsReachedByTab()
    {
        openHistory();
        deleteRow(1);
        QTRY_COMPARE(focusName().left(7), "Explain");
        for (int i = 0; i < 8 && focusName() != "Undo"; ++i)
            key(Qt::Key_Tab);
        QCOMPARE(focusName(), "Undo");
        QCOMPARE(description("undo"), "Deleted “Capacity review wording”");
        key(Qt::Key_Tab);
        QCOMPARE(focusName(), "Close");
        key(Qt::Key_Tab, Qt::ShiftModifier);
        key(Qt::Key_Return);
        QTRY_COMPARE(f().sidebar.rowCount(), 6);
        // What is back has the focus.
        QTRY_COMPARE(focusName().left(8), "Capacity");
    }

    void focusGoesOnWhenTheTimeIsOver()
    {
        openHistory();
        deleteRow(1);
        QTRY_COMPARE(focusName().left(7), "Explain");
        for (int i = 0; i < 8 && focusName() != "Undo"; ++i)
            key(Qt::Key_Tab);
        f().removals.commitAll();
        QVERIFY(!f().find("historyUndo")->isVisible());
        QCOMPARE(focusName(), "Search threads");
    }

    void undoKeyBringsBackOutsideATextField()
    {
        openHistory();
        deleteRow(1);
        QTRY_COMPARE(focusName().left(7), "Explain");
        key(Qt::Key_Z, Qt::ControlModifier);
        QTRY_COMPARE(f().sidebar.rowCount(), 6);
        // A text has its own undo.
        deleteRow(1);
        f().find("historySearch")->forceActiveFocus();
        type("x");
        key(Qt::Key_Z, Qt::ControlModifier);
        QVERIFY(!f().removals.isEmpty());
        QCOMPARE(text("historySearch"), "");
    }

    void stripOffersUndo()
    {
        f().connectRemovals();
        m_events.clear();
        f().overlay.setTitle("Thread");
        f().overlay.setHasAnswer(true);
        showActive();
        QVERIFY(!f().find("undoInStrip")->isVisible());
        remove("Deleted a note");
        QVERIFY(f().find("undoInStrip")->isVisible());
        QVERIFY(!f().find("threadTitle")->isVisible());
        QCOMPARE(text("removedWords"), "Deleted a note");
        QVERIFY(f().find("promptInput")->hasActiveFocus());
        // A notice takes the place of the words only.
        f().overlay.showNotice("Something failed");
        QVERIFY(!f().find("removed")->isVisible());
        QVERIFY(f().find("undoInStrip")->isVisible());
        f().overlay.showNotice({});
        click("undoInStrip");
        QCOMPARE(m_events, QStringList("undo"));
        QVERIFY(f().find("threadTitle")->isVisible());
    }

    void stripUndoIsReachedByKey()
    {
        m_events.clear();
        f().connectRemovals();
        showActive();
        remove("Deleted a note");
        key(Qt::Key_F6);
        QCOMPARE(focusName(), "Undo");
        QCOMPARE(description("undoInStrip"), "Deleted a note");
        key(Qt::Key_Return);
        QCOMPARE(m_events, QStringList("undo"));
        QVERIFY(f().find("promptInput")->hasActiveFocus());
        remove("Deleted a note");
        key(Qt::Key_F6);
        f().removals.commitAll();
        QVERIFY(f().find("promptInput")->hasActiveFocus());
    }

    void wordsFitTheSmallestPanel()
    {
        f().connectRemovals();
        f().panel.resize(320, 280);
        f().overlay.setTitle("Thread");
        f().overlay.setHasAnswer(true);
        f().overlay.setQuestionKnown(true);
        f().overlay.setPageClickable(true);
        f().overlay.setVersions(0, 3);
        show();
        remove("Deleted a note");
        f().panel.grabWindow();
        QVERIFY(!f().find("removedWords")->property("truncated").toBool());
        QVERIFY(!f().find("retry")->isVisible());
        QVERIFY(f().find("copyAnswer")->isVisible());
        f().removals.commitAll();
        QVERIFY(f().find("retry")->isVisible());
    }

    void settingsDeleteAllThreads()
    {
        openSettings();
        QTRY_COMPARE(text("storageSpace"), "6 threads, 6.0 kB");
        f().find("deleteAllThreads")->forceActiveFocus(Qt::TabFocusReason);
        key(Qt::Key_Return);
        QTRY_VERIFY(f().settings.threads()->isAsking());
        // The safe choice has the focus; Escape closes the question only.
        QTRY_COMPARE(focusName(), "Cancel");
        key(Qt::Key_Escape);
        QVERIFY(!f().settings.threads()->isAsking() && f().settings.isOpen());
        QTRY_COMPARE(focusName(), "Delete all threads");
        key(Qt::Key_Return);
        QTRY_COMPARE(focusName(), "Cancel");
        key(Qt::Key_Tab);
        QCOMPARE(focusName(), "Delete");
        key(Qt::Key_Return);
        QTRY_COMPARE(text("storageSpace"), "No saved threads");
        QVERIFY(!f().find("deleteAllThreads")->isEnabled());
        QTRY_COMPARE(focusName(), "Days to keep threads");
        QVERIFY(f().find("settingsUndo")->isVisible());
        clickUndo("settingsUndo");
        QTRY_COMPARE(text("storageSpace"), "6 threads, 6.0 kB");
        QCOMPARE(f().library.sessions.size(), 6);
    }

    void settingsLimitHowLongThreadsAreKept()
    {
        openSettings();
        QTRY_VERIFY(f().settings.threads()->hasThreads());
        const auto isOn = [this] {
            return f().find("keepThreadsLimited")->property("checked").toBool();
        };
        clickInContent("keepThreadsLimited");
        QTRY_VERIFY(f().settings.threads()->isAsking());
        QVERIFY(!isOn());
        key(Qt::Key_Escape);
        QVERIFY(!isOn());
        clickInContent("keepThreadsLimited");
        QTRY_COMPARE(focusName(), "Cancel");
        key(Qt::Key_Tab);
        key(Qt::Key_Return);
        QTRY_VERIFY(isOn());
        QCOMPARE(f().stored.keepThreadsDays(), "30");
        clickInContent("keepThreadsLimited");
        QVERIFY(!isOn());
        QCOMPARE(f().stored.keepThreadsDays(), "");
    }

    void daysAreTyped()
    {
        openSettings();
        QTRY_VERIFY(f().settings.threads()->hasThreads());
        enterDays("soon");
        QVERIFY(f().find("keepThreadsDaysError")->isVisible());
        enterDays("7");
        QVERIFY(!f().find("keepThreadsDaysError")->isVisible());
        QCOMPARE(f().settings.threads()->days(), 7);
        QCOMPARE(f().find("keepThreadsLimited")->property("name").toString(),
                 "Keep threads for 7 days");
        // Shorter than what is in force asks; after Cancel the field shows what is.
        f().stored.setKeepThreadsDays("7");
        QTRY_COMPARE(text("keepThreadsDays"), "7");
        enterDays("3");
        QTRY_COMPARE(focusName(), "Cancel");
        key(Qt::Key_Return);
        QCOMPARE(text("keepThreadsDays"), "7");
        QCOMPARE(f().stored.keepThreadsDays(), "7");
    }

private:
    void key(int key, Qt::KeyboardModifiers modifiers = {})
    {
        QTest::keyClick(&f().panel, Qt::Key(key), modifiers);
    }
    QString description(const char *name)
    {
        return QAccessible::queryAccessibleInterface(f().find(name))
            ->text(QAccessible::Description);
    }
    void remove(const QString &what)
    {
        f().removals.add(
            {what, [this] { m_events.append("commit"); }, [this] { m_events.append("undo"); }});
    }
    void openHistory()
    {
        f().connectRemovals();
        f().addThreads();
        showActive();
        f().history.historyButtonClicked();
        QTRY_COMPARE(f().sidebar.rowCount(), 6);
        QTRY_COMPARE(f().find("historySheet")->opacity(), 1.0);
    }
    /// Deletes a row by keyboard.
    void deleteRow(int row)
    {
        f().find("historySearch")->forceActiveFocus();
        for (int i = 0; i <= row; ++i)
            key(Qt::Key_Down);
        key(Qt::Key_Delete);
        key(Qt::Key_Tab);
        key(Qt::Key_Return);
    }
    void clickUndo(const char *bar)
    {
        f().panel.grabWindow(); // updates the layout
        const QQuickItem *button = OverlayFixture::findIn(f().find(bar), QStringLiteral("undo"));
        QTest::mouseClick(&f().panel, Qt::LeftButton, {},
                          button->mapToScene(QPointF(10, 10)).toPoint());
    }
    void openSettings()
    {
        f().connectSettings();
        f().connectRemovals();
        f().addThreads();
        f().threads.startNewThread();
        showActive();
        f().settings.setOpen(true);
        QTRY_VERIFY(f().find("deleteAllThreads"));
    }
    void clickInContent(const char *name)
    {
        f().panel.grabWindow(); // updates the layout
        QMetaObject::invokeMethod(f().find("settingsSheet"), "reveal",
                                  Q_ARG(QVariant, QVariant::fromValue(f().find(name))));
        click(name);
    }
    void enterDays(const QString &days)
    {
        QQuickItem *field = f().find("keepThreadsDays");
        field->forceActiveFocus();
        QMetaObject::invokeMethod(field, "selectAll");
        type(days);
        key(Qt::Key_Return);
    }

    QStringList m_events;
};

QUELLORA_TEST(QGuiApplication, TestUndo)
#include "test_undo.moc"
