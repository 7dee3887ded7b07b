#include "fakes/LogCapture.h"
#include "platform/linux/DesktopShortcutsPortal.h"
#include "platform/linux/FakePortal.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDBusObjectPath>
#include <QSignalSpy>
#include <QThreadPool>
#include <QtTest>

#include <memory>
#include <optional>

using namespace quellora;

namespace {

using Binding = DesktopShortcutsPortal::Binding;

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");
const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");

using Keys = QMap<QString, QString>;

/// Shortcuts as the portal reports them; an empty key is one that the user did not assign.
PortalShortcuts described(const Keys &keys)
{
    PortalShortcuts shortcuts;
    for (auto key = keys.begin(); key != keys.end(); ++key) {
        QVariantMap properties{{"description", "Something"}};
        if (!key->isEmpty())
            properties.insert("trigger_description", *key);
        shortcuts << PortalShortcut{key.key(), properties};
    }
    return shortcuts;
}

/// The shortcuts portal of a desktop.
class FakeShortcutsPortal : public BusService
{
public:
    /// What becomes of a request.
    struct Answer
    {
        /// The code of the Response; nothing: none is sent.
        std::optional<uint> code = 0;
        /// The call itself fails.
        bool isRefused = false;
        QVariantMap results = {};
    };

    explicit FakeShortcutsPortal(const QString &busAddress)
        : BusService(busAddress, portalService, portalPath)
    {}

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        calls << message.member();
        const QVariantList arguments = message.arguments();
        if (message.member() == QStringLiteral("Register")) {
            appId = arguments.value(0).toString();
            connection.send(message.createErrorReply(QDBusError::UnknownInterface, "no registry"));
        } else if (message.member() == QStringLiteral("Get")) {
            connection.send(
                version ? message.createReply(
                              QVariant::fromValue(QDBusVariant(QVariant::fromValue(*version))))
                        : message.createErrorReply(QDBusError::UnknownInterface, "no such portal"));
        } else if (message.member() == QStringLiteral("CreateSession")) {
            const auto options = qdbus_cast<QVariantMap>(arguments.value(0));
            createOptions = options;
            session = portalPath + QStringLiteral("/session/") + sender(message) + u'/' +
                      options.value(QStringLiteral("session_handle_token")).toString();
            Answer answer = created;
            if (!answer.results.contains(QStringLiteral("session_handle")))
                answer.results.insert(QStringLiteral("session_handle"), session);
            respond(message, options, answer);
        } else if (message.member() == QStringLiteral("BindShortcuts")) {
            boundSession = arguments.value(0).value<QDBusObjectPath>().path();
            boundShortcuts = qdbus_cast<PortalShortcuts>(arguments.value(1));
            respond(message, qdbus_cast<QVariantMap>(arguments.value(3)), bound);
        } else if (message.member() == QStringLiteral("ListShortcuts")) {
            respond(message, qdbus_cast<QVariantMap>(arguments.value(1)), listed);
        } else if (message.member() == QStringLiteral("Close")) {
            closedSession = message.path();
        } else {
            return false;
        }
        return true;
    }

    bool activate(const QString &id, const QString &inSession)
    {
        return emitSignal(portalPath, shortcutsInterface, QStringLiteral("Activated"),
                          {QVariant::fromValue(QDBusObjectPath(inSession)), id,
                           QVariant::fromValue(quint64(1)), QVariantMap()});
    }
    bool activate(const QString &id) { return activate(id, session); }
    bool change(const Keys &keys, const QString &inSession)
    {
        return emitSignal(portalPath, shortcutsInterface, QStringLiteral("ShortcutsChanged"),
                          {QVariant::fromValue(QDBusObjectPath(inSession)),
                           QVariant::fromValue(described(keys))});
    }
    bool change(const Keys &keys) { return change(keys, session); }
    bool close()
    {
        return emitSignal(session, sessionInterface, QStringLiteral("Closed"), {QVariantMap()});
    }
    /// Sends the response that was held back.
    void release(uint code) { sendResponse(code, {}); }

