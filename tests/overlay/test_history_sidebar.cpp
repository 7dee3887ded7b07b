#include "OverlayDriver.h"
#include "support/TestProgram.h"

#include <QGuiApplication>

using namespace quellora;

/// The History sidebar in the real panel, driven by mouse and keyboard.
class TestHistorySidebar : public OverlayDriver
{
    Q_OBJECT
private Q_SLOTS:
    void closesOnPressOutside()
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

    void fillsCompactPanel()
    {
        f().panel.resize(320, 400);
        openWithThreads();
        const QQuickItem *list = f().find("historyList");
        QCOMPARE(list->width(), 304.0);
        QCOMPARE(f().find("historySearch")->y(), 40.0);
    }

    void pressOpensThread()
    {
        openWithThreads();
        click(rowCentre(2));
        QTRY_VERIFY(!f().history.isHistorySidebarOpen());
        QCOMPARE(f().threads.currentSession()->turns.first().prompt,
                 QStringLiteral("Explain this stack trace"));
    }

    void keysSelectAndOpenRow()
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

    void tabOrder()
    {
        openWithThreads();
        key(Qt::Key_Tab);
        QCOMPARE(focusedRow(), 0);
        key(Qt::Key_Tab);
        QCOMPARE(focusName(), QStringLiteral("Export or copy thread"));
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

    void pressOnSearchFieldRequestsKeyboard()
    {
        openWithThreads();
        f().platform.calls.clear();
        click("historySearch");
        QVERIFY(f().platform.calls.contains("makeKey"));
    }

    void searchFiltersAndReturnOpensOnlyMatch()
    {
        openWithThreads();
        type("EUR");
        QCOMPARE(f().sidebar.rowCount(), 1);
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
        QVERIFY(texts().contains(
            QStringLiteral("Search looks at titles, questions, answers and notes.")));
        f().sidebar.setSearchText({});
        QVERIFY(!empty->isVisible());
    }

    void f2RenamesRow()
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

    void renameButtonStartsEditingOnFirstPress()
    {
        openWithThreads();
        for (int row = 0; row < f().sidebar.rowCount(); ++row) {
            QTest::mouseMove(&f().panel, rowCentre(row));
            const auto pencil = [this, row] {
                return OverlayFixture::findIn(rowItem(row), QStringLiteral("renameThread"));
            };
            QTRY_VERIFY(pencil() && pencil()->isVisible());
            click(pencil()->mapToScene(QPointF(14, 14)).toPoint());
            QVERIFY(f().history.isRenamingHistoryRow());
            QCOMPARE(focusName(), QStringLiteral("Thread title"));
            key(Qt::Key_Backspace);
            QVERIFY(!f().sidebar.isDeletePending());
            key(Qt::Key_Escape);
            QVERIFY(!f().history.isRenamingHistoryRow());
            QCOMPARE(focusedRow(), row);
        }
    }

    void f2RenamesRowFocusedByScreenReader()
    {
        openWithThreads();
        rowItem(3)->forceActiveFocus();
        key(Qt::Key_F2);
        QVERIFY(f().history.isRenamingHistoryRow());
        QCOMPARE(focusName(), QStringLiteral("Thread title"));
        key(Qt::Key_Escape);
        QCOMPARE(focusedRow(), 3);
        // Arrow keys continue from the focused row.
        rowItem(1)->forceActiveFocus();
        key(Qt::Key_Down);
        QCOMPARE(focusedRow(), 2);
    }

    void windowDeactivationEndsRenameAndKeepsRowFocus()
    {
        openWithThreads();
        key(Qt::Key_Down);
        key(Qt::Key_Down);
        key(Qt::Key_F2);
        QCOMPARE(focusName(), QStringLiteral("Thread title"));
        QWindow other;
        other.show();
        other.requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        QVERIFY(!f().history.isRenamingHistoryRow());
        f().panel.requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(&f().panel));
        QCOMPARE(focusedRow(), 1);
    }

