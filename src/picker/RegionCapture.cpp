#include "picker/RegionCapture.h"

#include "base/Log.h"
#include "base/Settings.h"
#include "base/WhenFinished.h"
#include "picker/StoredRegion.h"
#include "platform/Platform.h"

#include <QCursor>
#include <QElapsedTimer>
#include <QFutureWatcher>
#include <QGuiApplication>
#include <QPointer>
#include <QPromise>
#include <QScreen>
#include <QWindow>

#include <algorithm>
#include <utility>

namespace quellora {
namespace {

using Outcome = ScreenshotCapture::Outcome;
using CaptureError = ScreenshotCapture::CaptureError;

void log(const QString &message)
{
    Log::event(QStringLiteral("[RegionCapture] ") + message);
}

Outcome failure(CaptureError::Kind kind, const QString &detail = {})
{
    return tl::unexpected(CaptureError{kind, detail, 0});
}

/// The part of each screen, of those that the picture shows; empty if it does not show them as
/// @p layout says.
QList<RegionPicker::Frozen> cut(const QImage &picture, ScreenLayout layout)
{
    const QList<QScreen *> screens = QGuiApplication::screens();
    QList<RegionPicker::Frozen> result;
    const qsizetype count = std::min(screens.size(), layout.screens.size());
    for (qsizetype i = 0; i < count; ++i) {
        layout.chosen = static_cast<int>(i);
        const QRect part = chosenPart(picture.size(), layout);
        const bool isWhole = part.size() == picture.size();
        if (part.isEmpty() || (isWhole && layout.screens.size() > 1))
            return {};
        result.append({screens.at(i), isWhole ? picture : picture.copy(part)});
    }
    return result;
}

/// The screen with the pointer; the first one where that is not known.
int pointedScreen(const QList<RegionPicker::Frozen> &screens)
{
    const QScreen *pointed = QGuiApplication::screenAt(QCursor::pos());
    const auto found = std::find_if(screens.begin(), screens.end(), [pointed](const auto &frozen) {
        return frozen.screen == pointed;
    });
    return found == screens.end() ? 0 : static_cast<int>(found - screens.begin());
}

} // namespace

/// One capture. Deletes itself at the end, which finishes the future.
class RegionCapture::Run : public QObject
{
public:
    Run(RegionCapture &owner, bool again) : QObject(&owner), m_owner(owner), m_again(again)
    {
        m_time.start();
        m_promise.start();
        connect(&m_cancellation, &QFutureWatcherBase::canceled, this, &Run::cancel);
        m_cancellation.setFuture(m_promise.future());
        m_frozen = owner.m_collaborators.freeze();
        whenFinished(m_frozen, this,
                     [this](const ScreenshotCapture::Frozen &frozen) { handleFrozen(frozen); });
    }
    ~Run() override
    {
        endChoice();
        m_frozen.cancel();
        m_encoded.cancel();
        if (std::exchange(m_isFinished, true))
            return;
        m_promise.future().cancel();
        m_promise.finish();
    }

