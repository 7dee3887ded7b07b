#include "fakes/FakeThreadLibrary.h"
#include "overlay/ControllerFixture.h"
#include "support/TestProgram.h"

#include <QClipboard>
#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>

using namespace quellora;

namespace {

using Choice = HamburgerMenuModel::ExportChoice;

struct Fixture : ControllerFixture
{
    Fixture() { stored = library.add("What is stored?", QDateTime::currentDateTimeUtc()); }

    HamburgerMenuModel &menu() { return overlay->menuModel(); }
    OverlayModel &model() { return overlay->overlayModel(); }
    /// Opens the choices for the stored thread as its row in History does.
    void showStored()
    {
        overlay->history()->historyButtonClicked();
        QTRY_COMPARE(overlay->history()->model().rowCount(), 1);
        overlay->history()->model().requestExport(0);
    }
    /// A thread on show that is not stored.
    void showThread() { overlay->threads().addNote(QStringLiteral("What is on show?")); }
    QString path(const char *name) const { return dir.filePath(QLatin1StringView(name)); }
    static QByteArray contentOf(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
    }

    CaptureSession stored;
    QTemporaryDir dir;
};

} // namespace

/// Exporting and copying from the panel.
class TestOverlayExport : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void rowNeedsAThread()
    {
        Fixture f;
        QVERIFY(!f.menu().exportAvailable());
        // Nothing happens without one.
        Q_EMIT f.menu().exportRequested();
        QVERIFY(!f.menu().isExportShown());
        f.showThread();
        QVERIFY(f.menu().exportAvailable());
        Q_EMIT f.menu().exportRequested();
        QVERIFY(f.menu().isExportShown());
        QCOMPARE(f.menu().exportTitle(), QStringLiteral("What is on show?"));
        QVERIFY(!f.menu().answerAvailable());
        f.overlay->startNewThread();
        QVERIFY(!f.menu().exportAvailable());
    }

    void menuOpensOnItsFirstPage()
    {
        Fixture f;
        f.showThread();
        f.overlay->toggleHamburgerMenu();
        Q_EMIT f.menu().exportRequested();
        QVERIFY(f.menu().isExportShown());
        f.overlay->toggleHamburgerMenu();
        f.overlay->toggleHamburgerMenu();
        QVERIFY(f.model().isMenuOpen());
        QVERIFY(!f.menu().isExportShown());
    }

    void rowOfHistoryOpensTheChoices()
    {
        Fixture f;
        f.showStored();
        QVERIFY(f.model().isMenuOpen());
        QVERIFY(f.menu().isExportShown());
        QCOMPARE(f.menu().exportTitle(), QStringLiteral("What is stored?"));
        QVERIFY(!f.menu().answerAvailable());
        f.overlay->history()->model().requestExport(7);
        f.overlay->history()->model().requestExport(-1);
        QCOMPARE(f.menu().exportTitle(), QStringLiteral("What is stored?"));
    }

    void exportsAStoredThread()
    {
        Fixture f;
        f.showStored();
        Q_EMIT f.menu().exportChosen(Choice::MarkdownFile);
        QTRY_VERIFY(f.chooser.answer);
        // The outcome is shown in the strip, which History covers.
        QVERIFY(!f.overlay->history()->model().isOpen());
        QCOMPARE(f.chooser.name, QStringLiteral("What is stored.md"));
        QCOMPARE(f.chooser.askedFormat, ExportFormat::Markdown);
        f.chooser.answer({f.path("x.md"), false});
        QCOMPARE(f.model().notice(), QStringLiteral("Exporting \"x.md\"…"));
        QVERIFY(!f.model().isNoticeWarning());
        QTRY_COMPARE(f.model().notice(), QStringLiteral("Exported \"x.md\""));
        QVERIFY(f.contentOf(f.path("x.md")).startsWith("# What is stored?\n"));
        QVERIFY(f.log.lines.contains(
            QStringLiteral("[OverlayWindowController] Thread exported as Markdown")));
    }

    void exportsWhatIsOnShow()
    {
        Fixture f;
        f.showThread();
        Q_EMIT f.menu().exportRequested();
        Q_EMIT f.menu().exportChosen(Choice::MarkdownFile);
        QVERIFY(f.chooser.answer);
        f.chooser.answer({f.path("x.md"), false});
        QTRY_COMPARE(f.model().notice(), QStringLiteral("Exported \"x.md\""));
        QVERIFY(f.contentOf(f.path("x.md")).contains("What is on show?"));
        QVERIFY(!f.library.calls.contains(QStringLiteral("load")));
    }

    void choicesHaveTheirFormats()
    {
        Fixture f;
        f.showThread();
        Q_EMIT f.menu().exportRequested();
        Q_EMIT f.menu().exportChosen(Choice::WebPage);
        QCOMPARE(f.chooser.askedFormat, ExportFormat::Html);
        QCOMPARE(f.chooser.name, QStringLiteral("What is on show.html"));
        Q_EMIT f.menu().exportChosen(Choice::Pdf);
        QCOMPARE(f.chooser.askedFormat, ExportFormat::Pdf);
    }

    void cancellingDoesNothing()
    {
        Fixture f;
        f.showThread();
        Q_EMIT f.menu().exportRequested();
        Q_EMIT f.menu().exportChosen(Choice::Pdf);
        f.chooser.answer({});
        QCOMPARE(f.model().notice(), QString());
    }

    void replacesOnlyWithConsent()
    {
        Fixture f;
        QFile file(f.path("x.md"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("mine");
        file.close();
        f.showThread();
        Q_EMIT f.menu().exportRequested();
        Q_EMIT f.menu().exportChosen(Choice::MarkdownFile);
        f.chooser.answer({f.path("x.md"), false});
        QTRY_COMPARE(f.model().notice(), QStringLiteral("\"x.md\" is there already"));
        QVERIFY(f.model().isNoticeWarning());
        QCOMPARE(f.contentOf(f.path("x.md")), QByteArray("mine"));
        Q_EMIT f.menu().exportChosen(Choice::MarkdownFile);
        f.chooser.answer({f.path("x.md"), true});
        QTRY_COMPARE(f.model().notice(), QStringLiteral("Exported \"x.md\""));
        QVERIFY(f.contentOf(f.path("x.md")) != "mine");
    }

    void failuresAreTold()
    {
        Fixture f;
        f.showThread();
        Q_EMIT f.menu().exportRequested();
        Q_EMIT f.menu().exportChosen(Choice::MarkdownFile);
        f.chooser.answer({f.path("gone/x.md"), false});
        QTRY_VERIFY(f.model().notice().startsWith(QStringLiteral("\"x.md\" can't be written: ")));
        QVERIFY(f.model().isNoticeWarning());

        f.showStored();
        f.library.failure = StoreError{StoreError::Kind::File, f.stored.id, 0,
                                       QStringLiteral("/secret: no"), QStringLiteral("no")};
        Q_EMIT f.menu().exportChosen(Choice::CopyMarkdown);
        QTRY_COMPARE(f.model().notice(), QStringLiteral("The thread can't be read: no"));
    }

    void copiesMarkdown()
    {
        Fixture f;
        f.showThread();
        Q_EMIT f.menu().exportRequested();
        Q_EMIT f.menu().exportChosen(Choice::CopyMarkdown);
        QCOMPARE(f.model().notice(), QStringLiteral("Thread copied as Markdown"));
        QVERIFY(
            QGuiApplication::clipboard()->text().contains(QStringLiteral("> What is on show?")));
    }

    void threadWithoutAnswersHasNoneToCopy()
    {
        Fixture f;
        f.showThread();
        QGuiApplication::clipboard()->setText(QStringLiteral("before"));
        Q_EMIT f.menu().exportRequested();
        Q_EMIT f.menu().exportChosen(Choice::CopyAnswer);
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("before"));
        QCOMPARE(f.model().notice(), QString());
    }

    void panelMakesRoomWhereItCoversDialogs()
    {
        Fixture f;
        f.overlay->show();
        f.showThread();
        Q_EMIT f.menu().exportRequested();
        Q_EMIT f.menu().exportChosen(Choice::Pdf);
        QVERIFY(f.overlay->isVisible());
        f.chooser.answer({});

        f.platform.panel.coversOthers = true;
        Q_EMIT f.menu().exportChosen(Choice::Pdf);
        QVERIFY(!f.overlay->isVisible());
        f.chooser.answer({});
        QVERIFY(f.overlay->isVisible());

        // What the user does meanwhile stands.
        Q_EMIT f.menu().exportChosen(Choice::Pdf);
        f.overlay->show();
        f.overlay->toggleVisibility();
        f.overlay->show();
        f.chooser.answer({});
        QVERIFY(f.overlay->isVisible());
        f.overlay->toggleVisibility();
        Q_EMIT f.menu().exportChosen(Choice::Pdf);
        f.chooser.answer({});
        QVERIFY(!f.overlay->isVisible());
    }

    void dialogGoesWithThePanel()
    {
        Fixture f;
        f.showThread();
        Q_EMIT f.menu().exportRequested();
        Q_EMIT f.menu().exportChosen(Choice::Pdf);
        f.overlay.reset();
        QCOMPARE(f.chooser.cancels, 1);
    }
};

QUELLORA_TEST(QGuiApplication, TestOverlayExport)
#include "test_overlay_export.moc"
