#pragma once

#include <QFuture>
#include <QFutureWatcher>
#include <QObject>

#include <utility>

namespace quellora {

/// Calls @p callback with the result of @p future from the event loop of @p context's thread,
/// unless the context is destroyed first or the future is cancelled.
///
/// Replaces QFuture::then() with a context, which in Qt 6.4 aborts the process if the context is
/// destroyed before the future finishes.
template <typename Result, typename Callback>
void whenFinished(const QFuture<Result> &future, QObject *context, Callback callback)
{
    auto *watcher = new QFutureWatcher<Result>(context);
    QObject::connect(watcher, &QFutureWatcherBase::finished, context,
                     [watcher, callback = std::move(callback)] {
                         watcher->deleteLater();
                         if (!watcher->isCanceled())
                             callback(watcher->result());
                     });
    watcher->setFuture(future);
}

} // namespace quellora
