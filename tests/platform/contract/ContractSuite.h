#pragma once

#include "platform/contract/PlatformHarness.h"
#include "platform/contract/ProbeWindow.h"

#include <QObject>
#include <QtTest>

#include <memory>

/// Skips the test if the harness lacks the ability; the message says what is not covered.
#define CONTRACT_REQUIRES(ability)                                                                 \
    do {                                                                                           \
        if (const QString reason = harness().missingAbilities().value(ability); !reason.isEmpty()) \
            QSKIP(qPrintable(reason));                                                             \
    } while (false)

/// Wait up to the harness's timeout for asynchronous effects.
#define CONTRACT_TRY_COMPARE(actual, expected)                                                     \
    QTRY_COMPARE_WITH_TIMEOUT(actual, expected, harness().timeout())
#define CONTRACT_TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, harness().timeout())

namespace quellora {

/// Base of all contract suites. Each test gets a new Platform and access to the harness.
class ContractSuite : public QObject
{
    Q_OBJECT
public:
    explicit ContractSuite(PlatformHarness &harness) : m_harness(harness) {}

    /// Runs all suites, or only the suite named by the first argument; Qt Test gets the other
    /// arguments. "--mistake NAME" injects that mistake into every platform under test.
    /// @return the number of failures
    static int runAll(PlatformHarness &harness, QStringList arguments);

protected:
    PlatformHarness &harness() { return m_harness; }
    Platform &platform() { return *m_platform; }
    void destroyPlatform() { m_platform.reset(); }
    void makePlatform();

    /// Processes events until the condition holds; false on timeout.
    template <typename Condition>
    bool waitFor(Condition condition)
    {
        return QTest::qWaitFor(condition, m_harness.timeout());
    }
    /// Whether the reason fits the state: none if applied, otherwise a sentence.
    static bool isConsistent(const Capability &result);
    /// Whether the result is valid and Applied or BestEffort.
    static bool succeeded(const Capability &result);

private Q_SLOTS:
    void init();
    void cleanup();

private:
    PlatformHarness &m_harness;
    std::unique_ptr<Platform> m_platform;
    static QString s_mistake;
};

/// Base of suites with a panel in front of another program's window, which has the keyboard focus.
class SceneSuite : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

    enum class Receiver { Neither, Panel, Other };
    Q_ENUM(Receiver)

protected:
    OtherWindow &other() { return *m_other; }
    ProbeWindow &panel() { return *m_panel; }
    PanelWindow &role() { return platform().panelWindow(); }

    /// Opens the other program's window and creates the hidden panel with its traits applied.
    bool prepareScene();
    /// Shows the panel and waits until it is above the other program's window.
    bool showPanel();
    /// Opens a second window of another program; other() returns it from then on.
    bool openAnotherWindow();
    /// Clicks and returns which window received it.
    /// @param position in the panel's coordinates
    Receiver clickAt(const QPoint &position);
    /// Clicks on the other program's window, outside the panel.
    Receiver clickOutsidePanel();
    /// Presses a key and returns which window received it, i.e. has the keyboard focus.
    Receiver keyboardReceiver();
    /// Waits until the panel is above the other program's window.
    bool waitUntilInFront();

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
