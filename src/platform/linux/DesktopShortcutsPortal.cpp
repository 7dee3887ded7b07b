#include "platform/linux/DesktopShortcutsPortal.h"

#include "base/Log.h"
#include "platform/linux/KeysymNames.h"
#include "platform/linux/PortalRequest.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>

#include <algorithm>
#include <utility>

namespace quellora {

QDBusArgument &operator<<(QDBusArgument &argument, const PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

namespace {

const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");
const QString busService = QStringLiteral("org.freedesktop.DBus");
const QString shortcutsKey = QStringLiteral("shortcuts");

/// How often the actions are bound again without a single press in between.
constexpr int maximumRecoveries = 3;
/// Longer texts of the desktop are not shown in full.
constexpr qsizetype maximumTextLength = 80;

void logEvent(const QString &message)
{
    Log::event(QStringLiteral("[DesktopShortcuts] ") + message);
}

QString noPortal()
{
    return QStringLiteral("This desktop does not assign keys to programs.");
}

QString couldNotAssign(const QString &error)
{
    return QStringLiteral("The desktop could not assign keys: %1.")
        .arg(error.simplified().left(maximumTextLength));
}

/// The shortcuts in a message argument or result; nothing if it has another type.
std::optional<PortalShortcuts> shortcutsIn(const QVariant &value)
{
    if (!value.canConvert<QDBusArgument>())
        return std::nullopt;
    const auto argument = value.value<QDBusArgument>();
    if (argument.currentSignature() != QStringLiteral("a(sa{sv})"))
        return std::nullopt;
    return qdbus_cast<PortalShortcuts>(argument);
}

PortalShortcuts offered(const QList<DesktopShortcuts::Action> &actions)
{
    PortalShortcuts shortcuts;
    for (const DesktopShortcuts::Action &action : actions) {
        QVariantMap properties{{QStringLiteral("description"), action.description}};
        const QString trigger =
            action.preferred ? DesktopShortcutsPortal::triggerText(*action.preferred) : QString();
        if (!trigger.isEmpty())
            properties.insert(QStringLiteral("preferred_trigger"), trigger);
        shortcuts << PortalShortcut{action.id, properties};
    }
    return shortcuts;
}

} // namespace

DesktopShortcutsPortal::DesktopShortcutsPortal(const QString &busAddress, Binding binding)
    : m_binding(binding)
    , m_busState(busAddress.isEmpty() ? BusState::None : BusState::Connecting)
    , m_bus(QStringLiteral("shortcuts"), busAddress)
    , m_state(Capability::bestEffort(QStringLiteral("The desktop has not been asked yet.")))
    , m_recoveriesLeft(maximumRecoveries)
    , m_request(nullptr, [](PortalRequest *request) {
        // It may be emitting its signal.
        request->disconnect();
        request->deleteLater();
    })
{
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<PortalShortcuts>();
    connect(&m_bus, &SessionBusLinux::connected, this, &DesktopShortcutsPortal::busConnected);
    connect(&m_bus, &SessionBusLinux::failed, this, [this] {
        m_busState = BusState::Failed;
        if (m_isOffered)
            abandon(QStringLiteral("The session bus cannot be reached."));
    });
}

DesktopShortcutsPortal::~DesktopShortcutsPortal()
{
    delete m_request.release();
}

DesktopShortcutsPortal::Binding DesktopShortcutsPortal::currentBinding()
{
    const bool isKde = qEnvironmentVariable("XDG_CURRENT_DESKTOP")
                           .split(u':')
                           .contains(QStringLiteral("KDE"), Qt::CaseInsensitive);
    return isKde ? Binding::IfMissing : Binding::Always;
}

QString DesktopShortcutsPortal::triggerText(QKeyCombination combo)
{
    // Keys of characters have the character's value, letters in upper case.
    const char32_t character = static_cast<char32_t>(combo.key());
    const QString key = KeysymNames::ofKey(QString::fromUcs4(&character, 1).toLower());
    if (key.isEmpty())
        return {};
    QStringList parts;
    const std::initializer_list<std::pair<Qt::KeyboardModifier, QString>> names{
        {Qt::ControlModifier, QStringLiteral("CTRL")},
        {Qt::AltModifier, QStringLiteral("ALT")},
        {Qt::MetaModifier, QStringLiteral("LOGO")},
        {Qt::ShiftModifier, QStringLiteral("SHIFT")}};
    for (const auto &[modifier, name] : names) {
        if (combo.keyboardModifiers() & modifier)
            parts << name;
    }
    return (parts << key).join(u'+');
}

void DesktopShortcutsPortal::offer(const QList<Action> &actions)
{
    m_actions = actions;
    m_isOffered = true;
    if (m_isDeclined)
        return;
    // The user may be answering the question.
    m_isOutdated = m_request || m_isAsking;
    if (m_isOutdated)
        return;
    closeSession();
    switch (m_busState) {
    case BusState::None:
        return abandon(QStringLiteral("There is no session bus."));
    case BusState::Failed:
        return abandon(QStringLiteral("The session bus cannot be reached."));
    case BusState::Connecting:
        return setState(Capability::bestEffort(QStringLiteral("The desktop has not answered yet.")),
                        {});
    case BusState::Connected:
        return begin();
    }
}

void DesktopShortcutsPortal::busConnected()
{
    m_busState = BusState::Connected;
    QDBusConnection bus = m_bus.connection();
    // No senders: Qt would look up a named sender's owner with a blocking call. The slots check it.
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus"), busService,
                QStringLiteral("NameOwnerChanged"), {PortalRequest::service()}, QString(), this,
                SLOT(portalOwnerChanged(QString, QString, QString, QDBusMessage)));
    bus.connect(QString(), PortalRequest::path(), shortcutsInterface, QStringLiteral("Activated"),
                this, SLOT(shortcutActivated(QDBusMessage)));
    bus.connect(QString(), PortalRequest::path(), shortcutsInterface,
                QStringLiteral("ShortcutsChanged"), this, SLOT(shortcutsChanged(QDBusMessage)));
    bus.connect(QString(), QString(), sessionInterface, QStringLiteral("Closed"), this,
                SLOT(sessionClosed(QDBusMessage)));
    if (m_isOffered)
        begin();
}

void DesktopShortcutsPortal::closeSession()
{
    if (m_session.isEmpty())
        return;
    m_bus.connection().send(QDBusMessage::createMethodCall(m_owner, m_session, sessionInterface,
                                                           QStringLiteral("Close")));
    m_session.clear();
}

void DesktopShortcutsPortal::begin()
{
    ++m_attempt;
    m_request.reset();
    m_owner.clear();
    m_session.clear();
    m_isBound = false;
    m_isAsking = true;
    setState(Capability::bestEffort(QStringLiteral("The desktop has not answered yet.")), {});

    QDBusConnection bus = m_bus.connection();
    // Names this program to portals that offer it, which must be the connection's first call.
    // Others find out by themselves or do without.
    QDBusMessage registration = PortalRequest::call(
        QStringLiteral("org.freedesktop.host.portal.Registry"), QStringLiteral("Register"));
    registration << QStringLiteral("quellora") << QVariantMap();
    bus.send(registration);

    QDBusMessage get = PortalRequest::call(QStringLiteral("org.freedesktop.DBus.Properties"),
                                           QStringLiteral("Get"));
    get << shortcutsInterface << QStringLiteral("version");
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(get), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, attempt = m_attempt](QDBusPendingCallWatcher *finished) {
                finished->deleteLater();
                if (attempt != m_attempt)
                    return;
                m_isAsking = false;
                const QDBusMessage reply = finished->reply();
                const uint version =
                    reply.arguments().value(0).value<QDBusVariant>().variant().toUInt();
                if (reply.type() == QDBusMessage::ErrorMessage || version == 0)
                    return abandon(noPortal());
                m_owner = reply.service();
                createSession();
            });
}

