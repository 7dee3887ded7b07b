#include "overlay/AnswerTextSize.h"

#include "base/Settings.h"

#include <algorithm>
#include <cstdlib>

namespace quellora {

AnswerTextSize::AnswerTextSize(Settings &settings, QObject *parent)
    : QObject(parent), m_settings(settings)
{
    connect(&m_settings, &Settings::answerTextSizeChanged, this, &AnswerTextSize::changed);
}

int AnswerTextSize::percent() const
{
    bool isNumber = false;
    const int stored = m_settings.answerTextSize().toInt(&isNumber);
    if (!isNumber)
        return 100;
    const int wanted = std::clamp(stored, percents.front(), percents.back());
    return *std::min_element(percents.begin(), percents.end(), [wanted](int a, int b) {
        return std::abs(a - wanted) < std::abs(b - wanted);
    });
}

void AnswerTextSize::change(int direction)
{
    int percent = 100;
    if (direction != 0) {
        const auto *const current = std::find(percents.begin(), percents.end(), this->percent());
        percent = direction > 0                 ? *std::min(current + 1, percents.end() - 1)
                  : current == percents.begin() ? *current
                                                : *(current - 1);
    }
    m_settings.setAnswerTextSize(percent == 100 ? QString() : QString::number(percent));
}

} // namespace quellora
