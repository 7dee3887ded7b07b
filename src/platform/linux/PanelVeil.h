#pragma once

#include <QElapsedTimer>
#include <QList>
#include <QObject>

#include <functional>
#include <memory>

namespace quellora {

/// Makes this program's panel invisible while the desktop takes a picture. Covering changes nothing
/// but what is drawn: focus, pointer grabs, input region and contents stay. Main thread only.
class PanelVeil : public QObject
{
    Q_OBJECT
public:
    /// The panel stays invisible at least as long as the object lives.
    class Hold
    {
    public:
        Hold() = default;
        virtual ~Hold() = default;
        Hold(const Hold &) = delete;
        Hold &operator=(const Hold &) = delete;
    };

    using QObject::QObject;

    /// Makes the panel invisible. @p ready is called once from the event loop when the desktop no
    /// longer draws it, unless the hold is destroyed before. Several holds may exist at once.
    [[nodiscard]] std::unique_ptr<Hold> hold(std::function<void()> ready);

    /// Makes the panel invisible for what the caller requests next from the compositor, on the same
    /// connection.
    [[nodiscard]] std::unique_ptr<Hold> holdNow();

protected:
    /// Whether there is a panel on the screen that must be covered.
    virtual bool isNeeded() const = 0;
    /// Makes the panel invisible and calls @p done when the desktop has drawn that, in any case
    /// after a limited time.
    virtual void cover(std::function<void()> done) = 0;
    /// Makes the panel visible again; may be called before `done` of cover().
    virtual void uncover() = 0;
    /// Logs how long the panel was gone.
    virtual void logDuration(qint64 milliseconds);
    /// To be called when a panel has appeared: covers it if a picture is being taken.
    void panelShown();

private:
    class CountedHold;
    struct Waiting
    {
        const CountedHold *hold;
        std::function<void()> ready;
    };
    void startCovering();
    void callReady(const CountedHold *hold);
    void release(const CountedHold *hold);

    QList<const CountedHold *> m_holds;
    QList<Waiting> m_waiting;
    bool m_isCovering = false;
    bool m_isCovered = false;
    /// Counts the covers, so that a late report of an earlier one is ignored.
    quint64 m_cover = 0;
    QElapsedTimer m_since;
};

} // namespace quellora
