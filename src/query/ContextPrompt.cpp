#include "query/ContextPrompt.h"

namespace quellora {

QString contextAugmentedPrompt(const QString &fieldText, const CaptureSession &session)
{
    if (session.notes.isEmpty() && session.turns.isEmpty())
        return fieldText;
    QString prompt;
    if (!session.notes.isEmpty()) {
        prompt += QLatin1String("Notes:\n");
        for (const auto &note : session.notes)
            prompt += QLatin1String("- ") + note.text + QLatin1Char('\n');
        prompt += QLatin1Char('\n');
    }
    if (!session.turns.isEmpty()) {
        prompt += QLatin1String("Previous conversation:\n");
        for (const auto &turn : session.turns) {
            prompt += QLatin1String("User: ") + turn.prompt + QLatin1String("\nAssistant: ") +
                      turn.response + QLatin1String("\n\n");
        }
    }
    return prompt + QLatin1String("Current message:\n") + fieldText;
}

} // namespace quellora
