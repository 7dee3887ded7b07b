#include "history/TextFolding.h"
#include "support/TestProgram.h"

#include <QTest>

using namespace quellora;

namespace {

std::string_view view(const QByteArray &bytes)
{
    return {bytes.constData(), size_t(bytes.size())};
}

/// The part of @p text that @p searched finds; null if it finds nothing.
QString found(const QString &text, const QString &searched,
              const QLocale &locale = QLocale("en_US"))
{
    const QByteArray bytes = text.toUtf8();
    const auto range = SearchText(searched, locale).findIn(view(bytes));
    return range ? QString::fromUtf8(bytes.mid(range->start, range->length)) : QString();
}

} // namespace

class TestTextFolding : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void reducesTexts_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("reduced");
        QTest::newRow("empty") << ""
                               << "";
        QTest::newRow("case") << "Nightly EXPORT"
                              << "nightly export";
        QTest::newRow("accents") << "Éclair ÜBER façade"
                                 << "eclair uber facade";
        QTest::newRow("accents of their own") << "e\u0301a\u0308"
                                              << "ea";
        QTest::newRow("several accents") << "Ầ"
                                         << "a";
        QTest::newRow("longer form") << "Straße ﬃ"
                                     << "strasse ffi";
        QTest::newRow("much longer form")
            << "\uFDFA" << QString("\uFDFA").normalized(QString::NormalizationForm_KD);
        QTest::newRow("white space") << "a \n\t b\u00a0c\u3000d"
                                     << "a b c d";
        QTest::newRow("full width") << "ＡＢＣ"
                                    << "abc";
        QTest::newRow("Greek") << "ΌΔΟΣ οδός"
                               << "οδοσ οδοσ";
        QTest::newRow("Cyrillic") << "Ёлка"
                                  << "елка";
        QTest::newRow("Hangul") << "한국"
                                << "한국";
        QTest::newRow("beyond the basic plane") << "a😀B"
                                                << "a😀b";
        QTest::newRow("dotted I") << "İ"
                                  << "i";
    }
    void reducesTexts()
    {
        QFETCH(QString, text);
        QFETCH(QString, reduced);
        TextFolding folding(QLocale("en_US"));
        const QByteArray bytes = text.toUtf8();
        QCOMPARE(QString::fromUtf8(folding.fold(view(bytes))), reduced);
        // The buffer of a longer text does not show through.
        QByteArray buffer(1000, 'x');
        folding.fold(view(bytes), buffer);
        QCOMPARE(QString::fromUtf8(buffer), reduced);
    }

    void localeDecidesOnCase()
    {
        QCOMPARE(found("ISPARTA", "ısparta", QLocale("tr_TR")), QString("ISPARTA"));
        QCOMPARE(found("ISPARTA", "isparta", QLocale("tr_TR")), QString());
        QCOMPARE(found("ISPARTA", "isparta"), QString("ISPARTA"));
    }

    void findsTheSourceOfTheOccurrence_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("searched");
        QTest::addColumn<QString>("part");
        QTest::newRow("beginning") << "Export rows"
                                   << "export"
                                   << "Export";
        QTest::newRow("end") << "The last EXPORT"
                             << "export"
                             << "EXPORT";
        QTest::newRow("after accents") << "àéîõü Zoë!"
                                       << "zoe"
                                       << "Zoë";
        QTest::newRow("accent belongs to its letter") << "ae\u0301b"
                                                      << "ae"
                                                      << "ae\u0301";
        QTest::newRow("accent in the search text") << "resume"
                                                   << "résumé"
                                                   << "resume";
        QTest::newRow("half of a longer form") << "Maße"
                                               << "as"
                                               << "aß";
        QTest::newRow("over a line break") << "one\n\n  two"
                                           << "one two"
                                           << "one\n\n  two";
        QTest::newRow("surrounded by spaces") << "a b c"
                                              << "  b  "
                                              << "b";
        QTest::newRow("twice: the first") << "bar Bar"
                                          << "BAR"
                                          << "bar";
        QTest::newRow("absent") << "export"
                                << "import" << QString();
        QTest::newRow("emoji") << "a😀B😀c"
                               << "b😀"
                               << "B😀";
    }
    void findsTheSourceOfTheOccurrence()
    {
        QFETCH(QString, text);
        QFETCH(QString, searched);
        QFETCH(QString, part);
        QCOMPARE(found(text, searched), part);
    }

    void blankTextsAreEmpty()
    {
        const QLocale locale("en_US");
        QVERIFY(SearchText("", locale).isEmpty());
        QVERIFY(SearchText(" \n ", locale).isEmpty());
        QVERIFY(SearchText("\u0301", locale).isEmpty());
        QVERIFY(!SearchText("a", locale).isEmpty());
        QVERIFY(SearchText(" Ä ", locale) == SearchText("a", locale));
        QVERIFY(!(SearchText("a", locale) == SearchText("b", locale)));
    }

    /// Any bytes may come from a file.
    void survivesBytesThatAreNoText()
    {
        TextFolding folding(QLocale::c());
        for (int first = 0; first < 256; ++first) {
            for (const int second : {0x00, 0x41, 0x80, 0xbf, 0xff}) {
                for (int length = 1; length <= 4; ++length) {
                    QByteArray bytes(length, char(second));
                    bytes[0] = char(first);
                    const QByteArray folded = folding.fold(view(bytes));
                    const TextRange range = folding.sourceOf(view(bytes), {0, folded.size()});
                    QVERIFY(range.start + range.length <= bytes.size());
                }
            }
        }
    }
};

QUELLORA_TEST(void, TestTextFolding)
#include "test_text_folding.moc"
