#pragma once

#include <QObject>
#include <QStringList>
#include <QTimer>

#include <chrono>

namespace quellora {

/// Queue of texts for screen readers: polite, i.e. in order and never interrupting, at most one
/// announcement per interval. Texts that wait are announced together, up to a length. Its timer
/// runs only while texts wait and for one interval after an announcement. Main thread only.
class Announcer : public QObject
{
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds defaultInterval{400};
    /// An announcement longer than this is a single text.
    static constexpr qsizetype maximumLength = 600;

    explicit Announcer(std::chrono::milliseconds interval = defaultInterval,
                       QObject *parent = nullptr);

    void say(const QStringList &texts);
    /// As say(), for a state: replaces one that still waits.
    void sayState(const QString &text);
    /// Forgets what waits.
    void clear();

Q_SIGNALS:
    void announced(const QString &text);

private:
    struct Text
    {
        QString text;
        bool isState = false;
    };

    void add(const Text &text);
    void announceNext();

    std::chrono::milliseconds m_interval;
    QTimer m_timer;
    QList<Text> m_waiting;
};

} // namespace quellora
