/// The panel at other text sizes: no text is clipped, leaves the window or covers other text.
#include "OverlayFixture.h"
#include "support/TestProgram.h"

#include <QTest>

using namespace quellora;

namespace {

/// A text on the screen.
struct ShownText
{
    QString text;
    /// The part in the window that is not clipped.
    QRectF area;
};

bool isText(const QQuickItem *item)
{
    return item->inherits("QQuickText") || item->inherits("QQuickTextEdit") ||
           item->inherits("QQuickTextInput");
}

/// The rectangle of the glyphs in @p item.
QRectF contentRect(const QQuickItem *item)
{
    const QSizeF size(item->property("contentWidth").toReal(),
                      item->property("contentHeight").toReal());
    QRectF rect({0, 0}, size);
    const int horizontal = item->property("effectiveHorizontalAlignment").toInt();
    if (horizontal & Qt::AlignHCenter)
        rect.moveLeft((item->width() - size.width()) / 2);
    else if (horizontal & Qt::AlignRight)
        rect.moveRight(item->width());
    const int vertical = item->property("verticalAlignment").toInt();
    if (vertical & Qt::AlignVCenter)
        rect.moveTop((item->height() - size.height()) / 2);
    else if (vertical & Qt::AlignBottom)
        rect.moveBottom(item->height());
    return rect;
}

/// Collects the texts below @p item, and describes those that are cut off.
void collect(const QQuickItem *item, const QRectF &clip, bool isScrolled, QList<ShownText> &texts,
             QStringList &faults)
{
    if (!item->isVisible() || item->opacity() == 0)
        return;
    if (isText(item) && !item->property("text").toString().isEmpty()) {
        const QString text = item->property("text").toString();
        const QRectF content = contentRect(item);
        // A field shows the part of its text with the caret.
        const bool isField = item->inherits("QQuickTextInput");
        if (content.height() > item->height() + 0.5 ||
            (!isField && content.width() > item->width() + 1))
            faults << QStringLiteral("\"%1\" is larger than its item").arg(text);
        const QRectF area = item->mapRectToScene(content);
        const QRectF shown = area & clip;
        // What is scrolled out of sight can be scrolled back.
        const bool isOutOfSight = isScrolled && clip.isEmpty();
        const bool isCut =
            isField || isOutOfSight ? false
            : isScrolled
                ? area.left() < clip.left() - 0.5 || area.right() > clip.right() + 0.5
                : shown.width() < area.width() - 0.5 || shown.height() < area.height() - 0.5;
        if (isCut)
            faults << QStringLiteral("\"%1\" is cut off").arg(text);
        if (!shown.isEmpty())
            texts << ShownText{text, shown};
        return;
    }
    QRectF inner = clip;
    if (item->clip())
        inner &= item->mapRectToScene(QRectF({0, 0}, item->size()));
    const bool scrolls = isScrolled || item->inherits("QQuickFlickable");
    for (const QQuickItem *child : item->childItems())
        collect(child, inner, scrolls, texts, faults);
}

/// Everything wrong with the texts below @p scopes.
QStringList faultsIn(const QList<QQuickItem *> &scopes, const QSizeF &window)
{
    QList<ShownText> texts;
    QStringList faults;
    for (const QQuickItem *scope : scopes)
        collect(scope, QRectF({0, 0}, window), false, texts, faults);
    for (qsizetype i = 0; i < texts.size(); ++i) {
        for (qsizetype j = i + 1; j < texts.size(); ++j) {
            const QRectF common = texts[i].area & texts[j].area;
            if (common.width() > 1 && common.height() > 2)
                faults << QStringLiteral("\"%1\" and \"%2\" overlap")
                              .arg(texts[i].text, texts[j].text);
        }
    }
    if (texts.isEmpty())
        faults << QStringLiteral("there is no text");
    return faults;
}

} // namespace

class TestLargeText : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { initializeUi(); }

    void noTextIsCutOff_data();
    void noTextIsCutOff();
    void textSizeIsFollowedLive();
    void normalSizeIsRestored();
    void largeTextMakesTheLayoutCompactEarlier();
    void menuScrollsToTheFocusedRow();
    void tooltipStaysInTheWindow();
};

