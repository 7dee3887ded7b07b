#include "OverlayDriver.h"

using namespace quellora;

/// The History sidebar inside the real panel, with pointer and keys.
class TestHistorySidebar : public OverlayDriver
{
    Q_OBJECT
private Q_SLOTS:
    void slidesOverTheLeftPartAndClosesOnAPressBeside()
    {
        openWithThreads();
        QQuickItem *sheet = f().find("historySheet");
        QVERIFY(sheet->isVisible());
        QCOMPARE(sheet->y(), 34.0);
        QCOMPARE(titleAt(0), QStringLiteral("Why does the nightly export skip the last rows for "
                                            "two regions?"));
        click(QPoint(500, 300));
        QVERIFY(!f().history.isHistorySidebarOpen());
        QTRY_VERIFY(!sheet->isVisible());
    }

    void takesTheWholeWidthWhenCompact()
    {
        f().panel.resize(320, 400);
        openWithThreads();
        const QQuickItem *list = f().find("historyList");
        QCOMPARE(list->width(), 304.0);
        QCOMPARE(f().find("historySearch")->y(), 40.0);
    }

    void pressOpensAThread()
    {
        openWithThreads();
        click(rowCentre(2));
        QTRY_VERIFY(!f().history.isHistorySidebarOpen());
        QCOMPARE(f().threads.currentSession()->turns.first().prompt,
                 QStringLiteral("Explain this stack trace"));
    }

    void keysWalkTheRowsAndOpenOne()
    {
        openWithThreads();
        QVERIFY(f().find("historySearch")->hasActiveFocus());
        key(Qt::Key_Down);
        QCOMPARE(focusedRow(), 0);
        key(Qt::Key_Down);
        QCOMPARE(focusedRow(), 1);
        key(Qt::Key_End);
        QCOMPARE(focusedRow(), 5);
        key(Qt::Key_Down);
        QCOMPARE(focusedRow(), 5);
        key(Qt::Key_Home);
        QCOMPARE(focusedRow(), 0);
        key(Qt::Key_Up);
        QVERIFY(f().find("historySearch")->hasActiveFocus());
        key(Qt::Key_Down);
        key(Qt::Key_PageDown);
        QCOMPARE(focusedRow(), 5);
        key(Qt::Key_Return);
        QTRY_VERIFY(!f().history.isHistorySidebarOpen());
        QCOMPARE(f().threads.currentSession()->turns.size(), 4);
    }

    void tabGoesFromSearchThroughTheRowToClose()
    {
        openWithThreads();
        key(Qt::Key_Tab);
        QCOMPARE(focusedRow(), 0);
        key(Qt::Key_Tab);
        QCOMPARE(focusName(), QStringLiteral("Rename thread"));
        key(Qt::Key_Tab);
        QCOMPARE(focusName(), QStringLiteral("Delete thread"));
        key(Qt::Key_Tab);
        QCOMPARE(focusName(), QStringLiteral("Close"));
        key(Qt::Key_Tab);
        QCOMPARE(focusName(), QStringLiteral("Search threads"));
        key(Qt::Key_Backtab);
        key(Qt::Key_Return);
        QVERIFY(!f().history.isHistorySidebarOpen());
        QVERIFY(f().find("menuButton")->hasActiveFocus());
    }

    void pressOnTheSearchFieldTakesTheKeyboard()
    {
        openWithThreads();
        f().platform.calls.clear();
        click("historySearch");
        QVERIFY(f().platform.calls.contains("makeKey"));
    }

    void searchNarrowsAndOneMatchOpensOnReturn()
    {
        openWithThreads();
        type("EUR");
        QCOMPARE(f().sidebar.count(), 1);
        key(Qt::Key_Return);
        QTRY_VERIFY(!f().history.isHistorySidebarOpen());
        QCOMPARE(f().threads.currentSession()->notes.size(), 3);
    }

    void emptyStates()
    {
        openSidebar();
        const QQuickItem *empty = f().find("historyEmpty");
        QVERIFY(empty->isVisible());
        QVERIFY(texts().contains(QStringLiteral("No saved threads yet")));
        f().history.close();
        openWithThreads();
        QVERIFY(!empty->isVisible());
        type("zzz");
        QVERIFY(empty->isVisible());
        QVERIFY(texts().contains(QStringLiteral("No matching threads")));
        QVERIFY(texts().contains(QStringLiteral("Search looks at thread titles only.")));
        f().sidebar.setSearchText({});
        QVERIFY(!empty->isVisible());
    }

