#include "OverlayFixture.h"
#include "support/TestProgram.h"

#include <QAccessible>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

/// Accessible names, roles and states of the overlay.
class TestOverlayNames : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        initializeUi();
        // As if a screen reader were running: Qt then resets roles and states.
        QAccessible::setActive(true);
    }
    void init() { m_fixture = std::make_unique<OverlayFixture>(); }
    void cleanup() { m_fixture.reset(); }

    void controlsHaveNamesAndRoles()
    {
        f().panels.setAdminMessage(OverlayFixture::message(
            QStringLiteral("INFORMATIONAL"), QStringLiteral("News"), QStringLiteral("Body text")));
        f().panels.setStagedScreenshotData(OverlayFixture::screenshot());
        f().panels.setPromptText(QStringLiteral("question"));
        f().overlay.setUsage(96.4);
        f().overlay.setActivity(OverlayModel::Activity::Streaming);
        reportPosition(f().scrollbar, 500, 2000, 1000);
        show();
        const QMap<QString, QAccessible::Role> expected{
            {QStringLiteral("Close"), QAccessible::Button},
            {QStringLiteral("Minimize"), QAccessible::Button},
            {QStringLiteral("Zoom"), QAccessible::Button},
            {QStringLiteral("Opacity"), QAccessible::Slider},
            {QStringLiteral("Menu"), QAccessible::ButtonMenu},
            {QStringLiteral("Usage 96%"), QAccessible::Button},
            {QStringLiteral("Answering\u2026"), QAccessible::StatusBar},
            {QStringLiteral("Stop"), QAccessible::Button},
            {QStringLiteral("Scroll up"), QAccessible::Button},
            {QStringLiteral("Scroll down"), QAccessible::Button},
            {QStringLiteral("Response scroll position"), QAccessible::ScrollBar},
            {QStringLiteral("News"), QAccessible::Grouping},
            {QStringLiteral("Collapse message"), QAccessible::Button},
            {QStringLiteral("Attached screenshot"), QAccessible::Graphic},
            {QStringLiteral("Remove screenshot"), QAccessible::Button},
            {QStringLiteral("Write a message"), QAccessible::EditableText},
            {QStringLiteral("Model"), QAccessible::ComboBox},
            {QStringLiteral("Add note"), QAccessible::Button},
            {QStringLiteral("Capture without sending"), QAccessible::Button},
            {QStringLiteral("Capture and send"), QAccessible::Button},
            {QStringLiteral("Send"), QAccessible::Button},
            {QStringLiteral("Save thread"), QAccessible::CheckBox},
            {QStringLiteral("New thread"), QAccessible::Button},
        };
        for (auto it = expected.begin(); it != expected.end(); ++it) {
            QAccessibleInterface *accessible = find(it.key(), it.value());
            QVERIFY2(accessible, qPrintable(it.key()));
            QVERIFY2(!accessible->state().invisible, qPrintable(it.key()));
        }
    }

    void answerAndMenuHaveNamesAndRoles()
    {
        f().overlay.setHasAnswer(true);
        f().overlay.setPageClickable(true);
        f().overlay.setQuestionKnown(true);
        f().overlay.setVersions(1, 3);
        f().panels.setEditing(true, false);
        f().menu.setUsage(250000, 1000000, false);
        f().overlay.setMenuOpen(true);
        show();
        QAccessibleInterface *clicks =
            find(QStringLiteral("Clicks reach the answer"), QAccessible::CheckBox);
        QVERIFY(clicks && clicks->state().checkable && !clicks->state().checked);
        f().overlay.setTakesClicks(true);
        QVERIFY(clicks->state().checked);
        for (const char *name : {"Copy answer", "Retry", "Edit question", "Earlier answer",
                                 "Later answer", "Cancel editing"})
            QVERIFY2(find(QLatin1String(name), QAccessible::Button), name);
        QVERIFY(find(QStringLiteral("Version 2 of 3"), QAccessible::StatusBar));
        QVERIFY(find(QStringLiteral("Account"), QAccessible::MenuItem));
        QVERIFY(find(QStringLiteral("Upgrade"), QAccessible::MenuItem));
        QVERIFY(find(QStringLiteral("Sign Out"), QAccessible::MenuItem));
        QAccessibleInterface *usage = find(QStringLiteral("Usage"), QAccessible::Grouping);
        QVERIFY(usage);
        QCOMPARE(usage->text(QAccessible::Description),
                 QStringLiteral("2K of 10K credits, 25% used"));
        QVERIFY(find(QStringLiteral("Menu"), QAccessible::ButtonMenu)->state().expanded);
    }

    void noticeIsText()
    {
        show();
        QVERIFY(!find(QStringLiteral("Nobody answers"), QAccessible::StaticText));
        f().overlay.showNotice(QStringLiteral("Nobody answers"));
        QAccessibleInterface *notice =
            find(QStringLiteral("Nobody answers"), QAccessible::StaticText);
        QVERIFY(notice && !notice->state().invisible);
    }

    void announcementsAreNotifications()
    {
        show();
        QStringList texts;
        for (int i = 0; i < 20; ++i) {
            texts << QStringLiteral("Sentence %1.").arg(i);
            Q_EMIT f().overlay.announced(texts.last());
            QVERIFY(find(texts.last(), QAccessible::Notification));
        }
        // A slow screen reader still finds the latest ones, as they were.
        for (const QString &text : texts.last(8)) {
            const QAccessibleInterface *item = find(text, QAccessible::Notification);
            QVERIFY(item && !item->state().focusable);
        }
        QVERIFY(!find(texts.first(), QAccessible::Notification));
    }

    void stripExposesSaveState()
    {
        using SaveState = OverlayModel::SaveState;
        for (const QSize &size : {QSize(624, 744), QSize(320, 280)}) {
            f().panel.resize(size);
            f().overlay.setTitle(QStringLiteral("A thread"));
            f().overlay.setThreadCovered(true);
            f().overlay.setSaveState(SaveState::Saved);
            show();
            QVERIFY(find(QStringLiteral("Back to thread"), QAccessible::Button));
            QVERIFY(!find(QStringLiteral("Thread saved"), QAccessible::Graphic)->state().invisible);
            f().overlay.setSaveState(SaveState::Saving);
            QVERIFY(find(QStringLiteral("Saving thread\u2026"), QAccessible::Graphic));
            f().overlay.setSaveState(SaveState::Failed, QStringLiteral("The disk is full"));
            QAccessibleInterface *failed = find(QStringLiteral("Not saved"), QAccessible::Button);
            QVERIFY(failed && !failed->state().invisible);
            QCOMPARE(failed->text(QAccessible::Description),
                     QStringLiteral("Not saved: The disk is full. Press to try again."));
            m_fixture = std::make_unique<OverlayFixture>();
        }
    }

    void compactControlsHaveSameNames()
    {
        f().panel.resize(320, 280);
        f().stored.setKeepAIHistoryEnabled(true);
        show();
        QAccessibleInterface *save = find(QStringLiteral("Save thread"), QAccessible::CheckBox);
        QVERIFY(save);
        QVERIFY(save->state().checkable && save->state().checked);
        f().stored.setKeepAIHistoryEnabled(false);
        QVERIFY(!save->state().checked);
        QVERIFY(find(QStringLiteral("New thread"), QAccessible::Button));
        f().panels.setAdminMessage(OverlayFixture::blocking());
        QVERIFY(find(QStringLiteral("Upgrade Now"), QAccessible::Button));
    }

    void modelPickerExposesSelection()
    {
        show();
        QAccessibleInterface *picker = find(QStringLiteral("Model"), QAccessible::ComboBox);
        QVERIFY(picker);
        QCOMPARE(picker->text(QAccessible::Value), QStringLiteral("Balanced"));
        QCOMPARE(picker->text(QAccessible::Description), QStringLiteral("Balanced"));
        QVERIFY(picker->state().collapsed);
        press(QStringLiteral("Model"), QAccessible::ComboBox);
        QVERIFY(picker->state().expanded);
    }

    void blockingCardAlertsOnce()
    {
        show();
        QSignalSpy announced(&f().panel, &NonFocusPanel::blockingMessageAnnounced);
        f().panels.setAdminMessage(OverlayFixture::message(
            QStringLiteral("INFORMATIONAL"), QStringLiteral("News"), QStringLiteral("Body")));
        QCOMPARE(announced.size(), 0);
        auto message = OverlayFixture::blocking();
        f().panels.setAdminMessage(message);
        QCOMPARE(announced.size(), 1);
        QCOMPARE(announced.first().first().value<QQuickItem *>(), f().find("serviceCard"));
        message.bodyMarkdown = QStringLiteral("Four minutes left");
        f().panels.setAdminMessage(message); // the same message with a new countdown
        QCOMPARE(announced.size(), 1);
        QAccessibleInterface *card =
            find(QStringLiteral("Credit Limit Reached"), QAccessible::AlertMessage);
        QVERIFY(card);
        QCOMPARE(card->text(QAccessible::Description), QStringLiteral("Four minutes left"));
    }

    void accessibleActionsWork()
    {
        f().panels.setPromptText(QStringLiteral("question"));
        show();
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        QSignalSpy closed(&f().overlay, &OverlayModel::closeRequested);
        QSignalSpy menu(&f().overlay, &OverlayModel::menuToggled);
        press(QStringLiteral("Send"), QAccessible::Button);
        press(QStringLiteral("Close"), QAccessible::Button);
        press(QStringLiteral("Menu"), QAccessible::ButtonMenu);
        QAccessibleInterface *save = find(QStringLiteral("Save thread"), QAccessible::CheckBox);
        save->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
        QCOMPARE(sent.size(), 1);
        QCOMPARE(closed.size(), 1);
        QCOMPARE(menu.size(), 1);
        QVERIFY(f().stored.keepAIHistoryEnabled());
        QVERIFY(save->state().checked);
    }

    void blockedControlsExposeReason()
    {
        f().panels.setAdminMessage(OverlayFixture::blocking());
        f().panels.setBlocked(true);
        show();
        QAccessibleInterface *send = find(QStringLiteral("Send"), QAccessible::Button);
        QVERIFY(!send->state().disabled);
        QCOMPARE(send->text(QAccessible::Description),
                 QStringLiteral("Blocked: Credit Limit Reached"));
        QVERIFY(find(QStringLiteral("Add note"), QAccessible::Button)->state().disabled);
        f().panels.setBlocked(false);
        QVERIFY(find(QStringLiteral("Send"), QAccessible::Button)->state().disabled);
    }

    void promptIsReadableAndEditable()
    {
        f().panels.setPromptText(QStringLiteral("before"));
        show();
        QAccessibleInterface *prompt =
            find(QStringLiteral("Write a message"), QAccessible::EditableText);
        QVERIFY(prompt->state().multiLine);
        QCOMPARE(prompt->text(QAccessible::Value), QStringLiteral("before"));
        prompt->setText(QAccessible::Value, QStringLiteral("after"));
        QCOMPARE(f().panels.promptText(), QStringLiteral("after"));
    }