    QFuture<Outcome> future() { return m_promise.future(); }

private:
    void handleFrozen(const ScreenshotCapture::Frozen &frozen)
    {
        if (m_isFinished)
            return;
        if (!frozen)
            return finish(tl::unexpected(frozen.error()));
        m_frozenAfter = m_time.elapsed();
        m_screens = cut(*frozen, m_owner.m_collaborators.layout());
        if (m_screens.isEmpty())
            return finish(failure(CaptureError::Kind::SourceFailed,
                                  QStringLiteral("The picture of the screens does not show them "
                                                 "as they lie beside each other")));
        if (m_again && takeLast())
            return;
        if (m_owner.m_choosing) {
            log(QStringLiteral("Another choice is under way"));
            return finish(failure(CaptureError::Kind::Dismissed));
        }
        choose();
    }
    /// @return false if the last part is not on these screens
    bool takeLast()
    {
        const auto last =
            StoredRegion::fromText(m_owner.m_collaborators.settings.lastCaptureRegion());
        if (!last)
            return false;
        for (const RegionPicker::Frozen &frozen : std::as_const(m_screens)) {
            if (frozen.screen && frozen.screen->name() == last->screen &&
                frozen.picture.size() == last->picture) {
                encode(frozen.picture.copy(last->part), false);
                return true;
            }
        }
        log(QStringLiteral("The last region is on no screen"));
        return false;
    }
    void choose()
    {
        m_owner.m_choosing = this;
        m_before = QGuiApplication::focusWindow();
        m_picker = std::make_unique<RegionPicker>(m_owner.m_collaborators.panels,
                                                  m_owner.m_collaborators.textScale());
        connect(m_picker.get(), &RegionPicker::shown, this, [this] {
            log(QStringLiteral("Region shown after %1 ms, the screens were frozen after %2")
                    .arg(m_time.elapsed())
                    .arg(m_frozenAfter));
            Q_EMIT m_owner.pickerShown();
        });
        // Queued: the picker is destroyed in answer to its own event.
        connect(m_picker.get(), &RegionPicker::chosen, this, &Run::handleChosen,
                Qt::QueuedConnection);
        connect(
            m_picker.get(), &RegionPicker::dismissed, this,
            [this] {
                endChoice();
                finish(failure(CaptureError::Kind::Dismissed));
            },
            Qt::QueuedConnection);
        m_picker->show(m_screens, pointedScreen(m_screens));
    }
    void handleChosen(int screen, const QRect &part, bool isForLater)
    {
        if (!m_picker)
            return;
        endChoice();
        const RegionPicker::Frozen &frozen = m_screens.at(screen);
        if (frozen.screen)
            m_owner.m_collaborators.settings.setLastCaptureRegion(
                StoredRegion{frozen.screen->name(), frozen.picture.size(), part}.toText());
        encode(frozen.picture.copy(part), isForLater);
    }
    void encode(const QImage &part, bool isForLater)
    {
        m_screens.clear();
        m_encoded = ScreenshotCapture::encodeInBackground(part);
        whenFinished(m_encoded, this, [this, isForLater](Outcome outcome) {
            if (outcome)
                outcome->isForLater = isForLater;
            finish(outcome);
        });
    }
    void endChoice()
    {
        if (m_owner.m_choosing != this)
            return;
        m_owner.m_choosing = nullptr;
        m_picker.reset();
        // On some desktops the keyboard does not find its way back to a panel.
        if (m_before && m_before->isVisible())
            m_owner.m_collaborators.panels.makeKey(*m_before);
    }
    void cancel()
    {
        endChoice();
        deleteLater();
    }
    void finish(const Outcome &outcome)
    {
        if (std::exchange(m_isFinished, true))
            return;
        m_promise.addResult(outcome);
        m_promise.finish();
        deleteLater();
    }

    RegionCapture &m_owner;
    const bool m_again;
    QElapsedTimer m_time;
    qint64 m_frozenAfter = 0;
    QPromise<Outcome> m_promise;
    QFutureWatcher<Outcome> m_cancellation;
    QFuture<ScreenshotCapture::Frozen> m_frozen;
    QFuture<Outcome> m_encoded;
    QList<RegionPicker::Frozen> m_screens;
    std::unique_ptr<RegionPicker> m_picker;
    /// The program's own window that had the keyboard before the choice.
    QPointer<QWindow> m_before;
    bool m_isFinished = false;
};

RegionCapture::RegionCapture(Collaborators collaborators, QObject *parent)
    : QObject(parent), m_collaborators(std::move(collaborators))
{}

RegionCapture::~RegionCapture()
{
    // Before the members that they use.
    const QList<Run *> runs = findChildren<Run *>(QString(), Qt::FindDirectChildrenOnly);
    qDeleteAll(runs);
}

QFuture<Outcome> RegionCapture::capture(bool again)
{
    if (m_choosing && !again) {
        log(QStringLiteral("Another choice is under way"));
        return QtFuture::makeReadyFuture<Outcome>(failure(CaptureError::Kind::Dismissed));
    }
    return (new Run(*this, again))->future();
}

} // namespace quellora
