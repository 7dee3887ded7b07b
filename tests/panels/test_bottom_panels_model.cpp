#include "panels/BottomPanelsModel.h"

#include "base/UserDefaults.h"
#include "fakes/LogCapture.h"
#include "query/PromptConfig.h"
#include "support/TestProgram.h"

#include <QBuffer>
#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QSignalSpy>
#include <QTest>
#include <QUrl>

using namespace quellora;

namespace {

QByteArray jpegOf(const QSize &size, const QColor &color = Qt::red)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPEG");
    return bytes;
}

AdminMessagePayload messageOf(const QString &type)
{
    AdminMessagePayload message;
    message.id = QStringLiteral("m1");
    message.type = type;
    message.headerText = QStringLiteral("Startup issues");
    message.bodyMarkdown = QStringLiteral("**Bold** body");
    return message;
}

const QString informational = QStringLiteral("INFORMATIONAL");
const QString blocking = QStringLiteral("BLOCKING");

} // namespace

class TestBottomPanelsModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_defaults = std::make_unique<JsonUserDefaults>();
        m_settings = std::make_unique<Settings>(*m_defaults);
        m_model = std::make_unique<BottomPanelsModel>(*m_settings);
    }

    void promptDefaultsToBuiltInText()
    {
        QCOMPARE(m_model->promptText(), PromptConfig::builtIn());
        m_model->setPromptText(PromptConfig::builtIn());
        QVERIFY(!m_defaults->stringValue("userPrompt"));
    }

    void promptIsStoredAndFollowsSettings()
    {
        QSignalSpy changed(m_model.get(), &BottomPanelsModel::promptTextChanged);
        m_model->setPromptText(QStringLiteral("Why?"));
        QCOMPARE(m_defaults->stringValue("userPrompt"), QStringLiteral("Why?"));
        QCOMPARE(changed.size(), 1);
        m_defaults->setString("userPrompt", QString());
        QCOMPARE(changed.size(), 2);
        QCOMPARE(m_model->promptText(), QString());
    }

    void blankPromptIsEmpty_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("isEmpty");
        QTest::newRow("empty") << QString() << true;
        QTest::newRow("blanks") << QStringLiteral("  \t ") << true;
        QTest::newRow("line breaks") << QStringLiteral(" \n\n") << true;
        QTest::newRow("text with blanks") << QStringLiteral("  a ") << false;
    }
    void blankPromptIsEmpty()
    {
        QFETCH(QString, text);
        QFETCH(bool, isEmpty);
        m_model->setPromptText(text);
        QCOMPARE(m_model->isPromptEmpty(), isEmpty);
        QSignalSpy sent(m_model.get(), &BottomPanelsModel::sendRequested);
        QSignalSpy noted(m_model.get(), &BottomPanelsModel::noteRequested);
        m_model->send();
        m_model->addNote();
        QCOMPARE(sent.size(), isEmpty ? 0 : 1);
        QCOMPARE(noted.size(), isEmpty ? 0 : 1);
        if (!isEmpty)
            QCOMPARE(sent.first().first().toString(), text);
    }

    void emptySendIsRequestedWhileBlocked()
    {
        m_model->setPromptText(QString());
        m_model->setBlocked(true);
        QSignalSpy sent(m_model.get(), &BottomPanelsModel::sendRequested);
        m_model->send();
        QCOMPARE(sent.size(), 1);
    }

    void addingNoteClearsPrompt()
    {
        m_model->setPromptText(QStringLiteral("remember"));
        QSignalSpy noted(m_model.get(), &BottomPanelsModel::noteRequested);
        m_model->addNote();
        QCOMPARE(noted.takeFirst().first().toString(), QStringLiteral("remember"));
        QVERIFY(m_model->promptText().isEmpty());
    }

    void capturesAreIgnoredWhileCapturing()
    {
        QSignalSpy andSend(m_model.get(), &BottomPanelsModel::captureAndSendRequested);
        QSignalSpy noSend(m_model.get(), &BottomPanelsModel::captureNoSendRequested);
        m_model->setCapturing(true);
        m_model->captureAndSend();
        m_model->captureNoSend();
        QCOMPARE(andSend.size() + noSend.size(), 0);
        m_model->setCapturing(false);
        m_model->captureAndSend();
        m_model->captureNoSend();
        QCOMPARE(andSend.size(), 1);
        QCOMPARE(noSend.size(), 1);
    }

    void informationalMessageCollapsesAndExpands()
    {
        QVERIFY(!m_model->hasMessage());
        m_model->setAdminMessage(messageOf(informational));
        QVERIFY(m_model->hasMessage());
        QVERIFY(!m_model->isMessageBlocking());
        QCOMPARE(m_model->messageHeader(), QStringLiteral("Startup issues"));
        QCOMPARE(m_model->messageBodyText(), QStringLiteral("Bold body"));
        QSignalSpy toggled(m_model.get(), &BottomPanelsModel::informationalCollapseToggled);
        m_model->toggleMessageCollapsed();
        QCOMPARE(toggled.size(), 1);
        m_model->setInformationalCollapsed(true);
        QVERIFY(m_model->isMessageCollapsed());
        m_model->setInformationalCollapsed(false);
        QVERIFY(!m_model->isMessageCollapsed());
    }

    void blockingMessageNeverCollapses()
    {
        m_model->setAdminMessage(messageOf(blocking));
        m_model->setInformationalCollapsed(true);
        QSignalSpy toggled(m_model.get(), &BottomPanelsModel::informationalCollapseToggled);
        m_model->toggleMessageCollapsed();
        QCOMPARE(toggled.size(), 0);
        QVERIFY(m_model->isMessageBlocking());
        QVERIFY(!m_model->isMessageCollapsed());
    }

    void removedMessageIsCleared()
    {
        m_model->setAdminMessage(messageOf(blocking));
        m_model->setAdminMessage(std::nullopt);
        QVERIFY(!m_model->hasMessage());
        QVERIFY(m_model->messageHeader().isEmpty());
        QVERIFY(m_model->messageBody().isEmpty());
        m_model->toggleMessageCollapsed();
        m_model->performMessageAction();
    }

    void headerIsSingleLine()
    {
        auto message = messageOf(informational);
        message.headerText = QStringLiteral("Two\nlines");
        m_model->setAdminMessage(message);
        QCOMPARE(m_model->messageHeader(), QStringLiteral("Two lines"));
    }

    void actionNeedsLabelAndSafeAddress_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("isShown");
        QTest::newRow("both") << QStringLiteral("Upgrade Now") << QStringLiteral("https://a.b/c")
                              << true;
        QTest::newRow("no label") << QString() << QStringLiteral("https://a.b/c") << false;
        QTest::newRow("no address") << QStringLiteral("Go") << QString() << false;
        QTest::newRow("file") << QStringLiteral("Go") << QStringLiteral("file:///bin/sh") << false;
        QTest::newRow("script") << QStringLiteral("Go") << QStringLiteral("javascript:x") << false;
        QTest::newRow("invalid address")
            << QStringLiteral("Go") << QStringLiteral("https://a b") << false;
    }
    void actionNeedsLabelAndSafeAddress()
    {
        QFETCH(QString, label);
        QFETCH(QString, url);
        QFETCH(bool, isShown);
        auto message = messageOf(informational);
        if (!label.isNull())
            message.actionLabel = label;
        if (!url.isNull())
            message.actionUrl = url;
        m_model->setAdminMessage(message);
        QCOMPARE(m_model->messageActionLabel(), isShown ? label : QString());
        QSignalSpy requested(m_model.get(), &BottomPanelsModel::messageActionRequested);
        m_model->performMessageAction();
        QCOMPARE(requested.size(), isShown ? 1 : 0);
        if (isShown)
            QCOMPARE(requested.first().first().toUrl(), QUrl(url));
    }

    void bodyLinksOpenOnlyWebAddresses()
    {
        QSignalSpy requested(m_model.get(), &BottomPanelsModel::messageActionRequested);
        m_model->openMessageLink(QStringLiteral("file:///etc/passwd"));
        m_model->openMessageLink(QStringLiteral("mailto:a@b.c"));
        QCOMPARE(requested.size(), 0);
        m_model->openMessageLink(QStringLiteral("https://example.com/help"));
        QCOMPARE(requested.takeFirst().first().toUrl(),
                 QUrl(QStringLiteral("https://example.com/help")));
    }

    void blockedReasonNamesBlockingMessage()
    {
        QCOMPARE(m_model->blockedReason(), QStringLiteral("Blocked: out of credits"));
        m_model->setAdminMessage(messageOf(informational));
        QCOMPARE(m_model->blockedReason(), QStringLiteral("Blocked: out of credits"));
        auto message = messageOf(blocking);
        message.headerText = QStringLiteral("Credit Limit Reached");
        QSignalSpy changed(m_model.get(), &BottomPanelsModel::blockedReasonChanged);
        m_model->setAdminMessage(message);
        QCOMPARE(m_model->blockedReason(), QStringLiteral("Blocked: Credit Limit Reached"));
        QCOMPARE(changed.size(), 1);
    }

    void attachmentIsDecodedInBackground()
    {
        QVERIFY(!m_model->hasAttachedScreenshot());
        m_model->setStagedScreenshotData(jpegOf({1280, 800}));
        QVERIFY(m_model->hasAttachedScreenshot());
        QVERIFY(m_model->attachmentImage().isNull()); // not decoded synchronously
        QTRY_VERIFY(!m_model->attachmentImage().isNull());
        QCOMPARE(m_model->attachmentImage().size(), StagedScreenshot::previewSize * 3);
        QCOMPARE(m_model->attachmentCaption(),
                 QStringLiteral("1280 \u00d7 800 \u00b7 goes with your next message"));
        QVERIFY(!m_model->hasAttachmentFailed());
        QSignalSpy removed(m_model.get(), &BottomPanelsModel::attachmentRemoved);
        m_model->removeAttachment();
        QCOMPARE(removed.size(), 1);
        m_model->setStagedScreenshotData(std::nullopt);
        QVERIFY(!m_model->hasAttachedScreenshot());
        QVERIFY(m_model->attachmentImage().isNull());
        m_model->removeAttachment();
        QCOMPARE(removed.size(), 1);
    }

    void replacedAttachmentDoesNotShowOldImage()
    {
        m_model->setStagedScreenshotData(jpegOf({3000, 2000}, Qt::red));
        m_model->setStagedScreenshotData(jpegOf({320, 200}, Qt::blue));
        QTRY_VERIFY(!m_model->attachmentImage().isNull());
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        const QColor middle = m_model->attachmentImage().pixelColor(100, 60);
        QVERIFY(middle.blue() > 200 && middle.red() < 50);
        QVERIFY(m_model->attachmentCaption().startsWith(QStringLiteral("320 ")));
    }

    void invalidAttachmentShowsFallback()
    {
        LogCapture log;
        m_model->setStagedScreenshotData(QByteArray("no picture"));
        QTRY_VERIFY(m_model->hasAttachmentFailed());
        QCOMPARE(m_model->attachmentCaption(), QStringLiteral("goes with your next message"));
        QCOMPARE(log.lines.size(), 1);
    }

    void destructionWhileDecodingIsSafe()
    {
        m_model->setStagedScreenshotData(jpegOf({2000, 1200}));
        m_model.reset();
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
    }

    void promptOfWrongTypeIsIgnored()
    {
        m_defaults->setBool("userPrompt", true);
        QCOMPARE(m_model->promptText(), PromptConfig::builtIn());
    }

    void editingIsShown()
    {
        QSignalSpy changed(m_model.get(), &BottomPanelsModel::editingChanged);
        QSignalSpy cancelled(m_model.get(), &BottomPanelsModel::editCancelled);
        m_model->cancelEditing();
        QVERIFY(cancelled.isEmpty());
        m_model->setEditing(true, true);
        m_model->setEditing(true, true);
        QCOMPARE(changed.size(), 1);
        QVERIFY(m_model->isEditing() && m_model->isScreenshotKept());
        m_model->setStagedScreenshotData(jpegOf({10, 10}));
        QVERIFY(!m_model->isScreenshotKept());
        QVERIFY(changed.size() > 1);
        m_model->cancelEditing();
        QCOMPARE(cancelled.size(), 1);
        m_model->setEditing(false, false);
        QVERIFY(!m_model->isEditing() && !m_model->isScreenshotKept());
    }

    void clipboardPictures_data()
    {
        QTest::addColumn<QByteArrayList>("formats");
        QTest::addColumn<QList<QUrl>>("urls");
        QTest::addColumn<bool>("isTaken");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("file");
        const auto row = [](const char *name, const QByteArrayList &formats,
                            const QList<QUrl> &urls, bool isTaken, const QByteArray &bytes = {},
                            const QString &file = {}) {
            QTest::newRow(name) << formats << urls << isTaken << bytes << file;
        };
        row("png", {"image/png"}, {}, true, "image/png");
        row("jpeg", {"image/jpeg"}, {}, true, "image/jpeg");
        row("webp", {"image/webp"}, {}, true, "image/webp");
        row("png of several", {"image/bmp", "image/jpeg", "image/png", "text/html"}, {}, true,
            "image/png");
        row("other picture", {"image/bmp"}, {}, true);
        row("picture and text", {"image/png", "text/plain"}, {}, false);
        row("text", {"text/plain"}, {}, false);
        row("nothing", {}, {}, false);
        const QUrl file(QStringLiteral("file:///a/b%20c.PNG"));
        row("file", {"text/plain"}, {file}, true, {}, QStringLiteral("/a/b c.PNG"));
        row("other picture's file", {}, {QUrl(QStringLiteral("file:///a.gif"))}, true, {},
            QStringLiteral("/a.gif"));
        row("other file", {"text/plain"}, {QUrl(QStringLiteral("file:///a.txt"))}, false);
        row("several files", {"text/plain"}, {file, file}, false);
        row("address", {"text/plain"}, {QUrl(QStringLiteral("https://host/a.png"))}, false);
    }
    void clipboardPictures()
    {
        QFETCH(QByteArrayList, formats);
        QFETCH(QList<QUrl>, urls);
        QFETCH(bool, isTaken);
        QFETCH(QByteArray, bytes);
        QFETCH(QString, file);
        auto *clip = new QMimeData;
        for (const QByteArray &format : formats)
            clip->setData(QString::fromLatin1(format), format);
        if (!urls.isEmpty())
            clip->setUrls(urls);
        QGuiApplication::clipboard()->setMimeData(clip);
        QSignalSpy offered(m_model.get(), &BottomPanelsModel::pictureOffered);
        QSignalSpy refused(m_model.get(), &BottomPanelsModel::pictureRefused);
        QCOMPARE(m_model->pastePicture(), isTaken);
        const bool isOffered = !bytes.isEmpty() || !file.isEmpty();
        QCOMPARE(offered.size(), isOffered ? 1 : 0);
        QCOMPARE(refused.size(), isTaken && !isOffered ? 1 : 0);
        if (isOffered)
            QCOMPARE(offered[0][0].value<OfferedPicture>(), (OfferedPicture{bytes, file}));
    }

    void droppedPictures()
    {
        QSignalSpy offered(m_model.get(), &BottomPanelsModel::pictureOffered);
        QSignalSpy refused(m_model.get(), &BottomPanelsModel::pictureRefused);
        const QUrl file(QStringLiteral("file:///a/b.png"));
        const QUrl address(QStringLiteral("https://host/a.png"));
        QVERIFY(m_model->acceptsDrop({"image/png"}, {}));
        QVERIFY(m_model->acceptsDrop({"image/bmp"}, {}));
        QVERIFY(m_model->acceptsDrop({"text/uri-list"}, {file}));
        QVERIFY(m_model->acceptsDrop({"image/png"}, {address}));
        QVERIFY(!m_model->acceptsDrop({"text/uri-list", "text/plain"}, {address}));
        QVERIFY(!m_model->acceptsDrop({"text/plain"}, {}));
        QVERIFY(!m_model->acceptsDrop({}, {}));
        QCOMPARE(m_model->droppedFormat({"image/jpeg"}, {address}), "image/jpeg");
        QCOMPARE(m_model->droppedFormat({"image/jpeg"}, {file}), "");
        m_model->drop({file}, {});
        QCOMPARE(offered.last()[0].value<OfferedPicture>(), (OfferedPicture{{}, "/a/b.png"}));
        m_model->drop({address}, "bytes");
        QCOMPARE(offered.last()[0].value<OfferedPicture>(), (OfferedPicture{"bytes", {}}));
        QCOMPARE(offered.size(), 2);
        m_model->drop({}, {});
        QCOMPARE(refused.last()[0].toString(), PictureImport::formatProblem());
        m_model->drop({file, file}, {});
        QCOMPARE(refused.last()[0].toString(), "Only one picture can be attached at a time.");
        QCOMPARE(offered.size(), 2);
    }

    void unchangedHeightIsNotReported()
    {
        QSignalSpy reported(m_model.get(), &BottomPanelsModel::heightChanged);
        m_model->reportHeight(140);
        m_model->reportHeight(140);
        m_model->reportHeight(204);
        QCOMPARE(reported.size(), 2);
        QCOMPARE(reported.last().first().toDouble(), 204.0);
    }

    void unchangedHotkeysAreNotSignalled()
    {
        QSignalSpy changed(m_model.get(), &BottomPanelsModel::hotkeysChanged);
        const QVariantMap texts{{"capture", "Ctrl+Option+Cmd+C"}};
        m_model->setHotkeys(texts);
        m_model->setHotkeys(texts);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(m_model->hotkeys(), texts);
    }

private:
    std::unique_ptr<JsonUserDefaults> m_defaults;
    std::unique_ptr<Settings> m_settings;
    std::unique_ptr<BottomPanelsModel> m_model;
};

QUELLORA_TEST(QGuiApplication, TestBottomPanelsModel)
#include "test_bottom_panels_model.moc"
