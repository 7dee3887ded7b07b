#include "query/ActiveQuery.h"

#include "base/AppConfig.h"

namespace quellora {

QJsonObject telemetryRecord(const ActiveQuery &query, const DoneInfo &info, const QDateTime &now,
                            qint64 usedAfter, qint64 cap)
{
    const auto millisecondsSinceStart = [&query](const QDateTime &moment) {
        return static_cast<double>(query.queryStart.msecsTo(moment));
    };
    return {
        {QStringLiteral("model_used"), query.model.value_or(QStringLiteral("unknown"))},
        {QStringLiteral("used_fallback"), info.usedFallback},
        {QStringLiteral("prompt_chars"), query.promptCharacters},
        {QStringLiteral("has_image"), query.hasImage},
        {QStringLiteral("response_time_ms"), millisecondsSinceStart(now)},
        // An empty answer counts its completion as the first token.
        {QStringLiteral("time_to_first_token_ms"),
         millisecondsSinceStart(query.firstToken.value_or(now))},
        {QStringLiteral("input_tokens"), 0},
        {QStringLiteral("output_tokens"), 0},
        {QStringLiteral("total_tokens"), info.tokensUsed},
        {QStringLiteral("tokens_used_before"), query.tokensUsedBefore},
        {QStringLiteral("tokens_remaining_after"), cap - usedAfter},
        {QStringLiteral("token_cap"), cap},
        {QStringLiteral("over_cap"), cap < usedAfter},
        {QStringLiteral("app_version"), QLatin1String(AppConfig::appVersion)},
        {QStringLiteral("platform"), QStringLiteral("mac")},
    };
}

} // namespace quellora
