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

/// Contrast ratio of two opaque colours, 1 to 21, from their relative luminances.
double contrast(const QColor &a, const QColor &b)
{
    const double first = luminance(a);
    const double second = luminance(b);
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

/// Blends a translucent colour over an opaque one.
QColor over(const QColor &top, const QColor &base, double opacity = 1)
{
    const double a = top.alphaF() * opacity;
    const auto mix = [a](double t, double b) { return float(t * a + b * (1 - a)); };
    return QColor::fromRgbF(mix(top.redF(), base.redF()), mix(top.greenF(), base.greenF()),
                            mix(top.blueF(), base.blueF()));
}

/// Reads the colours of one set of tokens.
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

void verifyContrast(double ratio, double minimum, const char *name)
{
    QVERIFY2(ratio >= minimum,
             qPrintable(QStringLiteral("%1: %2, expected at least %3")
                            .arg(QLatin1StringView(name), QString::number(ratio, 'f', 2))
                            .arg(minimum)));
}

constexpr double textMinimum = 4.5;
constexpr double shapeMinimum = 3;

} // namespace

/// Minimum contrast of text and outlines with their backgrounds.
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

    void frameOverWhiteAndBlack_data()
    {
        QTest::addColumn<QColor>("backdrop");
        QTest::newRow("white") << QColor(Qt::white);
        QTest::newRow("black") << QColor(Qt::black);
    }
    void frameOverWhiteAndBlack()
    {
        QFETCH(QColor, backdrop);
        const Theme frame(*m_stage, "frame");
        const QColor surface = over(frame("background"), backdrop);
        verifyContrast(contrast(frame("text"), surface), 14, "text");
        verifyContrast(contrast(frame("dimText"), surface), 7, "secondary text");
        verifyContrast(contrast(frame("accentText"), surface), 7.9, "accent text");
        verifyContrast(contrast(frame("dangerText"), surface), textMinimum, "danger text");
        verifyContrast(contrast(frame("warnText"), surface), textMinimum, "warning text");
        verifyContrast(contrast(frame("icon"), surface), textMinimum, "icons");
        verifyContrast(contrast(frame("outline"), surface), shapeMinimum, "outline");
        verifyContrast(contrast(frame("ring"), surface), shapeMinimum, "focus ring");
        verifyContrast(contrast(frame("tooltipText"), frame("tooltip")), 7, "tooltip");
        for (const char *fill : {"raised", "input", "blockingCard"}) {
            verifyContrast(contrast(frame("text"), frame(fill)), textMinimum, fill);
            verifyContrast(contrast(frame("dimText"), frame(fill)), textMinimum, fill);
            verifyContrast(contrast(frame("dangerText"), frame(fill)), textMinimum, fill);
            verifyContrast(contrast(frame("accentText"), frame(fill)), textMinimum, fill);
        }
        // Text stays readable in the hovered and pressed states.
        for (const char *state : {"hover", "pressed", "secondary", "secondaryHover"})
            verifyContrast(contrast(frame("text"), over(frame(state), surface)), textMinimum,
                           state);
    }

    void filledButtons()
    {
        for (const char *name : {"frame", "dark", "light"}) {
            const Theme theme(*m_stage, name);
            verifyContrast(contrast(theme("textOnAccent"), theme("accentFill")), 5.1, "at rest");
            verifyContrast(contrast(theme("textOnAccent"), theme("accentFillHover")), 4.6,
                           "hovered");
            verifyContrast(contrast(theme("textOnAccent"), theme("accentFillPressed")), textMinimum,
                           "pressed");
            verifyContrast(contrast(Qt::white, theme("dangerFill")), textMinimum, "danger");
            verifyContrast(contrast(Qt::white, theme("dangerFillHover")), textMinimum,
                           "danger hovered");
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
            verifyContrast(contrast(sheet("text"), surface), 7, "text");
            verifyContrast(contrast(sheet("dimText"), surface), isDark ? 5 : textMinimum,
                           "muted text");
            verifyContrast(contrast(sheet("outline"), surface), isDark ? 2.7 : shapeMinimum,
                           "outline");
        }
        for (const QColor &surface : {sheet("background"), raised}) {
            verifyContrast(contrast(sheet("accentText"), surface), 5, "accent text");
            verifyContrast(contrast(sheet("dangerText"), surface), textMinimum, "danger text");
            verifyContrast(contrast(sheet("warnText"), surface), textMinimum, "warning text");
            verifyContrast(contrast(sheet("accent"), surface), shapeMinimum, "marks");
            verifyContrast(contrast(sheet("ring"), surface), shapeMinimum, "focus ring");
            verifyContrast(contrast(sheet("outline"), surface), shapeMinimum, "outline");
        }
        verifyContrast(contrast(sheet("accentText"), over(sheet("accent"), raised, 0.16)),
                       textMinimum, "recording chip");
        verifyContrast(contrast(sheet("text"), sheet("segmentOn")), 7, "selected segment");
        verifyContrast(contrast(sheet("knob"), sheet("switchOn")), shapeMinimum, "switch on");
        verifyContrast(contrast(sheet("knob"), sheet("switchOff")), shapeMinimum, "switch off");
        // The ghost button of a conflict is dimmed.
        verifyContrast(contrast(over(sheet("text"), raised, 0.72), raised), textMinimum,
                       "dimmed button");
        verifyContrast(contrast(sheet("text"), raised), 7, "dialog");
    }

    void themesDiffer()
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