void DesktopShortcutsPortal::request(const QDBusMessage &call, const QVariantMap &options,
                                     const std::function<void(const QVariantMap &)> &done,
                                     const std::function<void(const QString &)> &failed)
{
    m_request.reset(new PortalRequest(m_bus.connection(), call, options));
    connect(m_request.get(), &PortalRequest::finished, this,
            [this, done, failed](PortalRequest::Outcome outcome, const QVariantMap &results,
                                 const QString &error) {
                m_request.reset();
                switch (outcome) {
                case PortalRequest::Outcome::Done:
                    return done(results);
                case PortalRequest::Outcome::Cancelled:
                    return handleDeclined();
                case PortalRequest::Outcome::Failed:
                    return failed(error);
                }
            });
}

void DesktopShortcutsPortal::createSession()
{
    // A constant name, because KDE stores the keys of unknown programs under it.
    const QVariantMap options{{QStringLiteral("session_handle_token"), QStringLiteral("quellora")},
                              {shortcutsKey, QVariant::fromValue(offered(m_actions))}};
    request(
        PortalRequest::call(shortcutsInterface, QStringLiteral("CreateSession")), options,
        [this](const QVariantMap &results) {
            const QVariant handle = results.value(QStringLiteral("session_handle"));
            // A text, though portals could be expected to send an object path.
            m_session = handle.canConvert<QDBusObjectPath>()
                            ? handle.value<QDBusObjectPath>().path()
                            : handle.toString();
            if (!m_session.startsWith(u'/'))
                abandon(QStringLiteral("The desktop did not open a session for keys."));
            else if (m_binding == Binding::IfMissing)
                listShortcuts();
            else
                bindShortcuts();
        },
        [this](const QString &error) { abandon(couldNotAssign(error)); });
}

