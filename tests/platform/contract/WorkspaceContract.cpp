#include "platform/contract/WorkspaceContract.h"

#include <QTemporaryDir>

namespace quellora {

/// Waits for the result; nullopt on timeout.
std::optional<OpenResult> WorkspaceContract::resultOf(const QFuture<OpenResult> &opening)
{
    if (!waitFor([&] { return opening.isFinished(); }) || opening.resultCount() != 1)
        return std::nullopt;
    return opening.result();
}

bool WorkspaceContract::isOpened(const QFuture<OpenResult> &opening)
{
    const auto result = resultOf(opening);
    if (result && !*result)
        qWarning() << result->error().text();
    return result && result->has_value();
}

/// The kind of failure, if the failure has both texts; nullopt otherwise.
std::optional<OpenFailure::Kind> WorkspaceContract::failureOf(const QFuture<OpenResult> &opening)
{
    const auto result = resultOf(opening);
    if (!result || *result || result->error().what.isEmpty() || result->error().reason.isEmpty())
        return std::nullopt;
    return result->error().kind;
}

void WorkspaceContract::passesUrlUnchanged_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::newRow("sign-in") << QUrl(QStringLiteral(
        "https://app.example/login?callback=http://127.0.0.1:9877/oauth-callback&state=a%2Bb"));
    QTest::newRow("spaces and quotes") << QUrl(QStringLiteral("http://a.example/x y\"$(z)`'"));
    QTest::newRow("non-ASCII characters")
        << QUrl(QStringLiteral("https://a.example/ü?q=日本#teil"));
    QTest::newRow("mail") << QUrl(QStringLiteral("mailto:help@a.example"));
}

void WorkspaceContract::passesUrlUnchanged()
{
    CONTRACT_REQUIRES(Ability::ObserveOpened);
    QFETCH(QUrl, url);
    QVERIFY(isOpened(platform().workspace().openUrl(url)));
    CONTRACT_TRY_COMPARE(harness().opened(), QList<QUrl>{url});
}

void WorkspaceContract::passesFileUnchanged()
{
    CONTRACT_REQUIRES(Ability::ObserveOpened);
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("-a picture #1 ü.png"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(isOpened(platform().workspace().openFile(path)));
    CONTRACT_TRY_COMPARE(harness().opened(), QList<QUrl>{QUrl::fromLocalFile(path)});
}

void WorkspaceContract::doesNotBlock()
{
    CONTRACT_REQUIRES(Ability::ObserveOpened);
    const QUrl url(QStringLiteral("https://a.example/"));
    harness().holdOpening(true);
    // A blocking call would never return, because the opener is released only afterwards.
    const QFuture<OpenResult> opening = platform().workspace().openUrl(url);
    QVERIFY(!opening.isFinished());
    QCOMPARE(harness().opened(), QList<QUrl>());
    harness().holdOpening(false);
    CONTRACT_TRY_COMPARE(harness().opened(), QList<QUrl>{url});
    QVERIFY(isOpened(opening));
}

void WorkspaceContract::reportsFailure_data()
{
    QTest::addColumn<bool>("isFile");
    QTest::newRow("address") << false;
    QTest::newRow("file") << true;
}

void WorkspaceContract::reportsFailure()
{
    CONTRACT_REQUIRES(Ability::FailOpening);
    QFETCH(bool, isFile);
    harness().failOpening();
    Workspace &workspace = platform().workspace();
    QCOMPARE(failureOf(isFile ? workspace.openFile(QCoreApplication::applicationFilePath())
                              : workspace.openUrl(QUrl(QStringLiteral("https://a.example/")))),
             OpenFailure::Kind::Failed);
}

void WorkspaceContract::refusesInvalidUrl_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::newRow("empty") << QUrl();
    QTest::newRow("broken") << QUrl(QStringLiteral("https://a.example:port/"));
}

void WorkspaceContract::refusesInvalidUrl()
{
    QFETCH(QUrl, url);
    QCOMPARE(failureOf(platform().workspace().openUrl(url)), OpenFailure::Kind::Refused);
    QCOMPARE(harness().opened(), QList<QUrl>());
}

void WorkspaceContract::refusesMissingFile()
{
    QTemporaryDir folder;
    for (const QString &path : {QString(), folder.filePath(QStringLiteral("missing.png"))})
        QCOMPARE(failureOf(platform().workspace().openFile(path)), OpenFailure::Kind::Refused);
    QCOMPARE(harness().opened(), QList<QUrl>());
}

} // namespace quellora
