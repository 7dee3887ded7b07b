#pragma once

#include <QObject>

#include <array>

namespace quellora {

class Settings;

/// The size of the answer's text, in steps, relative to the desktop's text size. Stored in the
/// settings. Main thread only.
class AnswerTextSize : public QObject
{
    Q_OBJECT
public:
    static constexpr std::array percents{50, 67, 80, 90, 100, 110, 125, 150, 175, 200};

    /// @param settings must outlive this object
    explicit AnswerTextSize(Settings &settings, QObject *parent = nullptr);

    /// One of percents: the step next to what is stored, 100 if that is no size.
    int percent() const;
    double factor() const { return percent() / 100.0; }
    /// Goes a step up (1) or down (-1), at most to the last one, or to the normal size (0).
    void change(int direction);

Q_SIGNALS:
    void changed();

private:
    Settings &m_settings;
};

} // namespace quellora
