#pragma once

#include "history/CaptureSession.h"

#include <QByteArray>

#include <tl/expected.hpp>

namespace quellora {

/// The kept part of a thread as stored in `session.json`; images are separate files.
struct SessionFile
{
    struct ScreenshotMetadata
    {
        qint64 index = 0;
        QDateTime capturedAt;
    };

    QUuid id;
    QDateTime createdAt;
    QDateTime updatedAt;
    QList<CaptureSession::Note> notes;
    QList<CaptureSession::Turn> turns;
    QList<ScreenshotMetadata> screenshots;
    std::optional<QString> customTitle;

    /// Indented UTF-8 JSON with sorted keys; dates in UTC with second precision.
    QByteArray encode() const;
    /// @return the record, or a message naming the first invalid key
    static tl::expected<SessionFile, QString> decode(const QByteArray &json);
};

} // namespace quellora
