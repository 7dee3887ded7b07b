#include "OverlayDriver.h"
#include "base/PromptPresets.h"
#include "support/TestProgram.h"

#include <QClipboard>
#include <QGuiApplication>

using namespace quellora;

/// The user's prompts in the real panel: their menu, the list that a slash opens, and the settings.
class TestPrompts : public OverlayDriver
{
    Q_OBJECT
private:
    /// Shows the panel with the built-in prompts.
    void open()
    {
        m_presets = std::make_unique<PromptPresets>(f().defaults);
        const auto list = [this] { f().panels.prompts()->setPrompts(m_presets->list()); };
        connect(m_presets.get(), &PromptPresets::changed, &f().panels, list);
        list();
        f().settings.setPrompts(*m_presets);
        showActive();
    }
    void openSettings()
    {
        open();
        f().connectSettings();
        f().settings.setOpen(true);
        QTRY_VERIFY(f().find("promptButton-0"));
    }
    void key(int key, Qt::KeyboardModifiers modifiers = {})
    {
        QTest::keyClick(&f().panel, Qt::Key(key), modifiers);
    }
    bool isListOpen() { return f().find("promptCard")->isVisible(); }
    int listed() { return f().panels.prompts()->count(); }
    QString typed() { return text("promptInput"); }
    QStringList names() const
    {
        QStringList names;
        for (const PromptPreset &preset : m_presets->list())
            names << preset.name;
        return names;
    }
    QAccessibleInterface *accessible(const char *name)
    {
        return QAccessible::queryAccessibleInterface(f().find(name));
    }
    /// Scrolls a control of the settings into view and clicks it.
    void clickInSettings(const char *name)
    {
        f().panel.grabWindow(); // updates the layout
        QMetaObject::invokeMethod(f().find("settingsSheet"), "reveal",
                                  Q_ARG(QVariant, QVariant::fromValue(f().find(name))));
        QTest::mouseMove(&f().panel, centre(name));
        click(name);
    }
    void fill(const char *field, const QString &text)
    {
        f().find(field)->setProperty("text", text);
    }
    QString explainText() const { return PromptPresets::builtIn().first().text; }

    std::unique_ptr<PromptPresets> m_presets;

private Q_SLOTS:
    void withoutPromptsThereIsNoButton()
    {
        showActive();
        QVERIFY(!f().find("prompts")->isVisible());
        type("/");
        QVERIFY(!isListOpen());
    }

