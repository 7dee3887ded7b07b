#include "panels/PromptListModel.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QtTest>

using namespace quellora;

namespace {

const QList<PromptPreset> prompts{
    {"explain", "Explain", "Explain it.\nIn simple words."},
    {"fix-error", "Fix the error", "Fix it."},
    {"sum", "Sum up / list", "Sum it up."},
};

QStringList names(const PromptListModel &model)
{
    QStringList names;
    for (int row = 0; row < model.rowCount(); ++row)
        names << model.data(model.index(row), PromptListModel::NameRole).toString();
    return names;
}

} // namespace

class PromptListModelTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void listsNamesAndPreviews()
    {
        PromptListModel model;
        QSignalSpy available(&model, &PromptListModel::isAvailableChanged);
        QVERIFY(!model.isAvailable());
        model.setPrompts(prompts);
        QCOMPARE(available.size(), 1);
        QCOMPARE(names(model), (QStringList{"Explain", "Fix the error", "Sum up / list"}));
        QCOMPARE(model.data(model.index(0), PromptListModel::PreviewRole),
                 "Explain it. In simple words.");
        QCOMPARE(model.data(model.index(1), PromptListModel::HotkeyRole), "prompt.fix-error");
        QCOMPARE(model.textAt(0), "Explain it.\nIn simple words.");
        for (const int row : {-1, 3})
            QCOMPARE(model.textAt(row), "");
        model.setPrompts({});
        QCOMPARE(available.size(), 2);
        QVERIFY(!model.isAvailable());
        QCOMPARE(model.count(), 0);
    }

    void longTextsHaveShortPreviews()
    {
        PromptListModel model;
        model.setPrompts({{"a", "A", QString(4000, 'b')}});
        QCOMPARE(model.data(model.index(0), PromptListModel::PreviewRole).toString().size(), 200);
    }

    void matches_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QStringList>("matches");
        const QStringList all{"Explain", "Fix the error", "Sum up / list"};
        QTest::newRow("slash") << "/" << all;
        QTest::newRow("start") << "/ex" << QStringList{"Explain"};
        QTest::newRow("case") << "/FIX" << QStringList{"Fix the error"};
        QTest::newRow("word") << "/e" << QStringList{"Explain", "Fix the error"};
        QTest::newRow("words") << "/fix the e" << QStringList{"Fix the error"};
        QTest::newRow("whole name") << "/sum up / list" << QStringList{"Sum up / list"};
        QTest::newRow("inside a word") << "/rror" << QStringList();
        QTest::newRow("path") << "/etc/hosts" << QStringList();
        QTest::newRow("short path") << "/tmp" << QStringList();
        QTest::newRow("path of one letter") << "/e/" << QStringList();
        QTest::newRow("two slashes") << "//e" << QStringList();
        QTest::newRow("a sentence") << "/explain this" << QStringList();
        QTest::newRow("two lines") << "/\n" << QStringList();
        QTest::newRow("a space") << "/ " << QStringList();
        QTest::newRow("no slash") << "explain" << QStringList();
        QTest::newRow("empty") << "" << QStringList();
        QTest::newRow("long") << '/' + QString(100000, 'e') << QStringList();
    }
    void matches()
    {
        QFETCH(QString, typed);
        QFETCH(QStringList, matches);
        PromptListModel model;
        model.setPrompts(prompts);
        QCOMPARE(model.showMatches(typed), !matches.isEmpty());
        QCOMPARE(names(model), matches);
        model.showAll();
        QCOMPARE(model.count(), 3);
    }

    void sameMatchesKeepTheRows()
    {
        PromptListModel model;
        model.setPrompts(prompts);
        model.showMatches("/e");
        QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
        QSignalSpy count(&model, &PromptListModel::countChanged);
        model.showMatches("/E");
        QCOMPARE(reset.size(), 0);
        model.showMatches("/ex");
        QCOMPARE(reset.size(), 1);
        QCOMPARE(count.size(), 1);
    }
};

QUELLORA_TEST(QCoreApplication, PromptListModelTest)
#include "test_prompt_list_model.moc"
