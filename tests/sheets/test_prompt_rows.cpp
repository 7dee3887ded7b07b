#include "base/UserDefaults.h"
#include "sheets/settings/PromptRows.h"
#include "support/TestProgram.h"

#include <QAbstractItemModelTester>
#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

struct Fixture
{
    QStringList names()
    {
        QStringList names;
        for (int row = 0; row < rows.rowCount(); ++row)
            names << rows.data(rows.index(row), PromptRows::NameRole).toString();
        return names;
    }
    bool is(int row, PromptRows::Role role) { return rows.data(rows.index(row), role).toBool(); }
    QStringList stored()
    {
        QStringList names;
        const PromptPresets read(defaults);
        for (const PromptPreset &preset : read.list())
            names << preset.name;
        return names;
    }

    JsonUserDefaults defaults;
    PromptPresets presets{defaults};
    PromptRows rows{presets};
    QAbstractItemModelTester tester{&rows, QAbstractItemModelTester::FailureReportingMode::QtTest};
};

const QStringList builtIn{"Explain", "Fix the error", "Translate"};

} // namespace

class PromptRowsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void listsThePrompts()
    {
        Fixture f;
        QCOMPARE(f.names(), builtIn);
        QVERIFY(f.rows.canAdd());
        QVERIFY(!f.rows.isBusy());
        QVERIFY(
            f.rows.data(f.rows.index(0), PromptRows::TextRole).toString().startsWith("Explain"));
    }

    void editsOneRow()
    {
        Fixture f;
        QSignalSpy reset(&f.rows, &QAbstractItemModel::modelReset);
        f.rows.edit(1);
        QVERIFY(f.rows.isBusy());
        QVERIFY(f.is(1, PromptRows::EditingRole));
        QVERIFY(!f.is(0, PromptRows::EditingRole));
        QVERIFY(!f.is(1, PromptRows::AskingRole));
        f.rows.save(" Mend it ", " Do it. ");
        QCOMPARE(f.names(), (QStringList{"Explain", "Mend it", "Translate"}));
        QCOMPARE(f.stored(), f.names());
        QCOMPARE(f.presets.find("fix-error"), (PromptPreset{"fix-error", "Mend it", "Do it."}));
        QVERIFY(!f.rows.isBusy());
        QCOMPARE(reset.size(), 0);
    }

    void whatCannotBeSavedIsExplained()
    {
        Fixture f;
        f.rows.edit(0);
        f.rows.save("", "text");
        QCOMPARE(f.rows.error(), "The prompt needs a name.");
        QVERIFY(f.is(0, PromptRows::EditingRole));
        f.rows.save("translate", "text");
        QCOMPARE(f.rows.error(), "Another prompt has this name.");
        QCOMPARE(f.stored(), builtIn);
        f.rows.save("Other", "text");
        QCOMPARE(f.rows.error(), "");
        QCOMPARE(f.stored().first(), "Other");
    }

    void addsAtTheEnd()
    {
        Fixture f;
        f.rows.add();
        QCOMPARE(f.names(), builtIn + QStringList{""});
        QVERIFY(f.is(3, PromptRows::EditingRole));
        QVERIFY(!f.rows.canAdd());
        f.rows.add();
        QCOMPARE(f.rows.rowCount(), 4);
        f.rows.save("", "");
        QCOMPARE(f.rows.error(), "The prompt needs a name.");
        f.rows.save("Sum up", "Sum it up.");
        QCOMPARE(f.names(), builtIn + QStringList{"Sum up"});
        QCOMPARE(f.stored(), f.names());
        QVERIFY(f.rows.canAdd());
        // The new row is the stored prompt.
        f.rows.edit(3);
        f.rows.save("Shorten", "Make it short.");
        QCOMPARE(f.stored(), builtIn + QStringList{"Shorten"});
    }

    void aNewRowIsDroppedByCancel()
    {
        Fixture f;
        f.rows.add();
        f.rows.cancel();
        QCOMPARE(f.names(), builtIn);
        QVERIFY(f.rows.canAdd());
        // Also by editing another one.
        f.rows.add();
        f.rows.edit(0);
        QCOMPARE(f.names(), builtIn);
        QVERIFY(f.is(0, PromptRows::EditingRole));
        f.rows.add();
        f.rows.askToRemove(2);
        QCOMPARE(f.names(), builtIn);
        QVERIFY(f.is(2, PromptRows::AskingRole));
        QCOMPARE(f.stored(), builtIn);
    }

    void addingEndsEditing()
    {
        Fixture f;
        f.rows.edit(0);
        f.rows.add();
        QVERIFY(!f.is(0, PromptRows::EditingRole));
        QVERIFY(f.is(3, PromptRows::EditingRole));
    }

    void removesAfterAsking()
    {
        Fixture f;
        f.rows.remove();
        f.rows.edit(0);
        f.rows.remove();
        QCOMPARE(f.stored(), builtIn);
        f.rows.askToRemove(1);
        QVERIFY(f.is(1, PromptRows::AskingRole));
        QVERIFY(!f.is(1, PromptRows::EditingRole));
        f.rows.save("A", "B");
        QCOMPARE(f.stored(), builtIn);
        f.rows.cancel();
        QVERIFY(!f.rows.isBusy());
        f.rows.askToRemove(1);
        f.rows.remove();
        QCOMPARE(f.names(), (QStringList{"Explain", "Translate"}));
        QCOMPARE(f.stored(), f.names());
        QVERIFY(!f.rows.isBusy());
        for (int i = 0; i < 2; ++i) {
            f.rows.askToRemove(0);
            f.rows.remove();
        }
        QCOMPARE(f.rows.rowCount(), 0);
        QVERIFY(f.rows.canAdd());
    }

    void movesRows()
    {
        Fixture f;
        QSignalSpy moved(&f.rows, &QAbstractItemModel::rowsMoved);
        f.rows.move(0, 1);
        QCOMPARE(f.names(), (QStringList{"Fix the error", "Explain", "Translate"}));
        QCOMPARE(f.stored(), f.names());
        f.rows.move(2, -1);
        QCOMPARE(f.names(), (QStringList{"Fix the error", "Translate", "Explain"}));
        QCOMPARE(f.stored(), f.names());
        QCOMPARE(moved.size(), 2);
        f.rows.move(0, -1);
        f.rows.move(2, 1);
        f.rows.move(7, -1);
        f.rows.move(-1, 1);
        f.rows.edit(0);
        f.rows.move(0, 1);
        QCOMPARE(moved.size(), 2);
    }

    void rowsThatDoNotExistAreIgnored()
    {
        Fixture f;
        for (const int row : {-1, 3}) {
            f.rows.edit(row);
            f.rows.askToRemove(row);
            QVERIFY(!f.rows.isBusy());
        }
        f.rows.save("A", "B");
        f.rows.cancel();
        QCOMPARE(f.stored(), builtIn);
        // The row of a new prompt has nothing to remove.
        f.rows.add();
        f.rows.askToRemove(3);
        QVERIFY(f.is(3, PromptRows::EditingRole));
    }

    void aFullListTakesNoMore()
    {
        Fixture f;
        while (!f.presets.isFull())
            f.presets.add(QString::number(f.presets.list().size()), "text");
        QVERIFY(f.rows.isFull());
        QVERIFY(!f.rows.canAdd());
        f.rows.add();
        QCOMPARE(f.rows.rowCount(), int(PromptPresets::maximumCount));
    }

    void changesMadeElsewhereAreListed()
    {
        Fixture f;
        f.rows.add();
        f.presets.remove("explain");
        QCOMPARE(f.names(), (QStringList{"Fix the error", "Translate"}));
        QVERIFY(!f.rows.isBusy());
        QVERIFY(f.rows.canAdd());
    }
};

QUELLORA_TEST(QCoreApplication, PromptRowsTest)
#include "test_prompt_rows.moc"
