#pragma once

#include "history/CaptureSession.h"

namespace quellora {

/// Summary of a stored thread for the list, without its contents.
struct ThreadSummary
{
    QUuid id;
    QDateTime createdAt;
    QDateTime updatedAt;
    /// Title given by the user.
    std::optional<QString> customTitle;
    /// Title derived from the contents.
    QString previewText;
    qint64 turns = 0;
    qint64 notes = 0;
    qint64 screenshots = 0;

    QString title() const { return customTitle.value_or(previewText); }

    bool operator==(const ThreadSummary &) const = default;
};

/// List order: most recently updated first, ties broken by id.
inline bool isNewer(const ThreadSummary &left, const ThreadSummary &right)
{
    return left.updatedAt != right.updatedAt ? left.updatedAt > right.updatedAt
                                             : left.id < right.id;
}

} // namespace quellora

Q_DECLARE_TYPEINFO(quellora::ThreadSummary, Q_RELOCATABLE_TYPE);
