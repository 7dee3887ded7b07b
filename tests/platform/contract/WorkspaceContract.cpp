#include "platform/contract/WorkspaceContract.h"

#include <QTemporaryDir>

namespace quellora {

void WorkspaceContract::handsOverTheVeryAddress_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::newRow("sign-in") << QUrl(QStringLiteral(
        "https://app.example/login?callback=http://127.0.0.1:9877/oauth-callback&state=a%2Bb"));
    QTest::newRow("spaces and quotes") << QUrl(QStringLiteral("http://a.example/x y\"$(z)`'"));
    QTest::newRow("other letters") << QUrl(QStringLiteral("https://a.example/ü?q=日本#teil"));
    QTest::newRow("mail") << QUrl(QStringLiteral("mailto:help@a.example"));
}

void WorkspaceContract::handsOverTheVeryAddress()
{
    CONTRACT_NEEDS(Ability::SeeWhatIsOpened);
    QFETCH(QUrl, url);
    const Capability result = platform().workspace().openUrl(url);
    QVERIFY2(hasHappened(result), qPrintable(result.reason()));
    CONTRACT_TRY_COMPARE(harness().opened(), QList<QUrl>{url});
}

void WorkspaceContract::handsOverTheVeryFile()
{
    CONTRACT_NEEDS(Ability::SeeWhatIsOpened);
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("-a picture #1 ü.png"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    const Capability result = platform().workspace().openFile(path);
    QVERIFY2(hasHappened(result), qPrintable(result.reason()));
    CONTRACT_TRY_COMPARE(harness().opened(), QList<QUrl>{QUrl::fromLocalFile(path)});
}

void WorkspaceContract::doesNotWaitForTheOtherProgram()
{
    CONTRACT_NEEDS(Ability::SeeWhatIsOpened);
    const QUrl url(QStringLiteral("https://a.example/"));
    harness().holdOpening(true);
    // Waiting for the program here would never end: it goes on afterwards only.
    QVERIFY(hasHappened(platform().workspace().openUrl(url)));
    QCOMPARE(harness().opened(), QList<QUrl>());
    harness().holdOpening(false);
    CONTRACT_TRY_COMPARE(harness().opened(), QList<QUrl>{url});
}

void WorkspaceContract::refusesWhatIsNoAddress_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::newRow("empty") << QUrl();
    QTest::newRow("broken") << QUrl(QStringLiteral("https://a.example:port/"));
}

void WorkspaceContract::refusesWhatIsNoAddress()
{
    QFETCH(QUrl, url);
    const Capability result = platform().workspace().openUrl(url);
    QCOMPARE(result.state(), Capability::State::Unsupported);
    QVERIFY2(isHonest(result), qPrintable(result.reason()));
    QCOMPARE(harness().opened(), QList<QUrl>());
}

void WorkspaceContract::refusesWhatIsNoFile()
{
    QTemporaryDir folder;
    for (const QString &path : {QString(), folder.filePath(QStringLiteral("missing.png"))}) {
        const Capability result = platform().workspace().openFile(path);
        QCOMPARE(result.state(), Capability::State::Unsupported);
        QVERIFY2(isHonest(result), qPrintable(result.reason()));
    }
    QCOMPARE(harness().opened(), QList<QUrl>());
}

} // namespace quellora