void DesktopShortcutsPortal::bindShortcuts()
{
    QDBusMessage call = PortalRequest::call(shortcutsInterface, QStringLiteral("BindShortcuts"));
    call << QVariant::fromValue(QDBusObjectPath(m_session))
         << QVariant::fromValue(offered(m_actions)) << QString();
    m_isBound = true;
    request(
        call, {},
        [this](const QVariantMap &results) {
            const auto shortcuts = shortcutsIn(results.value(shortcutsKey));
            if (shortcuts && !shortcuts->isEmpty())
                setDelivering(*shortcuts);
            else
                listShortcuts();
        },
        [this](const QString &error) { abandon(couldNotAssign(error)); });
}

void DesktopShortcutsPortal::listShortcuts()
{
    QDBusMessage call = PortalRequest::call(shortcutsInterface, QStringLiteral("ListShortcuts"));
    call << QVariant::fromValue(QDBusObjectPath(m_session));
    const auto use = [this](const PortalShortcuts &shortcuts) {
        const bool isComplete =
            std::all_of(m_actions.begin(), m_actions.end(), [&](const Action &action) {
                return std::any_of(
                    shortcuts.begin(), shortcuts.end(),
                    [&](const PortalShortcut &shortcut) { return shortcut.id == action.id; });
            });
        if (isComplete || m_isBound)
            setDelivering(shortcuts);
        else
            bindShortcuts();
    };
    request(
        call, {},
        [use](const QVariantMap &results) {
            use(shortcutsIn(results.value(shortcutsKey)).value_or(PortalShortcuts()));
        },
        [use](const QString &) { use({}); });
}

void DesktopShortcutsPortal::portalOwnerChanged(const QString &, const QString &,
                                                const QString &now, const QDBusMessage &message)
{
    // A query under way is answered by the new owner, or by an error.
    if (message.service() != busService || !m_isOffered || m_isDeclined || m_isAsking ||
        now == m_owner)
        return;
    if (!now.isEmpty()) {
        begin();
    } else if (!m_owner.isEmpty()) {
        m_session.clear();
        recover(QStringLiteral("The desktop's service for keys has ended."));
    }
}