void TestLargeText::noTextIsCutOff_data()
{
    QTest::addColumn<QString>("state");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<double>("scale");
    for (const double scale : {0.8, 1.25, 1.5, 2.0, 3.0}) {
        for (const QSize &size : {QSize(624, 744), QSize(440, 420), QSize(320, 280)}) {
            // The smallest window has no room for three times the size.
            if (scale > 2 && size.width() < 624)
                continue;
            for (const char *state :
                 {"first", "thread+card", "thread+informational", "streaming+usage+attached",
                  "failed+blocked", "models", "menu+usage", "history", "history+edit",
                  "history+search", "history+delete", "settings", "settings+conflict",
                  "notice+covered", "pasted"}) {
                QTest::addRow("%s, %d x %d, %g", state, size.width(), size.height(), scale)
                    << QString::fromLatin1(state) << size << scale;
            }
        }
    }
}

void TestLargeText::noTextIsCutOff()
{
    QFETCH(QString, state);
    QFETCH(QSize, size);
    QFETCH(double, scale);
    OverlayFixture f;
    FakeAppearance system;
    system.setReducesMotion(true);
    system.setTextScale(scale);
    followMotion(f.engine, system);
    followTextScale(f.engine, system);
    f.panel.resize(size);
    f.stored.setHasLaunchedBefore(state != QLatin1String("first"));
    f.show();
    QVERIFY(QTest::qWaitForWindowExposed(&f.panel));
    using Activity = OverlayModel::Activity;
    QList<QQuickItem *> scopes{f.find("strip"), f.find("bottomPanels")};
    for (const QString &part : state.split(QLatin1Char('+'))) {
        if (part == QLatin1String("thread")) {
            f.overlay.setTitle(QStringLiteral("Which week is the outlier?"));
            f.overlay.setHasAnswer(true);
        } else if (part == QLatin1String("card")) {
            f.panels.setAdminMessage(OverlayFixture::blocking());
        } else if (part == QLatin1String("informational")) {
            f.panels.setAdminMessage(OverlayFixture::message(
                QStringLiteral("INFORMATIONAL"), QStringLiteral("Maintenance on Sunday"),
                QStringLiteral("From **two to three** in the morning.\n\n"
                               "Answers may take longer.")));
        } else if (part == QLatin1String("attached")) {
            f.panels.setStagedScreenshotData(OverlayFixture::screenshot());
        } else if (part == QLatin1String("streaming")) {
            f.overlay.setActivity(Activity::Streaming);
            f.panels.setPromptText(QStringLiteral("Which week is the outlier?\nAnd why?\nThird"));
        } else if (part == QLatin1String("usage")) {
            f.overlay.setUsage(85);
            f.menu.setUsage(850000, 1000000, false);
        } else if (part == QLatin1String("failed")) {
            f.overlay.setTitle(QStringLiteral("Which week is the outlier?"));
            f.overlay.setSaveState(OverlayModel::SaveState::Failed, QStringLiteral("disk full"));
        } else if (part == QLatin1String("blocked")) {
            f.panels.setBlocked(true);
            f.overlay.setSendingBlocked(true);
        } else if (part == QLatin1String("models")) {
            QMetaObject::invokeMethod(f.find("bottomPanels"), "openModelList");
        } else if (part == QLatin1String("menu")) {
            f.menu.setHistoryAvailable(true);
            f.menu.setSettingsAvailable(true);
            f.overlay.setMenuOpen(true);
            scopes = {f.find("hamburgerMenu")};
        } else if (part == QLatin1String("history")) {
            f.addThreads();
            f.history.historyButtonClicked();
            QTRY_COMPARE(f.sidebar.rowCount(), 6);
            scopes = {f.find("historySheet")};
        } else if (part == QLatin1String("edit")) {
            QTRY_VERIFY(f.find("historyList")->property("currentItem").value<QQuickItem *>());
            QMetaObject::invokeMethod(
                f.find("historyList")->property("currentItem").value<QQuickItem *>(), "edit");
        } else if (part == QLatin1String("search")) {
            f.sidebar.setSearchText(QStringLiteral("no such thread"));
        } else if (part == QLatin1String("delete")) {
            f.sidebar.requestDelete(5);
            scopes = {f.find("dialogCard")};
        } else if (part == QLatin1String("settings")) {
            f.settings.setOpen(true);
            QTRY_VERIFY(f.find("settingsSheet"));
            scopes = {f.find("settingsSheet")};
        } else if (part == QLatin1String("conflict")) {
            f.settings.setHexInput(QStringLiteral("no colour"));
            f.settings.commitHexInput();
            f.settings.hotkeyRows()->beginCapture(1);
            f.keyMonitor.press(Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier, "c");
            f.settings.hotkeyRows()->beginCapture(6);
            f.keyMonitor.press(Qt::MetaModifier | Qt::ShiftModifier, "3");
        } else if (part == QLatin1String("notice")) {
            f.overlay.setTitle(QStringLiteral("Which week is the outlier?"));
            f.overlay.showNotice(QStringLiteral("Could not open the browser"));
        } else if (part == QLatin1String("covered")) {
            f.overlay.setThreadCovered(true);
        } else if (part == QLatin1String("pasted")) {
            f.panels.setPromptText(QString(60000, QLatin1Char('a')));
        }
    }
    const auto faults = [&] { return faultsIn(scopes, size); };
    // Fades and asynchronous layout settle within a moment.
    if (!QTest::qWaitFor([&] { return faults().isEmpty(); }, 1500))
        QFAIL(qPrintable(faults().join(QStringLiteral("; "))));
}