    void renameInPlace()
    {
        openWithThreads();
        key(Qt::Key_Down);
        key(Qt::Key_Down);
        key(Qt::Key_F2);
        QVERIFY(f().history.isRenamingHistoryRow());
        key(Qt::Key_A, Qt::ControlModifier);
        type("Wording");
        key(Qt::Key_Return);
        QVERIFY(!f().history.isRenamingHistoryRow());
        QCOMPARE(titleAt(1), QStringLiteral("Wording"));
        QCOMPARE(focusedRow(), 1);
        QVERIFY(f().history.isHistorySidebarOpen());
    }

    void escapeEndsARenameFirst()
    {
        openWithThreads();
        key(Qt::Key_Down);
        key(Qt::Key_F2);
        type("x");
        key(Qt::Key_Escape);
        QVERIFY(f().history.isHistorySidebarOpen());
        QVERIFY(!f().history.isRenamingHistoryRow());
        QVERIFY(titleAt(0).startsWith(QStringLiteral("Why does")));
        QCOMPARE(focusedRow(), 0);
        key(Qt::Key_Escape);
        QVERIFY(!f().history.isHistorySidebarOpen());
    }

    void leavingTheFieldSaves()
    {
        openWithThreads();
        key(Qt::Key_Down);
        key(Qt::Key_F2);
        key(Qt::Key_A, Qt::ControlModifier);
        type("Export");
        click(centre("historySearch"));
        QCOMPARE(titleAt(0), QStringLiteral("Export"));
        QVERIFY(!f().history.isRenamingHistoryRow());
    }

    void closingWhileRenamingSavesToo()
    {
        openWithThreads();
        key(Qt::Key_Down);
        key(Qt::Key_F2);
        key(Qt::Key_A, Qt::ControlModifier);
        type("Export");
        click(QPoint(500, 300));
        QVERIFY(!f().history.isHistorySidebarOpen());
        QVERIFY(!f().history.isRenamingHistoryRow());
        QCOMPARE(titleAt(0), QStringLiteral("Export"));
    }

    void deleteAsksAndCancelIsTheSafeChoice()
    {
        openWithThreads();
        key(Qt::Key_Down);
        key(Qt::Key_Down);
        key(Qt::Key_Delete);
        QVERIFY(f().sidebar.isDeletePending());
        key(Qt::Key_Return);
        QVERIFY(!f().sidebar.isDeletePending());
        QCOMPARE(f().sidebar.count(), 6);
        QCOMPARE(focusedRow(), 1);
        key(Qt::Key_Delete);
        key(Qt::Key_Tab);
        key(Qt::Key_Return);
        QTRY_COMPARE(f().sidebar.count(), 5);
        QCOMPARE(titleAt(1), QStringLiteral("Explain this stack trace"));
        QTRY_COMPARE(focusedRow(), 1);
    }

    void escapeClosesTheQuestionAndTheSidebarAndDeletesNothing()
    {
        openWithThreads();
        key(Qt::Key_Down);
        key(Qt::Key_Delete);
        key(Qt::Key_Escape);
        QVERIFY(!f().sidebar.isDeletePending());
        QVERIFY(!f().history.isHistorySidebarOpen());
        QCOMPARE(f().library.sessions.size(), 6);
        QTRY_VERIFY(f().find("menuButton")->hasActiveFocus());
    }

    void hoverOffersTheActions()
    {
        openWithThreads();
        QQuickItem *row = rowItem(3);
        const auto remove = [row] {
            return OverlayFixture::findIn(row, QStringLiteral("deleteThread"));
        };
        QVERIFY(!remove());
        QTest::mouseMove(&f().panel, rowCentre(3));
        QTRY_VERIFY(remove() && remove()->isVisible());
        click(remove()->mapToScene(QPointF(14, 14)).toPoint());
        QVERIFY(f().sidebar.isDeletePending());
        QVERIFY(f().sidebar.deleteText().startsWith(QStringLiteral("\"Screenshot\" will")));
        QVERIFY(f().history.isHistorySidebarOpen());
    }

    void failuresAreSaid()
    {
        openWithThreads();
        f().library.failure = StoreError{StoreError::Kind::File, {}, 0, "no"};
        click(rowCentre(1));
        QTRY_VERIFY(f().find("historyNotice")->isVisible());
        QCOMPARE(f().find("historyNotice")->property("text").toString(),
                 QStringLiteral("This thread can't be opened."));
        QVERIFY(f().history.isHistorySidebarOpen());
    }

    void longReadingShowsItsProgress()
    {
        f().library.holdsList = true;
        showActive();
        f().history.historyButtonClicked();
        ThreadBatch batch;
        batch.threads = {FakeThreadLibrary::summary("first", f().now)};
        batch.total = 10000;
        f().library.held->addResult(batch);
        QTRY_COMPARE(f().sidebar.count(), 1);
        const QQuickItem *progress = f().find("historyProgress");
        QVERIFY(!progress->isVisible());
        QTRY_VERIFY(progress->isVisible());
        QVERIFY(texts().contains(QStringLiteral("Reading threads… 1 of 10,000")));
        f().library.held->finish();
        QTRY_VERIFY(!progress->isVisible());
    }