    void theMenuInsertsWithTheMouse()
    {
        open();
        QVERIFY(f().find("prompts")->isVisible());
        QCOMPARE(accessible("prompts")->text(QAccessible::Name), QString("Prompts"));
        click("prompts");
        QVERIFY(isListOpen());
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0 + 3 * 36 + 8 + 8);
        const QPoint first = f().find("promptList")->mapToScene({40, 18}).toPoint();
        QTest::mouseClick(&f().panel, Qt::LeftButton, {}, first);
        QVERIFY(!isListOpen());
        QCOMPARE(typed(), explainText());
        QCOMPARE(f().stored.userPrompt(), explainText());
        QVERIFY(f().find("promptInput")->hasActiveFocus());
        // Nothing is sent before the user says so.
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        QCOMPARE(sent.size(), 0);
        key(Qt::Key_Return);
        QCOMPARE(sent.size(), 1);
    }

    void theMenuInsertsAtTheCursor()
    {
        open();
        type("before after");
        f().find("promptInput")->setProperty("cursorPosition", 7);
        click("prompts");
        key(Qt::Key_Down);
        key(Qt::Key_Down);
        key(Qt::Key_Return);
        QCOMPARE(typed(), "before " + PromptPresets::builtIn().at(2).text + "after");
    }

    void theMenuIsDrivenByTheKeyboard()
    {
        open();
        f().find("prompts")->forceActiveFocus(Qt::TabFocusReason);
        key(Qt::Key_Return);
        QVERIFY(f().find("promptList")->hasActiveFocus());
        key(Qt::Key_End);
        key(Qt::Key_Home);
        key(Qt::Key_Down);
        key(Qt::Key_Escape);
        QVERIFY(!isListOpen());
        QVERIFY(f().find("prompts")->hasActiveFocus());
        QCOMPARE(typed(), QString());
        key(Qt::Key_Return);
        key(Qt::Key_Tab);
        QVERIFY(!isListOpen());
        key(Qt::Key_Return);
        key(Qt::Key_Space);
        QCOMPARE(typed(), explainText());
    }

    void oneListIsOpenAtATime()
    {
        open();
        click("modelPicker");
        QVERIFY(f().find("modelCard")->isVisible());
        click("prompts");
        QVERIFY(isListOpen());
        QVERIFY(!f().find("modelCard")->isVisible());
        click("modelPicker");
        QVERIFY(!isListOpen());
        QVERIFY(f().find("modelCard")->isVisible());
        click("modelPicker");
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0);
    }

    void aSlashListsThePrompts()
    {
        open();
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        type("/");
        QVERIFY(isListOpen());
        QCOMPARE(listed(), 3);
        QVERIFY(f().find("promptInput")->hasActiveFocus());
        type("f");
        QCOMPARE(listed(), 1);
        QTRY_COMPARE(accessible("promptInput")->text(QAccessible::Description),
                     QString("Return inserts the prompt “Fix the error”"));
        key(Qt::Key_Return);
        QVERIFY(!isListOpen());
        QCOMPARE(typed(), PromptPresets::builtIn().at(1).text);
        QCOMPARE(sent.size(), 0);
        QCOMPARE(accessible("promptInput")->text(QAccessible::Description), QString());
        key(Qt::Key_Return);
        QCOMPARE(sent.size(), 1);
    }

    void arrowsChooseFromTheList()
    {
        open();
        type("/");
        key(Qt::Key_Down);
        key(Qt::Key_Down);
        key(Qt::Key_Down);
        key(Qt::Key_Up);
        key(Qt::Key_Return);
        QCOMPARE(typed(), PromptPresets::builtIn().at(1).text);
    }

    void returnChoosesAtOnceAfterTyping()
    {
        open();
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        // No frame is drawn between the keys.
        type("/tr");
        key(Qt::Key_Return);
        QCOMPARE(sent.size(), 0);
        QCOMPARE(typed(), PromptPresets::builtIn().at(2).text);
    }

    void aPathIsLeftAlone_data()
    {
        QTest::addColumn<QString>("prompt");
        QTest::newRow("path") << "/etc/hosts";
        QTest::newRow("folder") << "/tmp";
        QTest::newRow("words") << "/explain why this fails";
        QTest::newRow("slash in the middle") << "a/b /e";
        QTest::newRow("two slashes") << "//e";
    }
    void aPathIsLeftAlone()
    {
        QFETCH(QString, prompt);
        open();
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        type(prompt);
        QVERIFY(!isListOpen());
        key(Qt::Key_Return);
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent.first().first().toString(), prompt);
    }

    void escapeLeavesTheSlashToTheText()
    {
        open();
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        type("/e");
        QVERIFY(isListOpen());
        key(Qt::Key_Escape);
        QVERIFY(!isListOpen());
        QVERIFY(f().find("promptInput")->hasActiveFocus());
        QCOMPARE(typed(), QString("/e"));
        type("x");
        QVERIFY(!isListOpen());
        key(Qt::Key_Return);
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent.first().first().toString(), QString("/ex"));
        // A new text asks again.
        key(Qt::Key_A, Qt::ControlModifier);
        key(Qt::Key_Backspace);
        type("/");
        QVERIFY(isListOpen());
    }

    void shiftReturnAddsALine()
    {
        open();
        type("/e");
        key(Qt::Key_Return, Qt::ShiftModifier);
        QCOMPARE(typed(), QString("/e\n"));
        QVERIFY(!isListOpen());
    }

    void takingTheSlashAwayClosesTheList()
    {
        open();
        type("/");
        key(Qt::Key_Backspace);
        QVERIFY(!isListOpen());
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0);
    }

    void leavingTheBoxClosesTheList()
    {
        open();
        type("/e");
        key(Qt::Key_Tab);
        QVERIFY(!isListOpen());
        QCOMPARE(typed(), QString("/e"));
    }

    void aStoredSlashOpensNothing()
    {
        f().stored.setUserPrompt(QStringLiteral("/e"));
        open();
        QVERIFY(!isListOpen());
        f().stored.setUserPrompt(QStringLiteral("/"));
        QVERIFY(!isListOpen());
        QCOMPARE(typed(), QString("/"));
    }

    void aPromptThatBeginsWithASlashOpensNothing()
    {
        open();
        QVERIFY(m_presets->change("explain", "Explain", "/e"));
        type("/ex");
        key(Qt::Key_Return);
        QCOMPARE(typed(), QString("/e"));
        QVERIFY(!isListOpen());
    }

    void insertingCanBeUndone()
    {
        open();
        type("/ex");
        key(Qt::Key_Return);
        key(Qt::Key_Z, Qt::ControlModifier);
        key(Qt::Key_Z, Qt::ControlModifier);
        QCOMPARE(typed(), QString("/ex"));
    }

    void arrowsStayTheTextsWithoutAList()
    {
        open();
        type("one");
        key(Qt::Key_Return, Qt::ShiftModifier);
        type("two");
        key(Qt::Key_Up);
        type("x");
        QCOMPARE(typed(), QString("onex\ntwo"));
    }

    void theButtonFitsTheSmallestWindow()
    {
        open();
        f().panel.resize(320, 280);
        QTRY_COMPARE(f().overlay.bottomPanelsHeight(), 76.0);
        QStringList order{
            "modelPicker",      "prompts",       "addNote",        "compactSaveThread",
            "compactNewThread", "captureNoSend", "captureAndSend", "send"};
        double end = 0;
        for (const QString &name : order) {
            const QQuickItem *item = f().find(qPrintable(name));
            QVERIFY2(item->isVisible() && item->width() >= 28, qPrintable(name));
            QVERIFY2(item->x() >= end, qPrintable(name));
            end = item->x() + item->width();
        }
        QVERIFY(end <= f().find("promptBox")->width());
    }

    void theHotkeyIsShown()
    {
        open();
        f().panels.setHotkeys({{"prompt.explain", "Ctrl+Alt+E"}});
        click("prompts");
        QAccessibleInterface *list = accessible("promptList");
        QTRY_VERIFY(list->childCount() > 0);
        bool isFound = false;
        for (int i = 0; i < list->childCount(); ++i) {
            QAccessibleInterface *row = list->child(i);
            isFound |= row->text(QAccessible::Name) == "Explain" &&
                       row->text(QAccessible::Description).endsWith(", Ctrl+Alt+E");
        }
        QVERIFY(isFound);
    }

    void settingsEditAPrompt()
    {
        openSettings();
        QCOMPARE(accessible("promptButton-0")->text(QAccessible::Name), QString("Prompt Explain"));
        clickInSettings("promptButton-0");
        QTRY_VERIFY(f().find("promptName"));
        QVERIFY(f().find("promptName")->hasActiveFocus());
        key(Qt::Key_A, Qt::ControlModifier);
        type("Why");
        key(Qt::Key_Return);
        QVERIFY(f().find("promptText")->hasActiveFocus());
        key(Qt::Key_A, Qt::ControlModifier);
        type("Say why.");
        key(Qt::Key_Return, Qt::ControlModifier);
        QCOMPARE(m_presets->find("explain"), (PromptPreset{"explain", "Why", "Say why."}));
        QTRY_VERIFY(f().find("promptButton-0")->hasActiveFocus());
        QCOMPARE(names(), (QStringList{"Why", "Fix the error", "Translate"}));
    }

    void aLongTextScrollsAndIsInLineWithTheName()
    {
        openSettings();
        clickInSettings("promptButton-0");
        QTRY_VERIFY(f().find("promptText"));
        f().panel.grabWindow();
        const QQuickItem *field = f().find("promptText");
        const auto left = [](const QQuickItem *item) {
            return item->mapToScene({item->property("leftPadding").toReal(), 0}).x();
        };
        QCOMPARE(left(field), left(f().find("promptName")));
        // The row ends below the buttons.
        const QQuickItem *save = f().find("promptSave");
        const double end = save->mapToItem(f().find("prompt-0"), QPointF(0, save->height())).y();
        QCOMPARE(f().find("prompt-0")->height(), end + 12);
        f().find("promptText")->forceActiveFocus();
        key(Qt::Key_End, Qt::ControlModifier);
        for (int line = 0; line < 9; ++line)
            key(Qt::Key_Return);
        const QQuickItem *scroller = field->parentItem()->parentItem();
        const QRectF cursor = field->property("cursorRectangle").toRectF();
        QVERIFY(cursor.bottom() > scroller->height());
        const double shown = field->mapToItem(scroller, cursor.bottomLeft()).y();
        QVERIFY(shown > 0 && shown <= scroller->height() + 0.5);
    }

    void settingsExplainWhatIsWrong()
    {
        openSettings();
        clickInSettings("addPrompt");
        QTRY_VERIFY(f().find("promptName"));
        clickInSettings("promptSave");
        QCOMPARE(text("promptError"), QString("The prompt needs a name."));
        fill("promptName", "Sum up");
        fill("promptText", "Sum it up.");
        clickInSettings("promptSave");
        QCOMPARE(names().last(), QString("Sum up"));
        QVERIFY(!f().find("promptName"));
        QVERIFY(f().find("promptButton-3"));
    }

    void escapeEndsEditingFirst()
    {
        openSettings();
        clickInSettings("addPrompt");
        QTRY_VERIFY(f().find("promptName"));
        key(Qt::Key_Escape);
        QVERIFY(f().settings.isOpen());
        QTRY_VERIFY(!f().find("promptName"));
        QCOMPARE(names().size(), 3);
        QTRY_VERIFY(f().find("addPrompt")->hasActiveFocus());
        key(Qt::Key_Escape);
        QVERIFY(!f().settings.isOpen());
    }

    void settingsReorderAndDelete()
    {
        openSettings();
        f().find("promptButton-0")->forceActiveFocus(Qt::TabFocusReason);
        key(Qt::Key_Down, Qt::AltModifier);
        QCOMPARE(names(), (QStringList{"Fix the error", "Explain", "Translate"}));
        // The moved row keeps the focus.
        QCOMPARE(f().panel.activeFocusItem()->objectName(), QString("promptButton-1"));
        key(Qt::Key_Up, Qt::AltModifier);
        QCOMPARE(names().first(), QString("Explain"));
        key(Qt::Key_Delete);
        QTRY_VERIFY(f().find("promptRemove-0")->isVisible());
        // The safe choice has the focus.
        QVERIFY(f().find("promptKeep-0")->hasActiveFocus());
        key(Qt::Key_Return);
        QCOMPARE(names().size(), 3);
        QTRY_VERIFY(f().find("promptButton-0")->hasActiveFocus());
        key(Qt::Key_Delete);
        clickInSettings("promptRemove-0");
        QCOMPARE(names(), (QStringList{"Fix the error", "Translate"}));
    }

    void settingsReorderWithTheMouse()
    {
        openSettings();
        f().panel.grabWindow();
        QVERIFY(!f().find("promptDown-0")->isVisible());
        clickInSettings("promptButton-0");
        key(Qt::Key_Escape);
        QTRY_VERIFY(f().find("promptDown-0")->isVisible());
        QVERIFY(!f().find("promptUp-0")->isEnabled());
        clickInSettings("promptDown-0");
        QCOMPARE(names(), (QStringList{"Fix the error", "Explain", "Translate"}));
    }

    void closingTheSettingsDropsTheEdit()
    {
        openSettings();
        clickInSettings("promptButton-0");
        QTRY_VERIFY(f().find("promptName"));
        fill("promptName", "Changed");
        f().settings.setOpen(false);
        QCOMPARE(names().first(), QString("Explain"));
        QVERIFY(!f().settings.promptRows()->isBusy());
    }
};

QUELLORA_TEST(QGuiApplication, TestPrompts)
#include "test_prompts.moc"