void TestLargeText::textSizeIsFollowedLive()
{
    OverlayFixture f;
    FakeAppearance system;
    followTextScale(f.engine, system);
    f.stored.setHasLaunchedBefore(true);
    f.responseView = OverlayFixture::emptyResponse();
    f.show();
    QVERIFY(QTest::qWaitForWindowExposed(&f.panel));
    // Created after the first frame.
    QTRY_VERIFY(f.find("response"));
    const QQuickItem *title = f.find("threadTitle");
    const QQuickItem *input = f.find("promptInput");
    const double panels = f.overlay.bottomPanelsHeight();
    QCOMPARE(title->property("font").value<QFont>().pixelSize(), 13);
    QCOMPARE(f.overlay.responseRect().top(), 72.0);
    f.panels.setPromptText(QStringLiteral("one\ntwo"));

    system.setTextScale(1.25);
    QCOMPARE(title->property("font").value<QFont>().pixelSize(), 16);
    QCOMPARE(input->property("font").value<QFont>().pixelSize(), 16);
    QCOMPARE(input->property("contentHeight").toReal(), 50.0);
    QCOMPARE(f.overlay.responseRect().top(), 76.0);
    QCOMPARE(f.overlay.bottomPanelsHeight(), panels + 2 * 5 + 4 + 4);
    QCOMPARE(f.find("response")->property("textScale").toReal(), 1.25);
    f.overlay.setAnswerTextScale(2);
    QCOMPARE(f.find("response")->property("textScale").toReal(), 2.5);
    QCOMPARE(title->property("font").value<QFont>().pixelSize(), 16);
    system.setTextScale(3);
    QCOMPARE(f.find("response")->property("textScale").toReal(), 5.0);
    system.setTextScale(1.25);
    f.overlay.setAnswerTextScale(1);
    QCOMPARE(f.find("response")->property("textScale").toReal(), 1.25);
    QCOMPARE(QGuiApplication::font().pixelSize(), 16);
    // The answer's area follows, and with it the part of the window that clicks pass through.
    QCOMPARE(QRectF(f.overlay.clickThroughRect()), f.overlay.responseRect());
    QCOMPARE(f.find("strip")->height(), 42.0);
}

