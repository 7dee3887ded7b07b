#pragma once

#include <QObject>

#include <chrono>
#include <functional>
#include <optional>

class QWindow;

namespace quellora {

/// Notices that the user comes back to the panel from the account page in the browser, where other
/// models may have been connected. Main thread only.
class AccountVisit : public QObject
{
    Q_OBJECT
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    /// How long after its opening the page counts as open.
    static constexpr std::chrono::minutes longestVisit{30};
    /// The shortest time between two returns.
    static constexpr std::chrono::seconds pause{3};

    /// @param panel must outlive this object
    explicit AccountVisit(QWindow &panel, Clock clock = &std::chrono::steady_clock::now);

    /// The panel has opened the account page.
    void begin();
    /// Whether the page may be open although the panel did not open it.
    void setLasting(bool isLasting);

Q_SIGNALS:
    /// The pointer or the keyboard has come back to the panel, or the panel is shown again.
    void returned();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    Clock m_clock;
    bool m_isLasting = false;
    std::optional<std::chrono::steady_clock::time_point> m_begun;
    std::optional<std::chrono::steady_clock::time_point> m_lastReturn;
};

} // namespace quellora
