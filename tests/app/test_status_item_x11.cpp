#include "app/QtStatusBar.h"
#include "fakes/FakePlatform.h"
#include "support/TestProgram.h"

#include <QApplication>
#include <QtTest>

#include <xcb/xcb.h>

#include <cstdlib>

using namespace quellora;

namespace {

/// A tray of the older kind, on a connection of its own, that counts the items which ask for a
/// place.
class OldTray
{
public:
    OldTray() : m_connection(xcb_connect(nullptr, nullptr))
    {
        const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        const xcb_window_t window = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, 0, window, screen->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_set_selection_owner(m_connection, window, atom("_NET_SYSTEM_TRAY_S0"),
                                XCB_CURRENT_TIME);
        m_opcode = atom("_NET_SYSTEM_TRAY_OPCODE");
    }
    ~OldTray() { xcb_disconnect(m_connection); }
    Q_DISABLE_COPY_MOVE(OldTray)

    int items()
    {
        constexpr quint32 requestDock = 0;
        while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection)) {
            const auto *message = reinterpret_cast<const xcb_client_message_event_t *>(event);
            if ((event->response_type & 0x7f) == XCB_CLIENT_MESSAGE && message->type == m_opcode &&
                message->data.data32[1] == requestDock)
                ++m_items;
            std::free(event);
        }
        return m_items;
    }

private:
    xcb_atom_t atom(const QByteArray &name)
    {
        xcb_intern_atom_reply_t *reply = xcb_intern_atom_reply(
            m_connection,
            xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(name.size()), name.constData()),
            nullptr);
        const xcb_atom_t result = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
        std::free(reply);
        return result;
    }

    xcb_connection_t *m_connection;
    xcb_atom_t m_opcode = XCB_ATOM_NONE;
    int m_items = 0;
};

} // namespace

/// What really reaches a tray.
class StatusItemX11Test : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void theItemIsThereWithOrWithoutItsPicture_data()
    {
        QTest::addColumn<QString>("symbol");
        QTest::newRow("picture") << QStringLiteral("gear");
        QTest::newRow("no picture") << QStringLiteral("bolt");
    }
    void theItemIsThereWithOrWithoutItsPicture()
    {
        QFETCH(QString, symbol);
        OldTray tray;
        FakeStatusArea area;
        FakeSymbols symbols;
        const auto item = QtStatusBar(area, symbols).makeItem();
        QCOMPARE(item->setSymbol(symbol, QStringLiteral("Quellora")),
                 symbol == QStringLiteral("gear"));
        QCOMPARE(tray.items(), 0);
        item->setMenu({{QStringLiteral("Quit"), [] {}}});
        QTRY_COMPARE(tray.items(), 1);
    }
};

namespace {

int runTests(int argc, char **argv)
{
    // Without a bus the toolkit speaks to the tray of the older kind.
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    QApplication application(argc, argv);
    StatusItemX11Test test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace

QUELLORA_TEST_MAIN(runTests)

#include "test_status_item_x11.moc"