void DesktopShortcutsPortal::sessionClosed(const QDBusMessage &message)
{
    if (m_session.isEmpty() || message.path() != m_session || message.service() != m_owner)
        return;
    m_session.clear();
    const QString reason = QStringLiteral("The desktop has taken the keys back.");
    // While the desktop asks the user, the end of the session is an answer.
    if (m_state.isApplied())
        recover(reason);
    else
        abandon(reason);
}

void DesktopShortcutsPortal::shortcutActivated(const QDBusMessage &message)
{
    const QVariantList arguments = message.arguments();
    if (!m_state.isApplied() || message.service() != m_owner || arguments.size() < 2 ||
        arguments.at(0).value<QDBusObjectPath>().path() != m_session)
        return;
    const QString id = arguments.at(1).toString();
    if (!isOffered(id))
        return;
    m_recoveriesLeft = maximumRecoveries;
    Q_EMIT activated(id);
}

void DesktopShortcutsPortal::shortcutsChanged(const QDBusMessage &message)
{
    const QVariantList arguments = message.arguments();
    if (!m_state.isApplied() || message.service() != m_owner || arguments.size() < 2 ||
        arguments.at(0).value<QDBusObjectPath>().path() != m_session)
        return;
    if (const auto shortcuts = shortcutsIn(arguments.at(1)))
        setDelivering(*shortcuts);
}

void DesktopShortcutsPortal::recover(const QString &reason)
{
    abandon(reason);
    if (m_recoveriesLeft-- > 0)
        begin();
    else
        logEvent(QStringLiteral("WARNING: Gave up, no key came between several losses"));
}

void DesktopShortcutsPortal::handleDeclined()
{
    m_isDeclined = true;
    closeSession();
    abandon(QStringLiteral("The keys were declined in the desktop's dialog; Quellora asks again "
                           "when it is started the next time."));
}

void DesktopShortcutsPortal::abandon(const QString &reason)
{
    m_request.reset();
    m_session.clear();
    m_isOutdated = false;
    setState(Capability::unsupported(reason), {});
}

void DesktopShortcutsPortal::setDelivering(const PortalShortcuts &shortcuts)
{
    QHash<QString, QString> triggers = m_triggers;
    for (const PortalShortcut &shortcut : shortcuts) {
        if (isOffered(shortcut.id))
            triggers.insert(shortcut.id,
                            shortcut.properties.value(QStringLiteral("trigger_description"))
                                .toString()
                                .simplified()
                                .left(maximumTextLength));
    }
    setState(Capability::applied(), triggers);
    if (std::exchange(m_isOutdated, false))
        offer(m_actions);
}

void DesktopShortcutsPortal::setState(const Capability &state,
                                      const QHash<QString, QString> &triggers)
{
    const bool isOther = state.state() != m_state.state() || state.reason() != m_state.reason();
    if (!isOther && triggers == m_triggers)
        return;
    m_state = state;
    m_triggers = triggers;
    if (state.isApplied()) {
        QStringList keys;
        for (const Action &action : std::as_const(m_actions))
            keys << action.id + QStringLiteral(" = ") +
                        (trigger(action.id).isEmpty() ? QStringLiteral("none")
                                                      : trigger(action.id));
        logEvent(QStringLiteral("The desktop delivers keys: ") + keys.join(QStringLiteral(", ")));
    } else if (state.state() == Capability::State::Unsupported) {
        logEvent(QStringLiteral("WARNING: ") + state.reason());
    }
    Q_EMIT changed();
}

bool DesktopShortcutsPortal::isOffered(const QString &id) const
{
    return std::any_of(m_actions.begin(), m_actions.end(),
                       [&id](const Action &action) { return action.id == id; });
}

} // namespace quellora
