#include "platform/linux/PanelVeilX11.h"

#include "base/Log.h"
#include "platform/linux/PanelKeeperX11.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

#include <algorithm>
#include <array>
#include <utility>

namespace quellora {
namespace {

/// For window managers that do not answer.
constexpr int answerLimitMs = 150;

} // namespace

PanelVeilX11::PanelVeilX11(const X11Connection &x11, QObject *parent)
    : PanelVeil(parent)
    , m_x11(x11)
    , m_helper(xcb_generate_id(x11.get()))
    , m_frameExtents(x11.atom("_NET_FRAME_EXTENTS"))
{
    const std::array<quint32, 2> values{1, XCB_EVENT_MASK_PROPERTY_CHANGE};
    xcb_create_window(m_x11.get(), 0, m_helper, m_x11.root(), -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT,
                      XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values.data());
    m_limit.setSingleShot(true);
    m_limit.setInterval(answerLimitMs);
    connect(&m_limit, &QTimer::timeout, this, [this] {
        m_unanswered = 0;
        finishCover();
    });
    qGuiApp->installNativeEventFilter(this);
}

PanelVeilX11::~PanelVeilX11()
{
    xcb_destroy_window(m_x11.get(), m_helper);
    m_x11.flush();
}

QList<PanelKeeperX11 *> PanelVeilX11::keepers() const
{
    QList<PanelKeeperX11 *> found;
    const QWindowList windows = QGuiApplication::allWindows();
    for (QWindow *window : windows) {
        auto *keeper = window->findChild<PanelKeeperX11 *>(QString(), Qt::FindDirectChildrenOnly);
        if (keeper && keeper->isExcludedFromCapture())
            found.append(keeper);
    }
    return found;
}

bool PanelVeilX11::isNeeded() const
{
    bool isVisible = false;
    const QList<PanelKeeperX11 *> all = keepers();
    for (PanelKeeperX11 *keeper : all) {
        connect(keeper, &PanelKeeperX11::showing, this, &PanelVeilX11::panelShown,
                Qt::UniqueConnection);
        isVisible |= static_cast<QWindow *>(keeper->parent())->isVisible();
    }
    return isVisible;
}

ScreenLayout PanelVeilX11::screenLayout() const
{
    const QList<PanelKeeperX11 *> all = keepers();
    const QScreen *chosen = all.isEmpty() ? QGuiApplication::primaryScreen()
                                          : static_cast<QWindow *>(all.first()->parent())->screen();
    ScreenLayout layout = ScreenLayout::inPixels();
    layout.chosen =
        static_cast<int>(std::max<qsizetype>(0, QGuiApplication::screens().indexOf(chosen)));
    return layout;
}

void PanelVeilX11::cover(std::function<void()> done)
{
    warnIfUnsupported();
    m_done = std::move(done);
    const QList<PanelKeeperX11 *> all = keepers();
    for (PanelKeeperX11 *keeper : all)
        keeper->setVeiled(true);
    askWindowManager();
    m_limit.start();
}

void PanelVeilX11::uncover()
{
    m_limit.stop();
    m_done = nullptr;
    const QList<PanelKeeperX11 *> all = keepers();
    for (PanelKeeperX11 *keeper : all)
        keeper->setVeiled(false);
}

void PanelVeilX11::askWindowManager()
{
    xcb_client_message_event_t request{};
    request.response_type = XCB_CLIENT_MESSAGE;
    request.format = 32;
    request.window = m_helper;
    request.type = m_x11.atom("_NET_REQUEST_FRAME_EXTENTS");
    std::array<char, 32> bytes{};
    std::copy_n(reinterpret_cast<const char *>(&request), sizeof request, bytes.data());
    xcb_send_event(m_x11.get(), 0, m_x11.root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   bytes.data());
    m_x11.flush();
    ++m_unanswered;
}

bool PanelVeilX11::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    if ((event->response_type & ~0x80) != XCB_PROPERTY_NOTIFY)
        return false;
    const auto *notify = reinterpret_cast<const xcb_property_notify_event_t *>(event);
    if (notify->window != m_helper || notify->atom != m_frameExtents)
        return false;
    // An earlier cover's answer says nothing about this one.
    m_unanswered = std::max(m_unanswered - 1, 0);
    if (m_unanswered == 0)
        finishCover();
    return false;
}

void PanelVeilX11::finishCover()
{
    m_limit.stop();
    if (const auto done = std::exchange(m_done, nullptr))
        done();
}

void PanelVeilX11::warnIfUnsupported()
{
    if (std::exchange(m_isSupportChecked, true))
        return;
    const XcbPtr<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        m_x11.get(),
        xcb_get_property(m_x11.get(), 0, m_x11.root(), m_x11.atom("_NET_SUPPORTED"), XCB_ATOM_ATOM,
                         0, 1024),
        nullptr));
    const xcb_atom_t wanted = m_x11.atom("_NET_WM_WINDOW_OPACITY");
    const auto *atoms =
        reply ? static_cast<const xcb_atom_t *>(xcb_get_property_value(reply.get())) : nullptr;
    const auto count = reply ? xcb_get_property_value_length(reply.get()) / sizeof(xcb_atom_t) : 0;
    if (std::find(atoms, atoms + count, wanted) == atoms + count)
        Log::event(QStringLiteral("[ScreenSource] WARNING: The window manager has no transparent "
                                  "windows; the panel stays in the pictures"));
}

} // namespace quellora