    void rowsAreNamedWithTitleAndTime()
    {
        openWithThreads();
        QAccessibleInterface *row = QAccessible::queryAccessibleInterface(rowItem(1));
        QVERIFY(row);
        QCOMPARE(row->role(), QAccessible::ListItem);
        QVERIFY(row->text(QAccessible::Name)
                    .startsWith(QStringLiteral("Capacity review wording, 11:08")));
        QCOMPARE(row->text(QAccessible::Description), QStringLiteral("6 turns"));
        QAccessibleInterface *current = QAccessible::queryAccessibleInterface(rowItem(0));
        QVERIFY(current->state().selected);
        QCOMPARE(current->text(QAccessible::Description), QStringLiteral("3 turns, 2 notes"));
        QCOMPARE(QAccessible::queryAccessibleInterface(f().find("historySearch"))
                     ->text(QAccessible::Name),
                 QStringLiteral("Search threads"));
    }

    void manyThreadsMakeFewRows()
    {
        f().library.holdsList = true;
        showActive();
        f().history.historyButtonClicked();
        ThreadBatch batch;
        for (int i = 0; i < 10000; ++i)
            batch.threads.append(
                FakeThreadLibrary::summary(QString::number(i), f().now.addSecs(-600 * i)));
        batch.total = 10000;
        f().library.held->addResult(batch);
        QTRY_COMPARE(f().sidebar.count(), 10000);
        f().panel.grabWindow();
        const auto *content =
            f().find("historyList")->property("contentItem").value<QQuickItem *>();
        QVERIFY2(content->childItems().size() < 80,
                 qPrintable(QString::number(content->childItems().size())));
        key(Qt::Key_End);
        QVERIFY(f().find("historySearch")->hasActiveFocus());
        key(Qt::Key_Down);
        key(Qt::Key_End);
        QCOMPARE(focusedRow(), 9999);
    }

    void rowsThatComeInShowAtTheTopUntilTheUserMoves()
    {
        startReading();
        deliver(100, 20, 0);
        QCOMPARE(topTitle(), QStringLiteral("100"));
        deliver(0, 3, 0);
        deliver(300, 20, 0);
        QCOMPARE(topTitle(), QStringLiteral("0"));
        QCOMPARE(f().find("historyList")->property("currentIndex").toInt(), 0);
    }

    void rowsThatComeInDoNotMoveWhatIsScrolledTo()
    {
        startReading();
        deliver(100, 100, 0);
        QQuickItem *list = f().find("historyList");
        list->setProperty("contentY", 1234);
        f().panel.grabWindow();
        const QString seen = topTitle();
        const double y = topY();
        // Above, between the rows above, and below.
        deliver(0, 30, 0);
        deliver(100, 5, 300);
        deliver(900, 50, 0);
        QCOMPARE(f().sidebar.count(), 185);
        QCOMPARE(topTitle(), seen);
        QCOMPARE(topY(), y);
        f().library.held->finish();
        QTRY_VERIFY(!f().history.isLoading());
        QCOMPARE(topTitle(), seen);
    }

    void rowsThatComeInLeaveTheFocusedRowFocused()
    {
        startReading();
        deliver(100, 30, 0);
        key(Qt::Key_Down);
        key(Qt::Key_Down);
        QCOMPARE(focusedRow(), 1);
        const double y = f().panel.activeFocusItem()->mapToScene({}).y();
        deliver(0, 30, 0);
        QCOMPARE(focusedRow(), 31);
        QCOMPARE(titleAt(focusedRow()), QStringLiteral("101"));
        QCOMPARE(f().panel.activeFocusItem()->mapToScene({}).y(), y);
        key(Qt::Key_Up);
        QCOMPARE(titleAt(focusedRow()), QStringLiteral("100"));
    }

    void rowsThatComeInLeaveATitleBeingTyped()
    {
        startReading();
        deliver(100, 30, 0);
        key(Qt::Key_Down);
        key(Qt::Key_F2);
        key(Qt::Key_A, Qt::ControlModifier);
        type("Wor");
        deliver(0, 30, 0);
        type("ding");
        key(Qt::Key_Return);
        QCOMPARE(titleAt(30), QStringLiteral("Wording"));
        QCOMPARE(focusedRow(), 30);
    }