private:
    OverlayFixture &f() { return *m_fixture; }
    void show()
    {
        f().show();
        QVERIFY(QTest::qWaitForWindowExposed(&f().panel));
        f().panel.grabWindow();
    }
    /// A visible element with this name and role, anywhere in the window.
    QAccessibleInterface *find(const QString &name, QAccessible::Role role)
    {
        return findBelow(QAccessible::queryAccessibleInterface(&f().panel), name, role);
    }
    static QAccessibleInterface *findBelow(QAccessibleInterface *accessible, const QString &name,
                                           QAccessible::Role role)
    {
        if (!accessible ||
            (accessible->role() == role && accessible->text(QAccessible::Name) == name &&
             !accessible->state().invisible))
            return accessible;
        for (int i = 0; i < accessible->childCount(); ++i) {
            if (QAccessibleInterface *found = findBelow(accessible->child(i), name, role))
                return found;
        }
        return nullptr;
    }
    void press(const QString &name, QAccessible::Role role)
    {
        QAccessibleInterface *accessible = find(name, role);
        QVERIFY2(accessible && accessible->actionInterface(), qPrintable(name));
        accessible->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    }

    std::unique_ptr<OverlayFixture> m_fixture;
};

QUELLORA_TEST(QGuiApplication, TestOverlayNames)
#include "test_overlay_names.moc"
