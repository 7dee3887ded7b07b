#include "query/ContextPrompt.h"

#include <algorithm>

namespace quellora {

QString contextAugmentedPrompt(const QString &fieldText, const CaptureSession &session,
                               const QUuid &replaced)
{
    const auto end = std::find_if(session.turns.cbegin(), session.turns.cend(),
                                  [&replaced](const auto &turn) { return turn.id == replaced; });
    const bool hasTurns = end != session.turns.cbegin();
    if (session.notes.isEmpty() && !hasTurns)
        return fieldText;
    QString prompt;
    if (!session.notes.isEmpty()) {
        prompt += QLatin1String("Notes:\n");
        for (const auto &note : session.notes)
            prompt += QLatin1String("- ") + note.text + QLatin1Char('\n');
        prompt += QLatin1Char('\n');
    }
    if (hasTurns) {
        prompt += QLatin1String("Previous conversation:\n");
        for (auto turn = session.turns.cbegin(); turn != end; ++turn) {
            prompt += QLatin1String("User: ") + turn->prompt + QLatin1String("\nAssistant: ") +
                      turn->response + QLatin1String("\n\n");
        }
    }
    return prompt + QLatin1String("Current message:\n") + fieldText;
}

} // namespace quellora
