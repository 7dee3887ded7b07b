#pragma once

#include "history/CaptureSession.h"

#include <QByteArray>

#include <tl/expected.hpp>

namespace quellora {

/// The kept part of a thread as it is stored in `session.json`; the images are files of their own.
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

    /// Pretty-printed UTF-8 JSON with sorted keys; dates in UTC with second precision.
    QByteArray encode() const;
    /// @return the record, or which key is wrong
    static tl::expected<SessionFile, QString> decode(const QByteArray &json);
};

} // namespace quellora
