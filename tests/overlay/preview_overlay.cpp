/// Shows the overlay in a chosen state with fake collaborators, for inspection or screenshots:
///   preview_overlay --state streaming --size 624x744 --theme light --alpha 0.35 --out panel.png
#include "OverlayFixture.h"

#include <QCommandLineParser>
#include <QGuiApplication>
#include <QTimer>

#include <cstdio>

using namespace quellora;

namespace {

const QString question = QStringLiteral(
    "Why does the nightly export skip the last rows for two regions? Give me the fixed window "
    "function.");

void applyHotkeyState(OverlayFixture &f, const QString &state)
{
    constexpr Qt::KeyboardModifiers threeModifiers =
        Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
    f.hotkeys.claim(threeModifiers | Qt::Key_K);
    f.rebinding.beginCapturingHotkey(HotkeyAction::Capture);
    if (state == QLatin1String("duplicate"))
        f.keyMonitor.press(threeModifiers, QStringLiteral("x"));
    else if (state == QLatin1String("conflict"))
        f.keyMonitor.press(Qt::MetaModifier | Qt::ShiftModifier, QStringLiteral("3"));
    else if (state == QLatin1String("rollback"))
        f.keyMonitor.press(threeModifiers, QStringLiteral("k"));
}

/// Applies a state of the desktop's shortcuts.
void applyDesktopKeys(OverlayFixture &f, const QString &state)
{
    f.settings.setOpen(true);
    if (state == QLatin1String("desktop-keys")) {
        f.shortcuts.answer(Capability::applied(),
                           {{QStringLiteral("capture"), QStringLiteral("Ctrl+Alt+Meta+C")},
                            {QStringLiteral("clear"), QStringLiteral("Press Control+Alt+Super+x")},
                            {QStringLiteral("new-thread"), QStringLiteral("Meta+N")}});
        return;
    }
    f.manager.suspendAll();
    if (state == QLatin1String("no-keys")) {
        for (const HotkeyActionInfo &row : hotkeyActions) {
            if (const auto combo = HotkeyCombo::parse(row.defaultCombo))
                f.hotkeys.claim(*combo, {});
        }
    }
    f.manager.resume({});
    f.shortcuts.answer(
        Capability::unsupported(QStringLiteral("This desktop does not assign keys to programs.")));
}

/// Applies one state of --state, whose states are joined with "+". Returns false if it is unknown.
bool applyState(OverlayFixture &f, const QString &state)
{
    using Activity = OverlayModel::Activity;
    const auto setPrompt = [&f](const QString &text) { f.panels.setPromptText(text); };
    if (state == QLatin1String("idle")) {
    } else if (state == QLatin1String("first")) {
        f.defaults.remove("hasLaunchedBefore");
    } else if (state == QLatin1String("builtin")) {
        f.defaults.remove("userPrompt");
    } else if (state == QLatin1String("thread")) {
        f.overlay.setTitle(question);
        f.overlay.setHasAnswer(true);
        reportPosition(f.scrollbar, 0, 900, 532);
    } else if (state == QLatin1String("saved")) {
        f.overlay.setSaveState(OverlayModel::SaveState::Saved);
        f.stored.setKeepAIHistoryEnabled(true);
    } else if (state == QLatin1String("saving")) {
        f.overlay.setSaveState(OverlayModel::SaveState::Saving);
    } else if (state == QLatin1String("unsaved")) {
        f.overlay.setSaveState(OverlayModel::SaveState::Failed,
                               QStringLiteral("No space left on device"));
    } else if (state == QLatin1String("covered")) {
        f.overlay.setThreadCovered(true);
    } else if (state == QLatin1String("waiting")) {
        f.overlay.setActivity(Activity::Waiting);
        setPrompt(question);
    } else if (state == QLatin1String("streaming")) {
        f.overlay.setActivity(Activity::Streaming);
        setPrompt(question);
    } else if (state == QLatin1String("stopped")) {
        f.overlay.showStopped();
    } else if (state == QLatin1String("find")) {
        f.finding.setText(QStringLiteral("export"));
        f.finding.open();
        f.finding.setResult(3, 12);
    } else if (state == QLatin1String("notice")) {
        f.overlay.showNotice(
            QStringLiteral("Could not open the browser: xdg-open is not installed"));
    } else if (state == QLatin1String("capturing")) {
        f.overlay.setActivity(Activity::Capturing);
        f.panels.setCapturing(true);
    } else if (state == QLatin1String("text")) {
        setPrompt(QStringLiteral("Which week is the outlier?"));
    } else if (state == QLatin1String("long")) {
        setPrompt(QStringLiteral("one\ntwo\nthree\nfour\nfive\nsix\nseven"));
    } else if (state == QLatin1String("attached")) {
        f.panels.setStagedScreenshotData(OverlayFixture::screenshot());
    } else if (state == QLatin1String("broken")) {
        f.panels.setStagedScreenshotData(QByteArray("x"));
    } else if (state == QLatin1String("info") || state == QLatin1String("collapsed")) {
        f.panels.setAdminMessage(OverlayFixture::message(
            QStringLiteral("INFORMATIONAL"), QStringLiteral("Startup issues"),
            QStringLiteral("**Accessibility permission not granted.** Global hotkeys may not work "
                           "reliably. Grant it in System Settings → Privacy & Security → "
                           "Accessibility → enable Quellora, then relaunch the app.\n\n**Screen "
                           "Recording permission not granted.** Captures will be blank or fail "
                           "silently. Grant it in System Settings → Privacy & Security → Screen "
                           "Recording → enable Quellora, then relaunch the app.")));
        f.panels.setInformationalCollapsed(state == QLatin1String("collapsed"));
    } else if (state == QLatin1String("blocking")) {
        f.panels.setAdminMessage(OverlayFixture::blocking());
        f.panels.setBlocked(true);
        f.overlay.setSendingBlocked(true);
    } else if (state == QLatin1String("wordy")) {
        const QString longName = QStringLiteral("A name that goes on and on without an end ");
        auto message = OverlayFixture::blocking();
        message.headerText = longName.repeated(4);
        message.actionLabel = longName.repeated(3);
        message.bodyMarkdown = QStringLiteral("Anunbreakableword").repeated(20) +
                               QStringLiteral("\n\n- [a link](https://example.com) and `code`\n");
        f.panels.setAdminMessage(message);
        f.overlay.setTitle(longName.repeated(6));
        QList<ModelOption> models;
        for (int i = 0; i < 8; ++i)
            models.append({QString::number(i), longName.repeated(i % 3 + 1), longName.repeated(4)});
        f.panels.models()->setOffer(models, QStringLiteral("1"));
    } else if (state == QLatin1String("endless")) {
        f.panels.setAdminMessage(OverlayFixture::message(
            QStringLiteral("INFORMATIONAL"), QStringLiteral("Release notes"),
            QStringLiteral("- A point among many others\n").repeated(40)));
    } else if (state.startsWith(QLatin1String("usage"))) {
        const double percent = state.mid(5).toDouble();
        f.overlay.setUsage(percent);
        f.menu.setUsage(qint64(percent * 10000), 1000000, percent >= 125);
    } else if (state == QLatin1String("menu")) {
        f.overlay.setMenuOpen(true);
    } else if (state == QLatin1String("allrows")) {
        f.menu.setHistoryAvailable(true);
        f.menu.setSettingsAvailable(true);
    } else if (state == QLatin1String("threads")) {
        f.addThreads();
    } else if (state == QLatin1String("history")) {
        f.history.historyButtonClicked();
        QCoreApplication::processEvents();
    } else if (state.startsWith(QLatin1String("search:"))) {
        f.sidebar.setSearchText(state.mid(7));
    } else if (state == QLatin1String("delete")) {
        f.sidebar.requestDelete(5);
    } else if (state == QLatin1String("removed")) {
        f.sidebar.requestDelete(1);
        f.sidebar.confirmDelete();
    } else if (state == QLatin1String("removed-note")) {
        f.removals.add({QStringLiteral("Deleted a note"), [] {}, [] {}});
    } else if (state == QLatin1String("asked")) {
        f.overlay.setQuestionKnown(true);
        f.overlay.setPageClickable(true);
    } else if (state == QLatin1String("limited")) {
        f.stored.setKeepThreadsDays(QStringLiteral("30"));
    } else if (state == QLatin1String("badday")) {
        f.settings.threads()->commitDays(QStringLiteral("soon"));
    } else if (state == QLatin1String("delete-all") || state == QLatin1String("deleted-all")) {
        f.settings.threads()->deleteAll();
        QCoreApplication::processEvents();
        if (state == QLatin1String("deleted-all"))
            f.settings.threads()->confirm();
    } else if (state == QLatin1String("desktop-keys") || state == QLatin1String("some-keys") ||
               state == QLatin1String("no-keys")) {
        applyDesktopKeys(f, state);
    } else if (state == QLatin1String("settings")) {
        f.stored.setDontClearPromptAfterSendEnabled(true);
        f.settings.setOpen(true);
    } else if (state == QLatin1String("note")) {
        f.settings.setCaptureNote(
            QStringLiteral("Other programs' screenshots and screen sharing show this panel."));
    } else if (state.startsWith(QLatin1String("scroll"))) {
        // Delayed until the sheet has been laid out.
        QTimer::singleShot(400, &f.settings, [&f, points = state.mid(6).toDouble()] {
            if (QQuickItem *scroll = f.find("settingsScroll"))
                QMetaObject::invokeMethod(scroll, "scrollBy", Q_ARG(QVariant, points));
        });
    } else if (state == QLatin1String("recording") || state == QLatin1String("duplicate") ||
               state == QLatin1String("conflict") || state == QLatin1String("rollback")) {
        applyHotkeyState(f, state);
    } else if (state == QLatin1String("rebound")) {
        f.rebinding.beginCapturingHotkey(HotkeyAction::NewThread);
        f.keyMonitor.press(Qt::ControlModifier | Qt::AltModifier, QStringLiteral("n"));
    } else if (state == QLatin1String("badhex")) {
        f.settings.setHexInput(QStringLiteral("#fff"));
        f.settings.commitHexInput();
    } else if (state.startsWith(QLatin1String("color"))) {
        f.stored.setResponseTextColorHex(state.mid(5));
    } else if (state == QLatin1String("opaque")) {
        f.platform.setCompositing(false);
    } else {
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QQuickWindow::setDefaultAlphaBuffer(true);
    QGuiApplication app(argc, argv);
    initializeUi();

    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOptions(
        {{QStringLiteral("state"), QString(), QStringLiteral("words"), QStringLiteral("idle")},
         {QStringLiteral("size"), QString(), QStringLiteral("WxH"), QStringLiteral("624x744")},
         {QStringLiteral("theme"), QString(), QStringLiteral("dark|light"), QStringLiteral("dark")},
         {QStringLiteral("alpha"), QString(), QStringLiteral("0..1"), QStringLiteral("0.88")},
         {QStringLiteral("at"), QString(), QStringLiteral("X,Y"), QStringLiteral("20,20")},
         {QStringLiteral("focus"), QStringLiteral("Focus by keyboard."), QStringLiteral("object")},
         {QStringLiteral("models"), QStringLiteral("Open the model list.")},
         {QStringLiteral("out"), QStringLiteral("Save a picture and leave."),
          QStringLiteral("file")}});
    parser.process(app);

    OverlayFixture f(parser.value(QStringLiteral("state")).contains(QStringLiteral("keys")));
    const QStringList size = parser.value(QStringLiteral("size")).split(QLatin1Char('x'));
    const QStringList at = parser.value(QStringLiteral("at")).split(QLatin1Char(','));
    f.panel.resize(size.value(0).toInt(), size.value(1).toInt());
    f.panel.setPosition(at.value(0).toInt(), at.value(1).toInt());
    f.overlay.setCurrentAlpha(parser.value(QStringLiteral("alpha")).toDouble());
    f.connectSettings();
    f.connectRemovals();
    f.library.bytesPerThread = 3'900'000;
    if (parser.value(QStringLiteral("theme")) == QLatin1String("light"))
        f.stored.setAppearance(Settings::Appearance::Light);
    QObject::connect(&f.overlay, &OverlayModel::sliderMoved, &f.overlay,
                     &OverlayModel::setCurrentAlpha);
    QObject::connect(&f.overlay, &OverlayModel::menuToggled, &f.overlay,
                     [&f] { f.overlay.setMenuOpen(!f.overlay.isMenuOpen()); });
    QObject::connect(&f.menu, &HamburgerMenuModel::closeRequested, &f.overlay,
                     [&f] { f.overlay.setMenuOpen(false); });
    QObject::connect(&f.overlay, &OverlayModel::closeRequested, &app, &QCoreApplication::quit);
    f.show();
    const QStringList states = parser.value(QStringLiteral("state")).split(QLatin1Char('+'));
    for (const QString &state : states) {
        if (!applyState(f, state)) {
            std::fprintf(stderr, "Unknown state: %s\n", qPrintable(state));
            return 2;
        }
    }
    if (parser.isSet(QStringLiteral("models")))
        QMetaObject::invokeMethod(f.find("bottomPanels"), "openModelList");
    if (parser.isSet(QStringLiteral("focus"))) {
        f.panel.setFlag(Qt::WindowDoesNotAcceptFocus, false);
        f.panel.requestActivate();
        QQuickItem *item = f.find(qPrintable(parser.value(QStringLiteral("focus"))));
        if (item)
            item->forceActiveFocus(Qt::TabFocusReason);
    }
    if (parser.isSet(QStringLiteral("out"))) {
        QTimer::singleShot(900, &app, [&] {
            const bool isSaved = f.panel.grabWindow().save(parser.value(QStringLiteral("out")));
            QCoreApplication::exit(isSaved ? 0 : 1);
        });
    }
    return QGuiApplication::exec();
}