    void f6StaysInSidebar()
    {
        openWithThreads();
        key(Qt::Key_F6);
        QVERIFY(f().find("historySearch")->hasActiveFocus());
        key(Qt::Key_F6, Qt::ShiftModifier);
        QVERIFY(f().find("historySearch")->hasActiveFocus());
        f().find("promptInput")->forceActiveFocus();
        QTRY_VERIFY(f().find("historySearch")->hasActiveFocus());
        key(Qt::Key_Down);
        key(Qt::Key_Delete);
        QCOMPARE(focusName(), QStringLiteral("Cancel"));
        key(Qt::Key_F6);
        QCOMPARE(focusName(), QStringLiteral("Cancel"));
        f().find("promptInput")->forceActiveFocus();
        QTRY_COMPARE(focusName(), QStringLiteral("Cancel"));
    }

    void escapeClosesTopmost()
    {
        openWithThreads();
        f().overlay.setMenuOpen(true);
        QVERIFY(!f().find("historySearch")->hasActiveFocus());
        key(Qt::Key_Escape);
        QVERIFY(!f().overlay.isMenuOpen());
        QVERIFY(f().history.isHistorySidebarOpen());
        QVERIFY(f().find("historySearch")->hasActiveFocus());
        key(Qt::Key_Escape);
        QVERIFY(!f().history.isHistorySidebarOpen());
    }

    void menuBlocksPressesOnRows()
    {
        openWithThreads();
        f().overlay.setMenuOpen(true);
        click(rowCentre(2));
        QVERIFY(!f().overlay.isMenuOpen());
        QVERIFY(f().history.isHistorySidebarOpen());
    }

    void anyPressInsideRequestsKeyboard()
    {
        openWithThreads();
        f().platform.calls.clear();
        click(QPoint(150, 50)); // the header, beside its text
        QCOMPARE(f().platform.count(QStringLiteral("makeKey")), 1);
        key(Qt::Key_Down);
        key(Qt::Key_Delete);
        QTRY_COMPARE(f().find("deleteConfirmation")->opacity(), 1.0);
        click(centre("dialogCard") - QPoint(0, 40));
        QCOMPARE(f().platform.count(QStringLiteral("makeKey")), 2);
        QVERIFY(f().sidebar.isDeletePending());
    }

