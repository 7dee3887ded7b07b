#include "platform/wayland/SwayWindow.h"
#include "support/TestProgram.h"

#include <QFile>
#include <QTemporaryDir>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <thread>

using namespace quellora;

namespace {

/// A tree as sway sends it, reduced to what is read.
QByteArray tree(const QByteArray &focusOfWorkspace)
{
    return R"({"id": 1, "rect": {"x": 0, "y": 0, "width": 2000, "height": 800}, "focus": [4, 2],
      "nodes": [
        {"id": 2, "focus": [3], "nodes": [{"id": 3, "focus": [], "nodes": []}]},
        {"id": 4, "focus": [5], "nodes": [
          {"id": 5, "focus": )" +
           focusOfWorkspace + R"(, "rect": {"x": 0, "y": 0, "width": 1280, "height": 800},
           "nodes": [{"id": 6, "pid": 60, "rect": {"x": 10, "y": 20, "width": 300, "height": 200},
                      "focus": []}],
           "floating_nodes": [{"id": 7, "pid": 70, "focus": [],
                               "rect": {"x": -50, "y": 40, "width": 400, "height": 100}}]}]}]})";
}

/// Answers one question over a socket.
class Sway
{
public:
    explicit Sway(const QString &path, QByteArray answer) : m_answer(std::move(answer))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray name = QFile::encodeName(path);
        std::memcpy(address.sun_path, name.constData(), static_cast<std::size_t>(name.size()));
        m_socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        if (::bind(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
            ::listen(m_socket, 1) != 0)
            qFatal("cannot listen");
        m_thread = std::thread([this] {
            const int client = ::accept(m_socket, nullptr, nullptr);
            question.resize(14);
            if (::recv(client, question.data(), 14, MSG_WAITALL) != 14)
                question.clear();
            // In pieces.
            for (qsizetype i = 0; i < m_answer.size(); i += 5)
                ::send(client, m_answer.constData() + i,
                       static_cast<std::size_t>(qMin<qsizetype>(5, m_answer.size() - i)),
                       MSG_NOSIGNAL);
            ::close(client);
        });
    }
    ~Sway()
    {
        m_thread.join();
        ::close(m_socket);
    }

    QByteArray question;

private:
    QByteArray m_answer;
    int m_socket;
    std::thread m_thread;
};

QByteArray message(quint32 length, const QByteArray &body)
{
    const quint32 kind = 4;
    return "i3-ipc" + QByteArray(reinterpret_cast<const char *>(&length), 4) +
           QByteArray(reinterpret_cast<const char *>(&kind), 4) + body;
}

} // namespace

class TestSwayWindow : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void windowThatHadTheFocusLast_data()
    {
        QTest::addColumn<QByteArray>("focus");
        QTest::addColumn<QRect>("place");
        QTest::newRow("tiled") << QByteArray("[6, 7]") << QRect(10, 20, 300, 200);
        QTest::newRow("floating") << QByteArray("[7, 6]") << QRect(-50, 40, 400, 100);
    }
    void windowThatHadTheFocusLast()
    {
        QFETCH(QByteArray, focus);
        QFETCH(QRect, place);
        QCOMPARE(SwayWindow::fromTree(tree(focus)).value(), place);
    }

    void noWindow_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("reason");
        const QString none = "No window is in front";
        const QString silent = "sway does not tell which window is in front";
        QTest::newRow("empty workspace") << tree("[]") << none;
        QTest::newRow("unknown child") << tree("[99]") << none;
        QTest::newRow("odd focus") << tree(R"("7")") << none;
        QTest::newRow("no text") << QByteArray() << silent;
        QTest::newRow("no JSON") << QByteArray("{]") << silent;
        QTest::newRow("a list") << QByteArray("[1]") << silent;
        QTest::newRow("no size") << QByteArray(R"({"id": 1, "pid": 3, "focus": []})") << none;
    }
    void noWindow()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, reason);
        QCOMPARE(SwayWindow::fromTree(text).error(), reason);
    }

    void endlessNestingEnds()
    {
        QByteArray text = R"({"id": 1, "pid": 1, "rect": {"width": 5, "height": 5}})";
        for (int i = 0; i < 500; ++i)
            text = R"({"id": 1, "focus": [1], "nodes": [)" + text + "]}";
        QVERIFY(!SwayWindow::fromTree(text));
    }

    void asksOverTheSocket()
    {
        const QTemporaryDir folder;
        const QString path = folder.filePath("sway.sock");
        const QByteArray body = tree("[6]");
        Sway sway(path, message(static_cast<quint32>(body.size()), body));
        QCOMPARE(SwayWindow::find(path).result().value(), QRect(10, 20, 300, 200));
        QCOMPARE(sway.question, message(0, {}));
    }

    void brokenAnswers_data()
    {
        QTest::addColumn<QByteArray>("answer");
        QTest::newRow("none") << QByteArray();
        QTest::newRow("other magic") << QByteArray("i4-ipc\0\0\0\0\0\0\0\0", 14);
        QTest::newRow("too short") << message(500, "{}");
        QTest::newRow("too long") << message(0xFFFFFFFF, "{}");
        QTest::newRow("nonsense") << message(2, "{}");
    }
    void brokenAnswers()
    {
        QFETCH(QByteArray, answer);
        const QTemporaryDir folder;
        const QString path = folder.filePath("sway.sock");
        const Sway sway(path, answer);
        QCOMPARE(SwayWindow::find(path).result().error(),
                 "sway does not tell which window is in front");
    }

    void nobodyListens()
    {
        const QTemporaryDir folder;
        QCOMPARE(SwayWindow::find(folder.filePath("sway.sock")).result().error(),
                 "sway does not tell which window is in front");
        QCOMPARE(SwayWindow::find(QString(300, 'x')).result().error(),
                 "sway does not tell which window is in front");
    }

    void otherDesktops()
    {
        QCOMPARE(SwayWindow::find({}).result().error(),
                 "This desktop does not tell programs which window is in front. Capture a region "
                 "instead");
    }
};

QUELLORA_TEST(QCoreApplication, TestSwayWindow)
#include "test_sway_window.moc"
