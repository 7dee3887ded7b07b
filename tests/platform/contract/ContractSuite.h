#pragma once

#include "platform/contract/PlatformHarness.h"
#include "platform/contract/ProbeWindow.h"

#include <QObject>
#include <QtTest>

#include <memory>

/// Leaves a test out where the system lacks the ability, saying what was not observed.
#define CONTRACT_NEEDS(ability)                                                                    \
    do {                                                                                           \
        if (const QString lacking = harness().missing().value(ability); !lacking.isEmpty())        \
            QSKIP(qPrintable(lacking));                                                            \
    } while (false)

/// Await what a system does in its own time.
#define CONTRACT_TRY_COMPARE(actual, expected)                                                     \
    QTRY_COMPARE_WITH_TIMEOUT(actual, expected, harness().patience())
#define CONTRACT_TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, harness().patience())

namespace quellora {

/// What every suite of the contract has: fresh roles for each test, and the world around them.
class ContractSuite : public QObject
{
    Q_OBJECT
public:
    explicit ContractSuite(PlatformHarness &harness) : m_harness(harness) {}

    /// Runs every suite, or the one that the first argument names with the rest for Qt Test.
    /// "--mistake NAME" plants a mistake in every platform.
    /// @return the number of failures
    static int runAll(PlatformHarness &harness, QStringList arguments);

protected:
    PlatformHarness &harness() { return m_harness; }
    Platform &platform() { return *m_platform; }
    void destroyPlatform() { m_platform.reset(); }
    void makePlatform();

    /// Handles events until the condition holds; false when it never does.
    template <typename Condition>
    bool awaits(Condition condition)
    {
        return QTest::qWaitFor(condition, m_harness.patience());
    }
    /// Applied without a reason, or anything else with a sentence that says why.
    static bool isHonest(const Capability &result);
    /// That which happened: applied, or as well as this system can.
    static bool hasHappened(const Capability &result);

private Q_SLOTS:
    void init();
    void cleanup();

private:
    PlatformHarness &m_harness;
    std::unique_ptr<Platform> m_platform;
    static QString s_mistake;
};

/// Suites with a panel in front of another program's window, which has the keyboard.
class SceneSuite : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

    enum class Receiver { Nobody, Panel, Other };
    Q_ENUM(Receiver)

protected:
    OtherWindow &other() { return *m_other; }
    ProbeWindow &panel() { return *m_panel; }
    PanelWindow &role() { return platform().panelWindow(); }

    /// Opens the other program's window and makes the panel, not yet shown, with its traits.
    bool prepareScene();
    /// Shows the panel and waits until it is in front.
    bool showPanel();
    /// Another window takes the place of the other program's.
    bool openAnother();
    /// Clicks and says who got it.
    /// @param place in the panel's coordinates
    Receiver clickAt(const QPoint &place);
    /// Clicks on the other program, far from the panel.
    Receiver clickBeside();
    /// Presses a key and says who got it: the one that has the keyboard.
    Receiver whoHasTheKeyboard();
    /// Waits until the panel is in front of the other program.
    bool comesToTheFront();

private Q_SLOTS:
    void cleanup();

private:
    template <typename Count>
    Receiver awaitReceiver(Count panelCount, Count otherCount);

    std::unique_ptr<OtherWindow> m_first;
    std::unique_ptr<OtherWindow> m_other;
    std::unique_ptr<ProbeWindow> m_panel;
};

} // namespace quellora
