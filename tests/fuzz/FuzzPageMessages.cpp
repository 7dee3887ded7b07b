#include "QtFuzz.h"
#include "page/PageRequests.h"
#include "page/ResponseDisplay.h"
#include "platform/Platform.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QTemporaryDir>

#include <array>
#include <cmath>

using namespace quellora;
using namespace quellora::fuzz;

namespace {

/// A page that posts what the test says.
class Page : public PageSurface
{
public:
    void post(const QString &name, const QVariant &body) { Q_EMIT message(name, body); }

protected:
    void startLoad(LoadId, const PageContent &) override {}
    void runScript(const QString &, quint64) override {}
    void runBridgeScript(const QString &) override {}
    void restartLoad(bool) override {}
    void ask(quint64) override {}
    bool isSeen() const override { return false; }
    void endProcess() override {}
};

/// Nothing but the pictures of the page may be opened, and it shows none.
class NoWorkspace : public Workspace
{
public:
    QFuture<OpenResult> openUrl(const QUrl &) override { std::abort(); }
    QFuture<OpenResult> openFile(const QString &) override { std::abort(); }
};

/// The display that takes the messages, and what it must make of them.
struct Stage
{
    Stage() : display(page, workspace, folder.path())
    {
        QObject::connect(&display, &ResponseDisplay::scrollPositionChanged, &display,
                         [](bool, double thumb, double fraction) {
                             require(thumb >= 0 && thumb <= 1 && fraction >= 0 && fraction <= 1);
                         });
        QObject::connect(&display, &ResponseDisplay::noteDeleteRequested, &display,
                         [](const QUuid &id) { require(!id.isNull()); });
    }

    QTemporaryDir folder;
    Page page;
    NoWorkspace workspace;
    ResponseDisplay display;
};

const std::array names{"scrollPosition", "openScreenshot", "noteDelete",
                       "showVersion",    "findResult",     "other"};

} // namespace

/// Defined beside the engine's classes. The page of this stage shows no pictures.
QString quellora::pagerequests::pictureAddress(const QByteArray &, qint64)
{
    std::abort();
}

/// The input as the bodies of all messages that a page may post.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    prepareQt();
    static Stage stage;
    const QByteArray json = "{\"body\":" + bytes(view(data, size)) + '}';
    const QVariant body =
        QJsonDocument::fromJson(json).object().value(QLatin1String("body")).toVariant();
    for (const char *name : names)
        stage.page.post(QLatin1String(name), body);
    QCoreApplication::processEvents();
    return 0;
}
