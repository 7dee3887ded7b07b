#pragma once

#include "backend/Records.h"
#include "fakes/LogCapture.h"
#include "fakes/ScriptedHttpServer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace quellora {

/// Body of a successful sign-in or verification.
inline QByteArray goodBody(const QString &token = QStringLiteral("fresh"), int used = 10)
{
    return QJsonDocument(QJsonObject{{"token", token},
                                     {"sessionId", "s"},
                                     {"config", QJsonObject{{"model", "m"},
                                                            {"availableModels", QJsonArray()},
                                                            {"defaultPrompt", "p"},
                                                            {"minimumAppVersion", "1"},
                                                            {"tokensUsed", used},
                                                            {"tokensRemaining", 90},
                                                            {"tokenCap", 100},
                                                            {"usageWarning75", false},
                                                            {"usageWarning90", false},
                                                            {"plan", "p"},
                                                            {"subscriptionStatus", "a"},
                                                            {"heartbeatIntervalSeconds", 5}}}})
        .toJson(QJsonDocument::Compact);
}

inline DeviceFields sampleDevice()
{
    return {"Debian 12", {{"capture", "ctrl+c"}}, "x86_64"};
}

} // namespace quellora
