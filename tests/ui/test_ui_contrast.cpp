#include "UiStage.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QtTest>

#include <algorithm>
#include <cmath>

using namespace quellora;

namespace {

double channelLuminance(double value)
{
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

double luminance(const QColor &color)
{
    return 0.2126 * channelLuminance(color.redF()) + 0.7152 * channelLuminance(color.greenF()) +
           0.0722 * channelLuminance(color.blueF());
}

/// Contrast of two opaque colours, 1 to 21.
double contrast(const QColor &a, const QColor &b)
{
    const double first = luminance(a);
    const double second = luminance(b);
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

/// A translucent colour over an opaque one.
QColor over(const QColor &top, const QColor &base, double share = 1)
{
    const double a = top.alphaF() * share;
    const auto mix = [a](double t, double b) { return float(t * a + b * (1 - a)); };
    return QColor::fromRgbF(mix(top.redF(), base.redF()), mix(top.greenF(), base.greenF()),
                            mix(top.blueF(), base.blueF()));
}

/// One set of tokens.
class Theme
{
public:
    Theme(const Stage &stage, const char *name)
        : m_tokens(stage.root->property(name).value<QObject *>())
    {}
    QColor operator()(const char *token) const
    {
        const QVariant value = m_tokens->property(token);
        if (!value.isValid())
            qFatal("no token %s", token);
        return value.value<QColor>();
    }

private:
    QObject *m_tokens;
};

void require(double ratio, double least, const char *what)
{
    QVERIFY2(ratio >= least,
             qPrintable(QStringLiteral("%1: %2, wanted %3")
                            .arg(QLatin1StringView(what), QString::number(ratio, 'f', 2))
                            .arg(least)));
}

constexpr double words = 4.5;
constexpr double shapes = 3;

} // namespace

/// Words and outlines can be told from what is behind them, whatever that is.
class TestUiContrast : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        initializeUi();
        m_stage = std::make_unique<Stage>("property QtObject frame: Tokens.frame\n"
                                          "property QtObject dark: Tokens.sheetDark\n"
                                          "property QtObject light: Tokens.sheetLight\n");
    }
    void cleanupTestCase() { m_stage.reset(); }

    void formula()
    {
        QCOMPARE(qRound(contrast(Qt::white, Qt::black)), 21);
        QCOMPARE(qRound(contrast(QColor(0x76, 0x76, 0x76), Qt::white) * 100), 454);
    }

    void frameOverAnything_data()
    {
        QTest::addColumn<QColor>("behind");
        QTest::newRow("white") << QColor(Qt::white);
        QTest::newRow("black") << QColor(Qt::black);
    }
    void frameOverAnything()
    {
        QFETCH(QColor, behind);
        const Theme frame(*m_stage, "frame");
        const QColor surface = over(frame("background"), behind);
        require(contrast(frame("text"), surface), 14, "text");
        require(contrast(frame("dimText"), surface), 7, "secondary text");
        require(contrast(frame("accentText"), surface), 7.9, "accent text");
        require(contrast(frame("dangerText"), surface), words, "danger text");
        require(contrast(frame("warnText"), surface), words, "warning text");
        require(contrast(frame("icon"), surface), words, "icons");
        require(contrast(frame("outline"), surface), shapes, "outline");
        require(contrast(frame("ring"), surface), shapes, "focus ring");
        require(contrast(frame("tooltipText"), frame("tooltip")), 7, "tooltip");
        for (const char *fill : {"raised", "input", "blockingCard"}) {
            require(contrast(frame("text"), frame(fill)), words, fill);
            require(contrast(frame("dimText"), frame(fill)), words, fill);
            require(contrast(frame("dangerText"), frame(fill)), words, fill);
            require(contrast(frame("accentText"), frame(fill)), words, fill);
        }
        // What hovers and presses keeps its words readable.
        for (const char *state : {"hover", "pressed", "secondary", "secondaryHover"})
            require(contrast(frame("text"), over(frame(state), surface)), words, state);
    }

    void filledButtons()
    {
        for (const char *name : {"frame", "dark", "light"}) {
            const Theme theme(*m_stage, name);
            require(contrast(theme("textOnAccent"), theme("accentFill")), 5.1, "at rest");
            require(contrast(theme("textOnAccent"), theme("accentFillHover")), 4.6, "hovered");
            require(contrast(theme("textOnAccent"), theme("accentFillPressed")), words, "pressed");
            require(contrast(Qt::white, theme("dangerFill")), words, "danger");
            require(contrast(Qt::white, theme("dangerFillHover")), words, "danger hovered");
        }
    }

    void sheets_data()
    {
        QTest::addColumn<bool>("isDark");
        QTest::newRow("dark") << true;
        QTest::newRow("light") << false;
    }
    void sheets()
    {
        QFETCH(bool, isDark);
        const Theme sheet(*m_stage, isDark ? "dark" : "light");
        const QColor raised = sheet("raised");
        const QList<QColor> surfaces{sheet("background"), raised, sheet("input"),
                                     over(sheet("hover"), raised),
                                     over(sheet("selectedRow"), raised)};
        for (const QColor &surface : surfaces) {
            require(contrast(sheet("text"), surface), 7, "text");
            require(contrast(sheet("dimText"), surface), isDark ? 5 : words, "muted text");
            require(contrast(sheet("outline"), surface), isDark ? 2.7 : shapes, "outline");
        }
        for (const QColor &surface : {sheet("background"), raised}) {
            require(contrast(sheet("accentText"), surface), 5, "accent text");
            require(contrast(sheet("dangerText"), surface), words, "danger text");
            require(contrast(sheet("warnText"), surface), words, "warning text");
            require(contrast(sheet("accent"), surface), shapes, "marks");
            require(contrast(sheet("ring"), surface), shapes, "focus ring");
            require(contrast(sheet("outline"), surface), shapes, "outline");
        }
        // The recording chip, the chosen segment, the knob of a switch.
        require(contrast(sheet("accentText"), over(sheet("accent"), raised, 0.16)), words,
                "recording chip");
        require(contrast(sheet("text"), sheet("segmentOn")), 7, "chosen segment");
        require(contrast(sheet("knob"), sheet("switchOn")), shapes, "switch on");
        require(contrast(sheet("knob"), sheet("switchOff")), shapes, "switch off");
        // The ghost button of a conflict is drawn a little back.
        require(contrast(over(sheet("text"), raised, 0.72), raised), words, "drawn back");
        // A dialog over the scrim stands on its own surface.
        require(contrast(sheet("text"), raised), 7, "dialog");
    }

    void theTwoThemesDiffer()
    {
        const Theme dark(*m_stage, "dark");
        const Theme light(*m_stage, "light");
        QVERIFY(contrast(dark("background"), light("background")) > 14);
    }

private:
    std::unique_ptr<Stage> m_stage;
};

QUELLORA_TEST(QGuiApplication, TestUiContrast)
#include "test_ui_contrast.moc"