    void assign(const Keys &keys)
    {
        const auto shortcuts = QVariant::fromValue(described(keys));
        bound.results.insert(QStringLiteral("shortcuts"), shortcuts);
        listed.results.insert(QStringLiteral("shortcuts"), shortcuts);
    }
    qsizetype count(const char *method) const { return calls.count(QString(method)); }

    std::optional<uint> version = 1;
    Answer created;
    Answer bound;
    Answer listed;
    /// The response comes before the answer to the call.
    bool isEarly = false;
    /// The handle is not derived from the token.
    bool isOld = false;
    /// Responses have no results.
    bool isMalformed = false;

    QStringList calls;
    QString appId;
    QVariantMap createOptions;
    PortalShortcuts boundShortcuts;
    QString session;
    QString boundSession;
    QString closedSession;
    QString requestHandle;
    QString client;

private:
    static QString sender(const QDBusMessage &message)
    {
        return message.service().mid(1).replace(u'.', u'_');
    }
    void respond(const QDBusMessage &message, const QVariantMap &options, const Answer &answer)
    {
        client = message.service();
        requestHandle = portalPath + QStringLiteral("/request/") + sender(message) + u'/' +
                        (isOld ? QStringLiteral("t1")
                               : options.value(QStringLiteral("handle_token")).toString());
        QDBusConnection bus(portalService);
        if (answer.isRefused) {
            bus.send(message.createErrorReply(QDBusError::AccessDenied, "not\n  for you"));
            return;
        }
        if (isEarly)
            sendResponse(*answer.code, answer.results);
        bus.send(message.createReply(QVariant::fromValue(QDBusObjectPath(requestHandle))));
        if (!isEarly && answer.code)
            sendResponse(*answer.code, answer.results);
    }
    void sendResponse(uint code, const QVariantMap &results)
    {
        QDBusMessage response = QDBusMessage::createTargetedSignal(
            client, requestHandle, requestInterface, QStringLiteral("Response"));
        response << code;
        if (!isMalformed)
            response << results;
        QDBusConnection(portalService).send(response);
    }
};

const Keys assigned{{"capture", "Ctrl+Alt+C"}, {"toggle", "Meta+T"}};

} // namespace