void TestLargeText::normalSizeIsRestored()
{
    OverlayFixture f;
    FakeAppearance system;
    system.setTextScale(2);
    followTextScale(f.engine, system);
    f.show();
    system.setTextScale(1);
    QCOMPARE(f.find("threadTitle")->property("font").value<QFont>().pixelSize(), 13);
    QCOMPARE(f.find("strip")->height(), 38.0);
    QCOMPARE(f.overlay.responseRect().top(), 72.0);
    QCOMPARE(QGuiApplication::font().pixelSize(), 13);
}

void TestLargeText::largeTextMakesTheLayoutCompactEarlier()
{
    OverlayFixture f;
    FakeAppearance system;
    followTextScale(f.engine, system);
    f.show();
    QVERIFY(!f.overlay.isCompact());
    system.setTextScale(1.5);
    QVERIFY(!f.overlay.isCompact());
    system.setTextScale(2);
    QVERIFY(f.overlay.isCompact());
    // Reduced text does not change when the layout is compact.
    system.setTextScale(0.5);
    f.panel.resize(439, 744);
    QTRY_VERIFY(f.overlay.isCompact());
}

void TestLargeText::menuScrollsToTheFocusedRow()
{
    OverlayFixture f;
    FakeAppearance system;
    system.setReducesMotion(true);
    system.setTextScale(2);
    followMotion(f.engine, system);
    followTextScale(f.engine, system);
    f.panel.resize(320, 280);
    f.show();
    QVERIFY(QTest::qWaitForWindowExposed(&f.panel));
    f.menu.setHistoryAvailable(true);
    f.menu.setSettingsAvailable(true);
    f.overlay.setMenuOpen(true);
    const QQuickItem *card = f.find("hamburgerMenu");
    const QRectF window({0, 0}, QSizeF(f.panel.size()));
    QVERIFY(window.contains(card->mapRectToScene(QRectF({0, 0}, card->size()))));
    const auto isShown = [&](const char *row) {
        const QQuickItem *item = f.find(row);
        return card->mapRectToScene(QRectF({0, 0}, card->size()))
            .contains(item->mapRectToScene(QRectF({0, 0}, item->size())));
    };
    QVERIFY(isShown("menuHistory"));
    QVERIFY(!isShown("menuSignOut"));
    QVERIFY(f.find("menuContinuesBelow")->isVisible());
    QVERIFY(!f.find("menuContinuesAbove")->isVisible());
    QTest::keyClick(&f.panel, Qt::Key_End);
    QVERIFY(f.find("menuSignOut")->hasActiveFocus());
    QTRY_VERIFY(isShown("menuSignOut"));
    QTRY_VERIFY(!f.find("menuContinuesBelow")->isVisible());
    QVERIFY(f.find("menuContinuesAbove")->isVisible());
    QVERIFY(f.find("menuScrollMark")->isVisible());
    QTest::keyClick(&f.panel, Qt::Key_Down);
    QVERIFY(f.find("menuHistory")->hasActiveFocus());
    QTRY_VERIFY(isShown("menuHistory"));
}

void TestLargeText::tooltipStaysInTheWindow()
{
    OverlayFixture f;
    FakeAppearance system;
    system.setTextScale(2);
    followTextScale(f.engine, system);
    f.panel.resize(320, 280);
    f.show();
    QVERIFY(QTest::qWaitForWindowExposed(&f.panel));
    f.overlay.setSaveState(OverlayModel::SaveState::Failed,
                           QStringLiteral("The disk of the home folder is full"));
    f.find("notSaved")->forceActiveFocus(Qt::TabFocusReason);
    const auto bubble = [&]() -> const QQuickItem * {
        for (const QQuickItem *item : f.panel.contentItem()->childItems()) {
            if (item->property("anchorItem").isValid())
                return item;
        }
        return nullptr;
    };
    QTRY_VERIFY(bubble());
    const QRectF window({0, 0}, QSizeF(f.panel.size()));
    QTRY_VERIFY(window.contains(bubble()->mapRectToScene(QRectF({0, 0}, bubble()->size()))));
    QVERIFY(bubble()->height() > 2 * 32);
}

QUELLORA_TEST(QGuiApplication, TestLargeText)
#include "test_large_text.moc"
