#include "app/QtStatusBar.h"
#include "fakes/FakePlatform.h"
#include "support/TestProgram.h"

#include <QApplication>
#include <QtTest>

#include <xcb/xcb.h>

#include <cstdlib>

using namespace quellora;

namespace {

/// An XEmbed system tray on its own X11 connection that counts dock requests.
class XEmbedTray
{
public:
    XEmbedTray() : m_connection(xcb_connect(nullptr, nullptr))
    {
        const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        const xcb_window_t window = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, 0, window, screen->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_set_selection_owner(m_connection, window, atom("_NET_SYSTEM_TRAY_S0"),
                                XCB_CURRENT_TIME);
        m_opcode = atom("_NET_SYSTEM_TRAY_OPCODE");
    }
    ~XEmbedTray() { xcb_disconnect(m_connection); }
    Q_DISABLE_COPY_MOVE(XEmbedTray)

    int itemCount()
    {
        constexpr quint32 requestDock = 0;
        while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection)) {
            const auto *message = reinterpret_cast<const xcb_client_message_event_t *>(event);
            if ((event->response_type & 0x7f) == XCB_CLIENT_MESSAGE && message->type == m_opcode &&
                message->data.data32[1] == requestDock)
                ++m_itemCount;
            std::free(event);
        }
        return m_itemCount;
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
    int m_itemCount = 0;
};

} // namespace

/// Status item on a real X11 tray.
class StatusItemX11Test : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void itemAppearsWithOrWithoutSymbol_data()
    {
        QTest::addColumn<QString>("symbol");
        QTest::newRow("with symbol") << QStringLiteral("gear");
        QTest::newRow("without symbol") << QStringLiteral("bolt");
    }
    void itemAppearsWithOrWithoutSymbol()
    {
        QFETCH(QString, symbol);
        XEmbedTray tray;
        FakeStatusArea area;
        FakeSymbols symbols;
        const auto item = QtStatusBar(area, symbols).makeItem();
        QCOMPARE(item->setSymbol(symbol, QStringLiteral("Quellora")),
                 symbol == QStringLiteral("gear"));
        QCOMPARE(tray.itemCount(), 0);
        item->setMenu({{QStringLiteral("Quit"), [] {}}});
        QTRY_COMPARE(tray.itemCount(), 1);
    }
};

namespace {

int runTests(int argc, char **argv)
{
    // Without a session bus, Qt falls back to the XEmbed protocol.
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    QApplication application(argc, argv);
    StatusItemX11Test test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace

QUELLORA_TEST_MAIN(runTests)

#include "test_status_item_x11.moc"
