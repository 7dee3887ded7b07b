#include "QtFuzz.h"
#include "history/SessionFile.h"
#include "history/ThreadSummaryReader.h"
#include "history/ThreadTextReader.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

using namespace quellora;
using namespace quellora::fuzz;

namespace {

/// A stored thread whose description is the input.
class StoredThread
{
public:
    StoredThread()
    {
        QDir(m_root.path()).mkdir(uuidText(id));
        m_file.setFileName(m_root.filePath(uuidText(id) + QStringLiteral("/session.json")));
    }
    void write(const QByteArray &json)
    {
        require(m_file.open(QIODevice::WriteOnly) && m_file.write(json) == json.size());
        m_file.close();
    }
    QString root() const { return m_root.path(); }

    const QUuid id{QStringLiteral("5B0A4E57-0F0B-4E0B-9C39-2E26E3A0B9D1")};

private:
    QTemporaryDir m_root;
    QFile m_file;
};

} // namespace

/// The list shows exactly the threads that can be loaded, and a thread that was read is written and
/// read again without a change.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    prepareQt();
    static StoredThread thread;
    static ThreadSummaryReader list(thread.root());
    static ThreadTextReader search(thread.root(), QStringLiteral("a"), QLocale::c());
    const QByteArray json = bytes(view(data, size));
    thread.write(json);
    const auto file = SessionFile::decode(json);
    const auto summary = list.read(thread.id);
    const auto hit = search.find(thread.id);
    if (hit)
        require(hit->start >= 0 && hit->length >= 0 &&
                hit->start + hit->length <= hit->snippet.size());
    const bool isListed = file && file->id == thread.id && file->screenshots.isEmpty();
    require(summary.has_value() == isListed);
    if (!file)
        return 0;
    if (summary) {
        require(summary->turns == file->turns.size() && summary->notes == file->notes.size());
        require(summary->customTitle == file->customTitle);
        require(summary->createdAt == file->createdAt && summary->updatedAt == file->updatedAt);
    }
    const auto again = SessionFile::decode(file->encode());
    require(again && again->encode() == file->encode());
    return 0;
}
