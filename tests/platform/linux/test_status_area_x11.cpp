#include "platform/linux/StatusAreaLinux.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QtTest>

#include <xcb/xcb.h>

using namespace quellora;

namespace {

/// A legacy (XEmbed) tray: a separate client that owns the tray selection during its lifetime.
class LegacyTray
{
public:
    LegacyTray() : m_connection(xcb_connect(nullptr, nullptr))
    {
        const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        const xcb_window_t window = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, 0, window, screen->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        const QByteArray name("_NET_SYSTEM_TRAY_S0");
        const XcbPtr<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
            m_connection,
            xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(name.size()), name.constData()),
            nullptr));
        xcb_set_selection_owner(m_connection, window, atom->atom, XCB_CURRENT_TIME);
        xcb_flush(m_connection);
    }
    ~LegacyTray() { xcb_disconnect(m_connection); }
    Q_DISABLE_COPY_MOVE(LegacyTray)

private:
    xcb_connection_t *m_connection;
};

} // namespace

/// Detection of a legacy (XEmbed) tray by the owner of its selection.
class StatusAreaX11Test : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void selectionOwnerCountsAsTray()
    {
        StatusAreaLinux area(*X11Connection::current(), QString());
        QList<bool> seen;
        area.onChanged([&] { seen << area.isAvailable(); });
        QVERIFY(!area.isAvailable());
        auto tray = std::make_unique<LegacyTray>();
        QTRY_COMPARE(seen, QList<bool>{true});
        {
            // A tray that exists before the object is detected, too.
            StatusAreaLinux later(*X11Connection::current(), QString());
            QVERIFY(later.isAvailable());
        }
        tray.reset();
        QTRY_COMPARE(seen, (QList<bool>{true, false}));
        tray = std::make_unique<LegacyTray>();
        QTRY_COMPARE(seen, (QList<bool>{true, false, true}));
    }
};

QUELLORA_TEST(QGuiApplication, StatusAreaX11Test)
#include "test_status_area_x11.moc"