    void rowsThatGoLeaveTheKeyboardWhereItIs()
    {
        openWithThreads();
        f().history.close();
        f().library.sessions.remove(f().history.historySessions().at(1).id);
        openSidebar();
        QCOMPARE(f().sidebar.count(), 5);
        QVERIFY(f().find("historySearch")->hasActiveFocus());
        // Not even when it is the focused row that has gone.
        f().history.close();
        f().library.holdsList = true;
        f().history.historyButtonClicked();
        QTRY_COMPARE(f().find("historySheet")->property("progress").toDouble(), 1.0);
        key(Qt::Key_Down);
        key(Qt::Key_Down);
        QCOMPARE(focusedRow(), 1);
        const QString next = titleAt(2);
        ThreadBatch batch;
        for (int i : {0, 2, 3, 4})
            batch.threads.append(f().history.historySessions().at(i));
        batch.total = 4;
        f().library.held->addResult(batch);
        f().library.held->finish();
        QTRY_COMPARE(f().sidebar.count(), 4);
        QTRY_COMPARE(focusedRow(), 1);
        QCOMPARE(titleAt(1), next);
    }

    void openingAgainStartsAtTheTop()
    {
        startReading();
        deliver(0, 100, 0);
        f().library.held->finish();
        QTRY_VERIFY(!f().history.isLoading());
        f().find("historyList")->setProperty("contentY", 1234);
        f().panel.grabWindow();
        QVERIFY(topTitle() != "0");
        f().history.close();
        f().history.historyButtonClicked();
        f().panel.grabWindow();
        QCOMPARE(topTitle(), QStringLiteral("0"));
    }

private:
    void startReading()
    {
        f().library.holdsList = true;
        showActive();
        f().history.historyButtonClicked();
        QTRY_COMPARE(f().find("historySheet")->property("progress").toDouble(), 1.0);
    }
    /// Threads named by numbers from @p first on, each a minute older than the one before.
    void deliver(int first, int threads, int seconds)
    {
        ThreadBatch batch;
        for (int i = first; i < first + threads; ++i)
            batch.threads.append(
                FakeThreadLibrary::summary(QString::number(i), f().now.addSecs(-60 * i - seconds)));
        batch.total = 1000;
        const int before = f().sidebar.count();
        f().library.held->addResult(batch);
        QTRY_COMPARE(f().sidebar.count(), before + threads);
        f().panel.grabWindow();
    }
    /// The first row that is in sight as a whole.
    QQuickItem *topRow()
    {
        QQuickItem *list = f().find("historyList");
        for (int row = 0; row < f().sidebar.count(); ++row) {
            QQuickItem *item = rowItem(row);
            if (item && item->mapToItem(list, {}).y() >= 0)
                return item;
        }
        return nullptr;
    }
    QString topTitle() { return topRow()->property("title").toString(); }
    double topY() { return topRow()->mapToScene({}).y(); }
    void openSidebar()
    {
        if (!f().panel.isVisible())
            showActive();
        f().history.historyButtonClicked();
        QTRY_VERIFY(!f().history.isLoading());
        QTRY_COMPARE(f().find("historySheet")->property("progress").toDouble(), 1.0);
        f().panel.grabWindow();
    }
    void openWithThreads()
    {
        f().addThreads();
        openSidebar();
        QCOMPARE(f().sidebar.count(), 6);
    }
    QString titleAt(int row)
    {
        return f().sidebar.data(f().sidebar.index(row), HistoryModel::TitleRole).toString();
    }
    QQuickItem *rowItem(int row)
    {
        QQuickItem *item = nullptr;
        QMetaObject::invokeMethod(f().find("historyList"), "itemAtIndex",
                                  Q_RETURN_ARG(QQuickItem *, item), Q_ARG(int, row));
        return item;
    }
    QPoint rowCentre(int row)
    {
        const QQuickItem *item = rowItem(row);
        return item->mapToScene(QPointF(60, item->height() / 2)).toPoint();
    }
    int focusedRow()
    {
        const QQuickItem *item = f().panel.activeFocusItem();
        return item && item->property("isEditing").isValid() ? item->property("index").toInt() : -1;
    }
    using OverlayDriver::click;
    void click(const QPoint &position)
    {
        QTest::mouseClick(&f().panel, Qt::LeftButton, {}, position);
    }
    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = {})
    {
        QTest::keyClick(&f().panel, key, modifiers);
    }
    /// Every text on show below the sheet.
    QStringList texts()
    {
        QStringList found;
        collect(f().find("historySheet"), found);
        return found;
    }
    static void collect(const QQuickItem *item, QStringList &found)
    {
        if (!item->isVisible())
            return;
        if (const QVariant text = item->property("text"); text.isValid())
            found.append(text.toString());
        const auto children = item->childItems();
        for (const QQuickItem *child : children)
            collect(child, found);
    }
};

QTEST_MAIN(TestHistorySidebar)
#include "test_ui_history_sidebar.moc"
