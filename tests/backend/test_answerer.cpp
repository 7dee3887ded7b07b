#include "backend/Answerer.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

using namespace quellora;

namespace {

ModelOption model(const QString &id, const QString &displayName)
{
    ModelOption option;
    option.id = id;
    option.displayName = displayName;
    return option;
}

} // namespace

class TestAnswerer : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void resolvesAssistantName_data()
    {
        QTest::addColumn<QList<ModelOption>>("models");
        QTest::addColumn<QString>("selected");
        QTest::addColumn<QString>("name");
        using Models = QList<ModelOption>;
        const Models others{model("local-1", "Offline reader"), model("deep-2", "Deep")};
        QTest::newRow("nothing on offer") << Models{} << QString() << "Claude";
        QTest::newRow("nothing on offer, one chosen before") << Models{} << "deep-2"
                                                             << "Claude";
        QTest::newRow("first of others") << others << "local-1"
                                         << "Offline reader";
        QTest::newRow("second of others") << others << "deep-2"
                                          << "Deep";
        QTest::newRow("others, none chosen") << others << QString() << "the model";
        QTest::newRow("others, the chosen one is gone") << others << "gone"
                                                        << "the model";
        QTest::newRow("in an id") << Models{model("deep-2", "Deep"), model("claude-3", "Fast")}
                                  << "deep-2"
                                  << "Claude";
        QTest::newRow("in a name")
            << Models{model("deep-2", "Deep"), model("c", "My Claude")} << "deep-2"
            << "Claude";
        QTest::newRow("upper case in an id") << Models{model("X-CLAUDE", "Deep")} << "X-CLAUDE"
                                             << "Claude";
        QTest::newRow("upper case in a name") << Models{model("x", "CLAUDE")} << "x"
                                              << "Claude";
        QTest::newRow("blanks and line breaks") << Models{model("x", " Off\nline  reader ")} << "x"
                                                << "Off line reader";
        QTest::newRow("nameless") << Models{model("x", " ")} << "x"
                                  << "the model";
    }
    void resolvesAssistantName()
    {
        QFETCH(QList<ModelOption>, models);
        QFETCH(QString, selected);
        QFETCH(QString, name);
        QCOMPARE(answererName(models, selected), name);
    }
};

QUELLORA_TEST(QCoreApplication, TestAnswerer)
#include "test_answerer.moc"