    void deleteDialogFitsAnyTitle_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QString>("title");
        const QString words = QStringLiteral("many words ").repeated(219).left(2399) + 'z';
        for (const QSize &size : {QSize(624, 744), QSize(320, 280), QSize(440, 420)}) {
            const QString name = QStringLiteral("%1 x %2, ").arg(size.width()).arg(size.height());
            QTest::newRow(qPrintable(name + "words")) << size << words;
            QTest::newRow(qPrintable(name + "one word")) << size << QString(2400, 'W');
            QTest::newRow(qPrintable(name + "line separators"))
                << size << 'a' + QString(2398, QChar(0x2028)) + 'z';
            QTest::newRow(qPrintable(name + "short")) << size << QStringLiteral("$& short");
        }
    }
    void deleteDialogFitsAnyTitle()
    {
        QFETCH(QSize, size);
        QFETCH(QString, title);
        f().panel.resize(size);
        openWithThreads();
        f().history.renameSession(f().history.historySessions().first().id, title);
        QTRY_COMPARE(titleAt(0), title);
        f().sidebar.requestDelete(0);
        f().panel.grabWindow();
        const QQuickItem *card = f().find("dialogCard");
        const QQuickItem *sheet = f().find("historySheet");
        const QRectF sheetRect = sheet->mapRectToScene({0, 0, sheet->width(), sheet->height()});
        const QRectF cardRect = card->mapRectToScene({0, 0, card->width(), card->height()});
        QVERIFY(sheetRect.adjusted(16, 16, -16, -16).contains(cardRect));
        QStringList shown;
        collect(card, shown);
        QVERIFY(shown.contains(QStringLiteral("Cancel")));
        const QString sentence = QStringLiteral("\" will be permanently removed from");
        const auto it = std::find_if(shown.begin(), shown.end(),
                                     [&](const QString &text) { return text.contains(sentence); });
        QVERIFY(it != shown.end());
        QVERIFY(it->startsWith(QLatin1Char('"') + title.left(1)));
        if (title.size() < 100)
            QVERIFY(it->startsWith(QLatin1Char('"') + title + QLatin1Char('"')));
        if (!title.contains(QChar(0x2028)))
            QVERIFY(!textItem(card, *it)->property("truncated").toBool());
        // Screen readers get the full title.
        QVERIFY(QAccessible::queryAccessibleInterface(f().find("deleteConfirmation"))
                    ->text(QAccessible::Description)
                    .startsWith(QLatin1Char('"') + title + QLatin1Char('"')));
    }

    void accessibleListContainsDayHeaders()
    {
        openWithThreads();
        QStringList names;
        QAccessibleInterface *list = QAccessible::queryAccessibleInterface(f().find("historyList"));
        QVERIFY(list);
        QCOMPARE(list->role(), QAccessible::List);
        QCOMPARE(list->text(QAccessible::Name), QStringLiteral("Threads"));
        for (int i = 0; i < list->childCount(); ++i) {
            QAccessibleInterface *child = list->child(i);
            if (child->state().invisible)
                continue;
            QCOMPARE(list->indexOfChild(child), i);
            QCOMPARE(child->parent()->object(), list->object());
            names << child->text(QAccessible::Name).section(QStringLiteral(", "), 0, 0);
        }
        QCOMPARE(names.size(), 9);
        QCOMPARE(names.at(0), QStringLiteral("Today"));
        QCOMPARE(names.at(2), QStringLiteral("Capacity review wording"));
        QCOMPARE(names.at(3), QStringLiteral("Yesterday"));
        QCOMPARE(names.at(5), QStringLiteral("Screenshot"));
        QCOMPARE(names.at(7), QStringLiteral("Finance wants amounts in EUR"));
    }

    void escapeCancelsRenameFirst()
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

    void focusLossSavesRename()
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

    void closingSavesRename()
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

    void deleteAsksForConfirmation()
    {
        openWithThreads();
        key(Qt::Key_Down);
        key(Qt::Key_Down);
        key(Qt::Key_Delete);
        QVERIFY(f().sidebar.isDeletePending());
        key(Qt::Key_Return);
        QVERIFY(!f().sidebar.isDeletePending());
        QCOMPARE(f().sidebar.rowCount(), 6);
        QCOMPARE(focusedRow(), 1);
        key(Qt::Key_Delete);
        key(Qt::Key_Tab);
        key(Qt::Key_Return);
        QTRY_COMPARE(f().sidebar.rowCount(), 5);
        QCOMPARE(titleAt(1), QStringLiteral("Explain this stack trace"));
        QTRY_COMPARE(focusedRow(), 1);
    }

    void escapeCancelsDeleteAndClosesSidebar()
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

    void hoverShowsRowActions()
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

    void openFailureShowsNotice()
    {
        openWithThreads();
        f().library.failure = StoreError{StoreError::Kind::File, {}, 0, "no"};
        click(rowCentre(1));
        QTRY_VERIFY(f().find("historyNotice")->isVisible());
        QCOMPARE(f().find("historyNotice")->property("text").toString(),
                 QStringLiteral("This thread can't be opened."));
        QVERIFY(f().history.isHistorySidebarOpen());
    }

    void slowLoadingShowsProgress()
    {
        f().library.holdsList = true;
        showActive();
        f().history.historyButtonClicked();
        ThreadBatch batch;
        batch.threads = {FakeThreadLibrary::summary("first", f().now)};
        batch.total = 10000;
        f().library.held->addResult(batch);
        QTRY_COMPARE(f().sidebar.rowCount(), 1);
        const QQuickItem *progress = f().find("historyProgress");
        QVERIFY(!progress->isVisible());
        QTRY_VERIFY(progress->isVisible());
        QVERIFY(texts().contains(QStringLiteral("Reading threads… 1 of 10,000")));
        f().library.held->finish();
        QTRY_VERIFY(!progress->isVisible());
    }

    void rowsHaveAccessibleNames()
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

    void listIsVirtualized()
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
        QTRY_COMPARE(f().sidebar.rowCount(), 10000);
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

    void insertedRowsKeepViewAtTop()
    {
        startLoading();
        addBatch(100, 20, 0);
        QCOMPARE(topTitle(), QStringLiteral("100"));
        addBatch(0, 3, 0);
        addBatch(300, 20, 0);
        QCOMPARE(topTitle(), QStringLiteral("0"));
        QCOMPARE(f().find("historyList")->property("currentIndex").toInt(), 0);
    }

    void insertedRowsKeepScrolledRowsInPlace()
    {
        startLoading();
        addBatch(100, 100, 0);
        QQuickItem *list = f().find("historyList");
        list->setProperty("contentY", 1234);
        f().panel.grabWindow();
        const QString title = topTitle();
        const double y = topY();
        // Insert rows above, between the rows above, and below.
        addBatch(0, 30, 0);
        addBatch(100, 5, 300);
        addBatch(900, 50, 0);
        QCOMPARE(f().sidebar.rowCount(), 185);
        QCOMPARE(topTitle(), title);
        QCOMPARE(topY(), y);
        f().library.held->finish();
        QTRY_VERIFY(!f().history.isLoading());
        QCOMPARE(topTitle(), title);
    }

    void insertedRowsKeepFocusedRow()
    {
        startLoading();
        addBatch(100, 30, 0);
        key(Qt::Key_Down);
        key(Qt::Key_Down);
        QCOMPARE(focusedRow(), 1);
        const double y = f().panel.activeFocusItem()->mapToScene({}).y();
        addBatch(0, 30, 0);
        QCOMPARE(focusedRow(), 31);
        QCOMPARE(titleAt(focusedRow()), QStringLiteral("101"));
        QCOMPARE(f().panel.activeFocusItem()->mapToScene({}).y(), y);
        key(Qt::Key_Up);
        QCOMPARE(titleAt(focusedRow()), QStringLiteral("100"));
    }

    void insertedRowsKeepTitleBeingEdited()
    {
        startLoading();
        addBatch(100, 30, 0);
        key(Qt::Key_Down);
        key(Qt::Key_F2);
        key(Qt::Key_A, Qt::ControlModifier);
        type("Wor");
        addBatch(0, 30, 0);
        type("ding");
        key(Qt::Key_Return);
        QCOMPARE(titleAt(30), QStringLiteral("Wording"));
        QCOMPARE(focusedRow(), 30);
    }

    void removedRowsKeepFocus()
    {
        openWithThreads();
        f().history.close();
        f().library.sessions.remove(f().history.historySessions().at(1).id);
        openSidebar();
        QCOMPARE(f().sidebar.rowCount(), 5);
        QVERIFY(f().find("historySearch")->hasActiveFocus());
        // Removing the focused row moves the focus to its successor.
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
        QTRY_COMPARE(f().sidebar.rowCount(), 4);
        QTRY_COMPARE(focusedRow(), 1);
        QCOMPARE(titleAt(1), next);
    }

    void reopeningScrollsToTop()
    {
        startLoading();
        addBatch(0, 100, 0);
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
    void startLoading()
    {
        f().library.holdsList = true;
        showActive();
        f().history.historyButtonClicked();
        QTRY_COMPARE(f().find("historySheet")->property("progress").toDouble(), 1.0);
    }
    /// Adds @p count threads titled with numbers from @p first on, each a minute older than the
    /// previous one and all older by @p secondsOffset seconds.
    void addBatch(int first, int count, int secondsOffset)
    {
        ThreadBatch batch;
        for (int i = first; i < first + count; ++i)
            batch.threads.append(FakeThreadLibrary::summary(
                QString::number(i), f().now.addSecs(-60 * i - secondsOffset)));
        batch.total = 1000;
        const int before = f().sidebar.rowCount();
        f().library.held->addResult(batch);
        QTRY_COMPARE(f().sidebar.rowCount(), before + count);
        f().panel.grabWindow();
    }
    /// The first fully visible row.
    QQuickItem *topRow()
    {
        QQuickItem *list = f().find("historyList");
        for (int row = 0; row < f().sidebar.rowCount(); ++row) {
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
        QCOMPARE(f().sidebar.rowCount(), 6);
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
    /// All visible texts in the sheet.
    QStringList texts()
    {
        QStringList found;
        collect(f().find("historySheet"), found);
        return found;
    }
    static const QQuickItem *textItem(const QQuickItem *item, const QString &text)
    {
        if (item->property("text").toString() == text)
            return item;
        const auto children = item->childItems();
        for (const QQuickItem *child : children) {
            if (const QQuickItem *found = textItem(child, text))
                return found;
        }
        return nullptr;
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

QUELLORA_TEST(QGuiApplication, TestHistorySidebar)
#include "test_history_sidebar.moc"
