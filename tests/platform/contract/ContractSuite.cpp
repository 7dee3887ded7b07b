#include "platform/contract/ContractSuite.h"

#include "platform/contract/AppearanceContract.h"
#include "platform/contract/ClickThroughContract.h"
#include "platform/contract/GlobalHotkeysContract.h"
#include "platform/contract/KeyMonitorContract.h"
#include "platform/contract/Mistakes.h"
#include "platform/contract/PanelKeyboardContract.h"
#include "platform/contract/PanelWindowContract.h"
#include "platform/contract/PermissionsContract.h"
#include "platform/contract/ShellContract.h"
#include "platform/contract/SystemFactsContract.h"
#include "platform/contract/UserDefaultsContract.h"
#include "platform/contract/WorkspaceContract.h"

#include <QGuiApplication>
#include <QScreen>

#include <functional>

namespace quellora {
namespace {

const QRect panelGeometry{60, 40, 240, 200};

QRect desktop()
{
    return QGuiApplication::primaryScreen()->availableGeometry();
}

template <typename Suite>
int run(PlatformHarness &harness, const QString &only, const QStringList &arguments)
{
    if (!only.isEmpty() && !QString::fromLatin1(Suite::staticMetaObject.className()).endsWith(only))
        return 0;
    Suite suite(harness);
    return QTest::qExec(&suite, arguments);
}

template <typename... Suites>
int runSuites(PlatformHarness &harness, const QString &only, const QStringList &arguments)
{
    return (run<Suites>(harness, only, arguments) + ...);
}

} // namespace

QString ContractSuite::s_mistake;

int ContractSuite::runAll(PlatformHarness &harness, QStringList arguments)
{
    if (const auto at = arguments.indexOf(QStringLiteral("--mistake")); at > 0) {
        s_mistake = arguments.value(at + 1);
        arguments.remove(at, qMin(qsizetype(2), arguments.size() - at));
    }
    if (const QString reason = harness.prepare(); !reason.isEmpty()) {
        qCritical("Cannot run the suite: %s", qPrintable(reason));
        return 1;
    }
    QString only;
    if (arguments.size() > 1 && !arguments.at(1).startsWith(u'-'))
        only = arguments.takeAt(1);
    const int failures =
        runSuites<PanelWindowContract, PanelKeyboardContract, ClickThroughContract,
                  GlobalHotkeysContract, KeyMonitorContract, PermissionsContract,
                  AppearanceContract, WorkspaceContract, ShellContract, SystemFactsContract,
                  UserDefaultsContract>(harness, only, arguments);
    const QMap<Ability, QString> missingAbilities = harness.missingAbilities();
    for (const QString &reason : missingAbilities)
        qInfo("Not covered: %s", qPrintable(reason));
    return failures;
}

void ContractSuite::makePlatform()
{
    m_platform = m_harness.makePlatform();
    if (!s_mistake.isEmpty())
        m_platform = withMistake(std::move(m_platform), s_mistake);
}

bool ContractSuite::isConsistent(const Capability &result)
{
    if (result.isApplied())
        return result.reason().isEmpty();
    return result.reason().size() >= 10 && result.reason().contains(u' ') &&
           result.reason().front() == result.reason().front().toUpper();
}

bool ContractSuite::succeeded(const Capability &result)
{
    return isConsistent(result) && result.state() != Capability::State::Unsupported;
}

void ContractSuite::init()
{
    makePlatform();
    QVERIFY(m_platform);
}

void ContractSuite::cleanup()
{
    destroyPlatform();
}

bool SceneSuite::prepareScene()
{
    m_other = harness().openOther();
    if (!m_other)
        return false;
    m_panel = std::make_unique<ProbeWindow>();
    m_panel->setGeometry(panelGeometry.translated(desktop().topLeft()));
    return succeeded(role().applyPanelTraits(*m_panel));
}

bool SceneSuite::showPanel()
{
    return succeeded(role().orderFront(*m_panel)) && waitUntilInFront();
}

bool SceneSuite::openAnotherWindow()
{
    m_first = std::move(m_other);
    m_other = harness().openOther();
    return m_other != nullptr;
}

bool SceneSuite::waitUntilInFront()
{
    return QTest::qWaitForWindowExposed(m_panel.get()) &&
           waitFor([this] { return harness().isAbove(*m_panel, *m_other); });
}

template <typename Count>
SceneSuite::Receiver SceneSuite::awaitReceiver(Count panelCount, Count otherCount)
{
    if (!waitFor([&] { return panelCount() || otherCount(); }))
        return Receiver::Neither;
    return panelCount() ? Receiver::Panel : Receiver::Other;
}

SceneSuite::Receiver SceneSuite::clickAt(const QPoint &position)
{
    using Changed = std::function<bool()>;
    const auto before = m_panel->clicks.size();
    const auto otherBefore = m_other->clicks().size();
    if (!harness().click(m_panel->mapToGlobal(position)))
        return Receiver::Neither;
    return awaitReceiver(Changed([&] { return m_panel->clicks.size() > before; }),
                         Changed([&] { return m_other->clicks().size() > otherBefore; }));
}

SceneSuite::Receiver SceneSuite::clickOutsidePanel()
{
    return clickAt(m_panel->mapFromGlobal(desktop().bottomRight() - QPoint(80, 60)));
}

SceneSuite::Receiver SceneSuite::keyboardReceiver()
{
    using Changed = std::function<bool()>;
    const auto before = m_panel->keys.size();
    const auto otherBefore = m_other->keys().size();
    if (!harness().press({{QStringLiteral("k"), {}}}))
        return Receiver::Neither;
    return awaitReceiver(Changed([&] { return m_panel->keys.size() > before; }),
                         Changed([&] { return m_other->keys().size() > otherBefore; }));
}

void SceneSuite::cleanup()
{
    m_panel.reset();
    m_other.reset();
    m_first.reset();
    destroyPlatform();
}

} // namespace quellora