/// Uses a private session bus with a fake portal.
class DesktopShortcutsPortalTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QVERIFY(m_bus.start()); }
    void init()
    {
        startPortal();
        m_log.clear();
    }
    void cleanup()
    {
        m_shortcuts.reset();
        m_portal.reset();
        QVERIFY(QThreadPool::globalInstance()->waitForDone(30'000));
    }

    void bindsTheActions()
    {
        m_portal->assign(assigned);
        make(Binding::Always);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QCOMPARE(m_portal->calls,
                 (QStringList{"Register", "Get", "CreateSession", "BindShortcuts"}));
        QCOMPARE(m_portal->appId, "quellora");
        QCOMPARE(m_portal->createOptions.value("session_handle_token"), "quellora");
        QCOMPARE(m_portal->boundSession, m_portal->session);
        const auto atCreation =
            qdbus_cast<PortalShortcuts>(m_portal->createOptions.value("shortcuts"));
        for (const PortalShortcuts &offered : {atCreation, m_portal->boundShortcuts}) {
            QCOMPARE(offered.size(), 2);
            QCOMPARE(offered.at(0).id, "capture");
            QCOMPARE(offered.at(0).properties,
                     (QVariantMap{{"description", "Take a screenshot"},
                                  {"preferred_trigger", "CTRL+ALT+LOGO+c"}}));
            QCOMPARE(offered.at(1).id, "toggle");
            QCOMPARE(offered.at(1).properties, (QVariantMap{{"description", "Show or hide"}}));
        }
        QCOMPARE(m_shortcuts->trigger("capture"), "Ctrl+Alt+C");
        QCOMPARE(m_shortcuts->trigger("toggle"), "Meta+T");
        QVERIFY(m_shortcuts->trigger("other").isEmpty());
        QCOMPARE(m_log.lines, QStringList{"[DesktopShortcuts] The desktop delivers keys: capture = "
                                          "Ctrl+Alt+C, toggle = Meta+T"});
    }

    void asksNothingBeforeTheOffer()
    {
        m_shortcuts = std::make_unique<DesktopShortcutsPortal>(m_bus.address(), Binding::Always);
        QVERIFY(QThreadPool::globalInstance()->waitForDone(30'000));
        QCoreApplication::processEvents();
        QCOMPARE(m_shortcuts->state().state(), Capability::State::BestEffort);
        // Calls arrive in order: an earlier one would be in the list.
        m_shortcuts->offer(actions());
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QCOMPARE(m_portal->count("Get"), 1);
    }

    void bindsOnlyMissingActionsOnKde_data()
    {
        QTest::addColumn<Keys>("known");
        QTest::addColumn<uint>("code");
        QTest::addColumn<bool>("isBound");
        QTest::newRow("all known") << Keys{{"toggle", ""}, {"capture", "Meta+C"}} << 0U << false;
        QTest::newRow("one missing") << Keys{{"capture", "Meta+C"}} << 0U << true;
        QTest::newRow("none") << Keys() << 0U << true;
        QTest::newRow("not answered") << Keys() << 2U << true;
    }
    void bindsOnlyMissingActionsOnKde()
    {
        QFETCH(Keys, known);
        QFETCH(uint, code);
        QFETCH(bool, isBound);
        m_portal->assign(assigned);
        m_portal->listed = {code, false, {{"shortcuts", QVariant::fromValue(described(known))}}};
        make(Binding::IfMissing);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QCOMPARE(m_portal->count("ListShortcuts"), 1);
        QCOMPARE(m_portal->count("BindShortcuts"), isBound);
        QCOMPARE(m_shortcuts->trigger("capture"), isBound ? "Ctrl+Alt+C" : "Meta+C");
        QCOMPARE(m_shortcuts->trigger("toggle"), isBound ? "Meta+T" : "");
    }

    void listsTheKeysThatBindingDoesNotName_data()
    {
        QTest::addColumn<QVariantMap>("results");
        QTest::newRow("no list") << QVariantMap();
        QTest::newRow("empty list")
            << QVariantMap{{"shortcuts", QVariant::fromValue(PortalShortcuts())}};
        QTest::newRow("wrong type") << QVariantMap{{"shortcuts", 7}};
    }
    void listsTheKeysThatBindingDoesNotName()
    {
        QFETCH(QVariantMap, results);
        m_portal->assign(assigned);
        m_portal->bound.results = results;
        make(Binding::Always);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QCOMPARE(m_shortcuts->trigger("capture"), "Ctrl+Alt+C");
        QCOMPARE(m_portal->count("BindShortcuts"), 1);
    }

    void deliversPressesThoughNoKeyIsNamed()
    {
        m_portal->listed.code = 2;
        make(Binding::Always);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QSignalSpy activated(m_shortcuts.get(), &DesktopShortcuts::activated);
        QVERIFY(m_portal->activate("toggle"));
        QTRY_COMPARE(activated, (QList<QVariantList>{{"toggle"}}));
    }

    void responsesInOtherOrdersAndPlaces_data()
    {
        QTest::addColumn<bool>("isEarly");
        QTest::addColumn<bool>("isOld");
        QTest::newRow("before the answer to the call") << true << false;
        QTest::newRow("on a handle of its own") << false << true;
        QTest::newRow("both") << true << true;
    }
    void responsesInOtherOrdersAndPlaces()
    {
        QFETCH(bool, isEarly);
        QFETCH(bool, isOld);
        m_portal->isEarly = isEarly;
        m_portal->isOld = isOld;
        m_portal->assign(assigned);
        make(Binding::Always);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QCOMPARE(m_shortcuts->trigger("toggle"), "Meta+T");
    }

    void noPortal_data()
    {
        QTest::addColumn<bool>("isRunning");
        QTest::addColumn<int>("version");
        QTest::newRow("no service") << false << 1;
        QTest::newRow("another desktop's portal") << true << -1;
        QTest::newRow("no implementation") << true << 0;
    }
    void noPortal()
    {
        QFETCH(bool, isRunning);
        QFETCH(int, version);
        if (version < 0)
            m_portal->version.reset();
        else
            m_portal->version = uint(version);
        if (!isRunning)
            m_portal.reset();
        make(Binding::Always);
        QTRY_COMPARE(m_shortcuts->state().state(), Capability::State::Unsupported);
        QCOMPARE(m_shortcuts->state().reason(), "This desktop does not assign keys to programs.");
        QCOMPARE(m_log.lines, QStringList{"[DesktopShortcuts] WARNING: This desktop does not "
                                          "assign keys to programs."});
        if (m_portal)
            QCOMPARE(m_portal->calls, (QStringList{"Register", "Get"}));
    }

    void noBus_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<bool>("isOfferedLate");
        QTest::addColumn<QString>("reason");
        const QString unreachable = "unix:path=/nonexistent/bus";
        QTest::newRow("none") << QString() << false << "There is no session bus.";
        QTest::newRow("unreachable")
            << unreachable << false << "The session bus cannot be reached.";
        QTest::newRow("found unreachable before")
            << unreachable << true << "The session bus cannot be reached.";
    }
    void noBus()
    {
        QFETCH(QString, address);
        QFETCH(bool, isOfferedLate);
        QFETCH(QString, reason);
        DesktopShortcutsPortal shortcuts(address, Binding::Always);
        if (isOfferedLate) {
            QVERIFY(QThreadPool::globalInstance()->waitForDone(30'000));
            QCoreApplication::processEvents();
        }
        shortcuts.offer(actions());
        QTRY_COMPARE(shortcuts.state().state(), Capability::State::Unsupported);
        QCOMPARE(shortcuts.state().reason(), reason);
    }

    void failures_data()
    {
        using Answer = FakeShortcutsPortal::Answer;
        QTest::addColumn<Answer>("created");
        QTest::addColumn<Answer>("bound");
        QTest::addColumn<bool>("isMalformed");
        QTest::addColumn<QString>("reason");
        const QString other = "The desktop could not assign keys: the portal ended the request "
                              "with code 2.";
        const QString refused = "The desktop could not assign keys: not for you.";
        const Answer done;
        QTest::newRow("session ends otherwise") << Answer{2} << done << false << other;
        QTest::newRow("session refused") << Answer{0, true} << done << false << refused;
        QTest::newRow("no session") << Answer{0, false, {{"session_handle", ""}}} << done << false
                                    << "The desktop did not open a session for keys.";
        QTest::newRow("invalid session")
            << Answer{0, false, {{"session_handle", "no path"}}} << done << false
            << "The desktop did not open a session for keys.";
        QTest::newRow("malformed") << done << done << true
                                   << "The desktop could not assign keys: the response is "
                                      "malformed.";
        QTest::newRow("keys end otherwise") << done << Answer{2} << false << other;
        QTest::newRow("unknown code") << done << Answer{77} << false
                                      << "The desktop could not assign keys: the portal ended the "
                                         "request with code 77.";
        QTest::newRow("keys refused") << done << Answer{0, true} << false << refused;
    }
    void failures()
    {
        QFETCH(FakeShortcutsPortal::Answer, created);
        QFETCH(FakeShortcutsPortal::Answer, bound);
        QFETCH(bool, isMalformed);
        QFETCH(QString, reason);
        m_portal->created = created;
        m_portal->bound = bound;
        m_portal->isMalformed = isMalformed;
        make(Binding::Always);
        QTRY_COMPARE(m_shortcuts->state().state(), Capability::State::Unsupported);
        QCOMPARE(m_shortcuts->state().reason(), reason);
        QSignalSpy activated(m_shortcuts.get(), &DesktopShortcuts::activated);
        QVERIFY(m_portal->activate("capture"));
        // A portal that starts anew may do better.
        restartPortal();
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QCOMPARE(activated.size(), 0);
    }

    void declinedKeysAreNotOfferedAgain_data()
    {
        QTest::addColumn<bool>("isAtOnce");
        QTest::newRow("session") << true;
        QTest::newRow("keys") << false;
    }
    void declinedKeysAreNotOfferedAgain()
    {
        QFETCH(bool, isAtOnce);
        (isAtOnce ? m_portal->created : m_portal->bound).code = 1;
        make(Binding::Always);
        QTRY_COMPARE(m_shortcuts->state().state(), Capability::State::Unsupported);
        QVERIFY(m_shortcuts->state().reason().startsWith("The keys were declined"));
        if (!isAtOnce)
            QTRY_COMPARE(m_portal->closedSession, m_portal->session);
        QSignalSpy changed(m_shortcuts.get(), &DesktopShortcuts::changed);
        restartPortal();
        // Whoever binds next proves that the restart was seen.
        DesktopShortcutsPortal other(m_bus.address(), Binding::Always);
        other.offer(actions());
        QTRY_VERIFY(other.state().isApplied());
        QCOMPARE(m_portal->count("CreateSession"), 1);
        QCOMPARE(changed.size(), 0);
    }

    void waitsForTheUser()
    {
        m_portal->bound.code.reset();
        make(Binding::Always);
        QTRY_COMPARE(m_portal->count("BindShortcuts"), 1);
        QCOMPARE(m_shortcuts->state().state(), Capability::State::BestEffort);
        QSignalSpy activated(m_shortcuts.get(), &DesktopShortcuts::activated);
        QVERIFY(m_portal->activate("capture"));
        m_portal->release(0);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QCOMPARE(activated.size(), 0);
    }

    void reportsPressesOfItsSession()
    {
        make(Binding::Always);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QSignalSpy activated(m_shortcuts.get(), &DesktopShortcuts::activated);
        QVERIFY(m_portal->activate("capture", portalPath + "/session/1_1/other"));
        QVERIFY(m_portal->activate("unknown"));
        forge(shortcutsInterface, "Activated", portalPath,
              {QVariant::fromValue(QDBusObjectPath(m_portal->session)), "capture",
               QVariant::fromValue(quint64(1)), QVariantMap()});
        QVERIFY(m_portal->activate("toggle"));
        QVERIFY(m_portal->activate("capture"));
        QTRY_COMPARE(activated, (QList<QVariantList>{{"toggle"}, {"capture"}}));
    }

    void followsChangesOfKeys()
    {
        m_portal->assign(assigned);
        make(Binding::Always);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QSignalSpy changed(m_shortcuts.get(), &DesktopShortcuts::changed);
        QVERIFY(m_portal->change({{"capture", "F1"}}, portalPath + "/session/1_1/other"));
        forge(shortcutsInterface, "ShortcutsChanged", portalPath,
              {QVariant::fromValue(QDBusObjectPath(m_portal->session)),
               QVariant::fromValue(described({{"capture", "F2"}}))});
        QVERIFY(m_portal->change({{"capture", "Meta+C"}, {"unknown", "F3"}}));
        QTRY_COMPARE(m_shortcuts->trigger("capture"), "Meta+C");
        QCOMPARE(changed.size(), 1);
        QCOMPARE(m_shortcuts->trigger("toggle"), "Meta+T");
        QVERIFY(m_shortcuts->trigger("unknown").isEmpty());
        // The user removes the key.
        QVERIFY(m_portal->change({{"capture", ""}}));
        QTRY_VERIFY(m_shortcuts->trigger("capture").isEmpty());
        QVERIFY(m_shortcuts->state().isApplied());
        QVERIFY(m_log.contains(
            "[DesktopShortcuts] The desktop delivers keys: capture = none, toggle = Meta+T"));
    }

    void otherActionsAreBoundInANewSession()
    {
        m_portal->assign(assigned);
        make(Binding::Always);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        const QString before = m_portal->session;
        m_portal->assign({{"capture", "Meta+C"}, {"prompt-new", "Meta+N"}});
        m_shortcuts->offer({{"capture", "Capture", {}}, {"prompt-new", "New", {}}});
        QTRY_COMPARE(m_shortcuts->trigger("prompt-new"), "Meta+N");
        QCOMPARE(m_portal->closedSession, before);
        QCOMPARE(m_portal->count("CreateSession"), 2);
        QCOMPARE(m_portal->boundShortcuts.last().id, "prompt-new");
        QVERIFY(m_shortcuts->trigger("toggle").isEmpty());
        QSignalSpy activated(m_shortcuts.get(), &DesktopShortcuts::activated);
        QVERIFY(m_portal->activate("toggle"));
        QVERIFY(m_portal->activate("prompt-new"));
        QTRY_COMPARE(activated, QList<QVariantList>{{"prompt-new"}});
    }

    void actionsOfferedDuringTheQuestionFollowItsAnswer()
    {
        m_portal->bound.code.reset();
        make(Binding::Always);
        QTRY_COMPARE(m_portal->count("BindShortcuts"), 1);
        m_shortcuts->offer({{"capture", "Capture", {}}, {"prompt-new", "New", {}}});
        QTest::qWait(0);
        QCOMPARE(m_portal->count("CreateSession"), 1);
        m_portal->bound.code = 0;
        m_portal->release(0);
        QTRY_COMPARE(m_portal->count("BindShortcuts"), 2);
        QCOMPARE(m_portal->boundShortcuts.last().id, "prompt-new");
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        // Declined once, the desktop is not asked about others either.
        m_portal->bound.code = 1;
        m_shortcuts->offer({{"capture", "Capture", {}}});
        QTRY_COMPARE(m_shortcuts->state().state(), Capability::State::Unsupported);
        m_shortcuts->offer({{"toggle", "Toggle", {}}});
        QTest::qWait(0);
        QCOMPARE(m_portal->count("BindShortcuts"), 3);
    }

    void keyNamesAreShownInOneShortLine()
    {
        m_portal->assign({{"capture", "Press\n  <b>Ctrl</b>"}, {"toggle", QString(5000, 'x')}});
        make(Binding::Always);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QCOMPARE(m_shortcuts->trigger("capture"), "Press <b>Ctrl</b>");
        QCOMPARE(m_shortcuts->trigger("toggle").size(), 80);
    }

    void bindsAgainAfterTheSessionEnded()
    {
        m_portal->assign(assigned);
        make(Binding::Always);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        const QString first = m_portal->session;
        forge(sessionInterface, "Closed", first, {QVariantMap()});
        QVERIFY(m_portal->close());
        QTRY_COMPARE(m_portal->count("BindShortcuts"), 2);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QCOMPARE(m_portal->count("CreateSession"), 2);
        QCOMPARE(m_shortcuts->trigger("capture"), "Ctrl+Alt+C");
    }

    void endedSessionsDeliverNothing()
    {
        make(Binding::Always);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        m_portal->created.code = 2;
        QSignalSpy activated(m_shortcuts.get(), &DesktopShortcuts::activated);
        QVERIFY(m_portal->close());
        QVERIFY(m_portal->activate("capture"));
        QTRY_COMPARE(m_portal->count("CreateSession"), 2);
        QTRY_COMPARE(m_shortcuts->state().state(), Capability::State::Unsupported);
        QCOMPARE(activated.size(), 0);
    }

    void givesUpAPortalThatKeepsEndingSessions()
    {
        make(Binding::Always);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        const auto endSession = [this](int sessions) {
            QTRY_COMPARE(m_portal->count("BindShortcuts"), sessions);
            QTRY_VERIFY(m_shortcuts->state().isApplied());
            QVERIFY(m_portal->close());
        };
        endSession(1);
        endSession(2);
        // A press shows that the portal is of use.
        QTRY_COMPARE(m_portal->count("BindShortcuts"), 3);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QSignalSpy activated(m_shortcuts.get(), &DesktopShortcuts::activated);
        QVERIFY(m_portal->activate("capture"));
        QTRY_COMPARE(activated.size(), 1);
        for (int sessions = 3; sessions <= 6; ++sessions)
            endSession(sessions);
        QTRY_VERIFY(m_log.contains(
            "[DesktopShortcuts] WARNING: Gave up, no key came between several losses"));
        QCOMPARE(m_shortcuts->state().state(), Capability::State::Unsupported);
        QCOMPARE(m_shortcuts->state().reason(), "The desktop has taken the keys back.");
        QCOMPARE(m_portal->count("BindShortcuts"), 6);
    }

    void aSessionThatEndsDuringTheDialogIsAnAnswer()
    {
        m_portal->bound.code.reset();
        make(Binding::Always);
        QTRY_COMPARE(m_portal->count("BindShortcuts"), 1);
        QVERIFY(m_portal->close());
        QTRY_COMPARE(m_shortcuts->state().state(), Capability::State::Unsupported);
        m_portal->release(0);
        QVERIFY(m_portal->activate("capture"));
        QCoreApplication::processEvents();
        QCOMPARE(m_shortcuts->state().reason(), "The desktop has taken the keys back.");
        QCOMPARE(m_portal->count("CreateSession"), 1);
    }

    void bindsAgainWhenThePortalRestarts_data()
    {
        QTest::addColumn<bool>("isWaiting");
        QTest::newRow("delivering") << false;
        QTest::newRow("during the dialog") << true;
    }
    void bindsAgainWhenThePortalRestarts()
    {
        QFETCH(bool, isWaiting);
        if (isWaiting)
            m_portal->bound.code.reset();
        make(Binding::Always);
        QTRY_COMPARE(m_portal->count("BindShortcuts"), 1);
        if (!isWaiting)
            QTRY_VERIFY(m_shortcuts->state().isApplied());
        m_portal.reset();
        QTRY_VERIFY(m_log.contains(
            "[DesktopShortcuts] WARNING: The desktop's service for keys has ended."));
        // Nobody answers the call that would start it.
        QTRY_COMPARE(m_shortcuts->state().reason(),
                     "This desktop does not assign keys to programs.");
        startPortal();
        m_portal->assign(assigned);
        QTRY_VERIFY(m_shortcuts->state().isApplied());
        QCOMPARE(m_shortcuts->trigger("capture"), "Ctrl+Alt+C");
        QSignalSpy activated(m_shortcuts.get(), &DesktopShortcuts::activated);
        QVERIFY(m_portal->activate("capture"));
        QTRY_COMPARE(activated.size(), 1);
    }

    void aPortalThatStartsLaterIsAsked()
    {
        m_portal.reset();
        make(Binding::Always);
        QTRY_COMPARE(m_shortcuts->state().state(), Capability::State::Unsupported);
        startPortal();
        QTRY_VERIFY(m_shortcuts->state().isApplied());
    }

    void canBeDestroyedAtAnyTime()
    {
        m_portal->created.code.reset();
        make(Binding::Always);
        m_shortcuts.reset();
        make(Binding::Always);
        QTRY_COMPARE(m_portal->count("CreateSession"), 1);
        m_shortcuts.reset();
        m_portal->release(0);
        QVERIFY(QThreadPool::globalInstance()->waitForDone(30'000));
        QCoreApplication::processEvents();
    }

    void triggersUseTheSpecifiedNames_data()
    {
        QTest::addColumn<QKeyCombination>("combo");
        QTest::addColumn<QString>("text");
        const auto all = Qt::CTRL | Qt::ALT | Qt::META | Qt::SHIFT;
        QTest::newRow("letter") << (Qt::META | Qt::Key_N) << "LOGO+n";
        QTest::newRow("all modifiers") << (all | Qt::Key_C) << "CTRL+ALT+LOGO+SHIFT+c";
        QTest::newRow("digit") << (Qt::CTRL | Qt::Key_1) << "CTRL+1";
        QTest::newRow("bracket") << (Qt::CTRL | Qt::Key_BracketRight) << "CTRL+bracketright";
        QTest::newRow("backslash") << (Qt::ALT | Qt::Key_Backslash) << "ALT+backslash";
        QTest::newRow("not a character") << (Qt::CTRL | Qt::Key_F5) << "";
    }
    void triggersUseTheSpecifiedNames()
    {
        QFETCH(QKeyCombination, combo);
        QFETCH(QString, text);
        QCOMPARE(DesktopShortcutsPortal::triggerText(combo), text);
    }

    void theDesktopDecidesTheWayOfBinding_data()
    {
        QTest::addColumn<QByteArray>("desktop");
        QTest::addColumn<Binding>("binding");
        QTest::newRow("KDE") << QByteArray("KDE") << Binding::IfMissing;
        QTest::newRow("variant") << QByteArray("neon:kde") << Binding::IfMissing;
        QTest::newRow("GNOME") << QByteArray("ubuntu:GNOME") << Binding::Always;
        QTest::newRow("unknown") << QByteArray() << Binding::Always;
    }
    void theDesktopDecidesTheWayOfBinding()
    {
        QFETCH(QByteArray, desktop);
        QFETCH(Binding, binding);
        const QByteArray before = qgetenv("XDG_CURRENT_DESKTOP");
        qputenv("XDG_CURRENT_DESKTOP", desktop);
        QCOMPARE(DesktopShortcutsPortal::currentBinding(), binding);
        qputenv("XDG_CURRENT_DESKTOP", before);
    }

private:
    static QList<DesktopShortcuts::Action> actions()
    {
        return {{"capture", "Take a screenshot",
                 QKeyCombination(Qt::CTRL | Qt::ALT | Qt::META, Qt::Key_C)},
                {"toggle", "Show or hide", std::nullopt}};
    }
    void make(Binding binding)
    {
        m_shortcuts = std::make_unique<DesktopShortcutsPortal>(m_bus.address(), binding);
        m_shortcuts->offer(actions());
    }
    void startPortal()
    {
        m_portal = std::make_unique<FakeShortcutsPortal>(m_bus.address());
        QVERIFY(m_portal->isServing());
    }
    void restartPortal()
    {
        m_portal.reset();
        startPortal();
    }
    /// Emits a signal from a program that is not the portal.
    void forge(const QString &interface, const QString &name, const QString &path,
               const QVariantList &arguments)
    {
        const QString connection = "forger";
        {
            QDBusConnection bus = QDBusConnection::connectToBus(m_bus.address(), connection);
            QDBusMessage signal = QDBusMessage::createSignal(path, interface, name);
            signal.setArguments(arguments);
            QVERIFY(bus.send(signal));
            // A call that is answered after the signal was passed on.
            bus.call(QDBusMessage::createMethodCall("org.freedesktop.DBus", "/",
                                                    "org.freedesktop.DBus", "GetId"));
        }
        QDBusConnection::disconnectFromBus(connection);
    }

    LogCapture m_log;
    PrivateBus m_bus;
    std::unique_ptr<FakeShortcutsPortal> m_portal;
    std::unique_ptr<DesktopShortcutsPortal> m_shortcuts;
};

QUELLORA_TEST(QCoreApplication, DesktopShortcutsPortalTest)
#include "test_desktop_shortcuts_portal.moc"
