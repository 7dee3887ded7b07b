#pragma once

#include <QFuture>
#include <QFutureWatcher>
#include <QObject>

#include <utility>

namespace quellora {

/// Calls @p callback with the result of @p future on the thread of @p context, from its event loop,
/// unless the context has gone by then or the future was cancelled.
///
/// QFuture::then() with a context is not used, because in Qt 6.4 it stops the process when the
/// context is destroyed before the future finishes.
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
