#pragma once

#include "history/TextFolding.h"
#include "history/ThreadHit.h"

#include <memory>
#include <optional>

namespace quellora {

/// Searches the notes, questions and answers of stored threads, in turns with several versions
/// first the one on show. Opens no images.
///
/// Blocking; for use on a worker. Not reentrant, because buffers are reused between calls.
class ThreadTextReader
{
public:
    /// @param sessionsRoot folder that contains the threads' folders
    /// @param text not blank
    ThreadTextReader(const QString &sessionsRoot, const QString &text, const QLocale &locale);
    ~ThreadTextReader();
    ThreadTextReader(const ThreadTextReader &) = delete;
    ThreadTextReader &operator=(const ThreadTextReader &) = delete;

    /// The first occurrence in a thread's file; nothing if there is none or the thread cannot be
    /// read.
    std::optional<ThreadHit> find(const QUuid &id);

private:
    struct Buffers;

    std::optional<ThreadHit> findQuickly(qsizetype size);
    std::optional<ThreadHit> findStrictly(const QByteArray &json);
    std::optional<ThreadHit> findIn(std::string_view utf8, ThreadHit::Place place);

    QByteArray m_root;
    SearchText m_text;
    std::unique_ptr<Buffers> m_buffers;
};

} // namespace quellora
