#include "platform/wayland/KWinScreenSource.h"

#include "base/Log.h"

#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>
#include <QFutureWatcher>
#include <QPromise>
#include <QThreadPool>
#include <QTimer>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace quellora {
namespace {

const QString service = QStringLiteral("org.kde.KWin");
const QString path = QStringLiteral("/org/kde/KWin/ScreenShot2");
const QString interface = QStringLiteral("org.kde.KWin.ScreenShot2");
/// Pixels per side of the largest picture.
constexpr int maxSide = 32'767;
constexpr qint64 maxBytes = 2LL * 1024 * 1024 * 1024;

/// A descriptor that is closed with its owner.
class Descriptor
{
public:
    explicit Descriptor(int number) : m_number(number) {}
    ~Descriptor()
    {
        if (m_number >= 0)
            ::close(m_number);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return m_number; }

private:
    int m_number;
};

/// Whether KWin does not take pictures for this program at all.
bool isDefinite(const QString &error)
{
    return error == QStringLiteral("org.kde.KWin.ScreenShot2.Error.NoAuthorized") ||
           error == QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown") ||
           error == QStringLiteral("org.freedesktop.DBus.Error.UnknownObject") ||
           error == QStringLiteral("org.freedesktop.DBus.Error.UnknownInterface") ||
           error == QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod");
}

} // namespace

/// One picture. Deletes itself at the end, which uncovers the panel and finishes the future.
class KWinScreenSource::Shot : public QObject
{
public:
    Shot(KWinScreenSource &source, Area area) : QObject(&source), m_source(source), m_area(area)
    {
        source.m_shots.append(this);
        m_promise.start();
        connect(&m_cancellation, &QFutureWatcherBase::canceled, this, [this] {
            m_fallback.cancel();
            deleteLater();
        });
        m_cancellation.setFuture(m_promise.future());
        m_limit.setSingleShot(true);
        connect(&m_limit, &QTimer::timeout, this,
                [this] { fail(QStringLiteral("KWin has not taken a picture in time")); });
        if (source.m_state == State::Unknown)
            connect(&source, &KWinScreenSource::stateKnown, this, &Shot::begin,
                    Qt::SingleShotConnection);
        else
            begin();
    }
    ~Shot() override
    {
        m_source.m_shots.removeOne(this);
        m_hold.reset();
        if (m_isPromiseKept)
            return;
        m_promise.future().cancel();
        m_promise.finish();
    }

    QFuture<Picture> future() { return m_promise.future(); }

private:
    void begin()
    {
        if (m_source.m_state == State::Unusable)
            return useFallback();
        m_limit.start(m_source.m_limits.answer);
        // The picture of a window shows nothing above it.
        if (m_area == Area::FrontWindow)
            return send();
        m_hold = m_source.m_veil.hold([this] { send(); });
    }
    void send()
    {
        std::array<int, 2> ends{-1, -1};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0)
            return fail(QStringLiteral("There is no pipe for the picture"));
        m_pipe = std::make_shared<Descriptor>(ends[0]);
        QDBusUnixFileDescriptor writeEnd;
        writeEnd.giveFileDescriptor(ends[1]);
        const QVariantMap options{
            {QStringLiteral("include-cursor"), m_area != Area::AllScreensForChoice},
            {QStringLiteral("include-decoration"), true},
            {QStringLiteral("include-shadow"), false},
            {QStringLiteral("native-resolution"), true}};
        QDBusMessage call;
        if (m_area == Area::OneScreen) {
            // KWin knows where the pointer is.
            call = QDBusMessage::createMethodCall(service, path, interface,
                                                  QStringLiteral("CaptureActiveScreen"));
        } else if (m_area == Area::FrontWindow) {
            call = QDBusMessage::createMethodCall(service, path, interface,
                                                  QStringLiteral("CaptureActiveWindow"));
        } else {
            const QRect area = m_source.m_allScreens();
            call = QDBusMessage::createMethodCall(service, path, interface,
                                                  QStringLiteral("CaptureArea"));
            call << area.x() << area.y() << static_cast<uint>(area.width())
                 << static_cast<uint>(area.height());
        }
        call << options << QVariant::fromValue(writeEnd);
        auto *watcher =
            new QDBusPendingCallWatcher(m_source.m_bus.connection().asyncCall(call), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this,
                [this](QDBusPendingCallWatcher *finished) {
                    finished->deleteLater();
                    handleReply(finished->reply());
                });
    }
    void handleReply(const QDBusMessage &reply)
    {
        if (m_isPromiseKept)
            return;
        m_limit.stop();
        // KWin has drawn the picture.
        m_hold.reset();
        if (reply.type() == QDBusMessage::ErrorMessage)
            return handleError(reply.errorName(), SessionBusLinux::errorText(reply));
        const QVariantMap results = qdbus_cast<QVariantMap>(reply.arguments().value(0));
        m_isPromiseKept = true;
        QThreadPool::globalInstance()->start(
            [promise = std::make_shared<QPromise<Picture>>(std::move(m_promise)), pipe = m_pipe,
             results, limit = m_source.m_limits.pixels] {
                promise->addResult(KWinScreenSource::read(pipe->get(), results, limit));
                promise->finish();
            });
        deleteLater();
    }
    void handleError(const QString &name, const QString &message)
    {
        Log::event(QStringLiteral("[ScreenSource] WARNING: No picture from KWin: %1 (%2)")
                       .arg(message, name));
        if (name == QStringLiteral("org.kde.KWin.ScreenShot2.Error.InvalidWindow"))
            return fail(QStringLiteral("No window is in front"), Failure::Kind::Unavailable);
        if (!isDefinite(name))
            return fail(QStringLiteral("KWin has not taken a picture: %1").arg(message));
        if (m_source.m_state != State::Unusable) {
            Log::event(QStringLiteral("[ScreenSource] WARNING: KWin permits pictures to installed "
                                      "programs whose desktop "
                                      "file (quellora.desktop) has "
                                      "X-KDE-DBUS-Restricted-Interfaces=%1 and the path of "
                                      "this program in Exec; using the Screenshot portal")
                           .arg(interface));
            m_source.setState(State::Unusable);
        }
        useFallback();
    }
    void useFallback()
    {
        m_fallback = m_source.m_fallback->take(m_area);
        auto *watcher = new QFutureWatcher<Picture>(this);
        connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
            if (!m_isPromiseKept && watcher->future().resultCount() > 0) {
                m_isPromiseKept = true;
                m_promise.addResult(watcher->future().result());
                m_promise.finish();
            }
            deleteLater();
        });
        watcher->setFuture(m_fallback);
    }
    void fail(const QString &reason, Failure::Kind kind = Failure::Kind::Failed)
    {
        m_hold.reset();
        if (!std::exchange(m_isPromiseKept, true)) {
            m_promise.addResult(tl::unexpected(Failure{kind, reason}));
            m_promise.finish();
        }
        deleteLater();
    }

    KWinScreenSource &m_source;
    const Area m_area;
    QPromise<Picture> m_promise;
    QFutureWatcher<Picture> m_cancellation;
    QTimer m_limit;
    std::unique_ptr<PanelVeil::Hold> m_hold;
    std::shared_ptr<Descriptor> m_pipe;
    QFuture<Picture> m_fallback;
    /// Finished, or handed to the worker.
    bool m_isPromiseKept = false;
};

KWinScreenSource::KWinScreenSource(PanelVeil &veil, std::function<QRect()> allScreens,
                                   std::unique_ptr<ScreenSource> fallback,
                                   const QString &busAddress, Limits limits)
    : m_veil(veil)
    , m_allScreens(std::move(allScreens))
    , m_fallback(std::move(fallback))
    , m_limits(limits)
    , m_bus(QStringLiteral("kwin"), busAddress)
{
    m_fallback->onAccessChanged([this] {
        if (m_state == State::Unusable && m_handler)
            m_handler();
    });
    if (busAddress.isEmpty())
        m_state = State::Unusable;
    connect(&m_bus, &SessionBusLinux::failed, this, [this] { setState(State::Unusable); });
    connect(&m_bus, &SessionBusLinux::connected, this, [this] {
        QDBusMessage ask = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameHasOwner"));
        ask << service;
        auto *watcher = new QDBusPendingCallWatcher(m_bus.connection().asyncCall(ask), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this,
                [this](QDBusPendingCallWatcher *finished) {
                    finished->deleteLater();
                    const QDBusPendingReply<bool> reply = *finished;
                    setState(!reply.isError() && reply.value() ? State::Usable : State::Unusable);
                });
    });
}

KWinScreenSource::~KWinScreenSource()
{
    // Before the members that they use.
    const QList<Shot *> shots = m_shots;
    qDeleteAll(shots);
}

void KWinScreenSource::setState(State state)
{
    if (m_state == state)
        return;
    const Access before = access();
    m_state = state;
    Q_EMIT stateKnown();
    if (m_handler && access() != before)
        m_handler();
}

QFuture<ScreenSource::Picture> KWinScreenSource::take(Area area)
{
    return (new Shot(*this, area))->future();
}

ScreenSource::Access KWinScreenSource::access() const
{
    switch (m_state) {
    case State::Unknown:
        return Access::Unknown;
    case State::Usable:
        return Access::Granted;
    case State::Unusable:
        break;
    }
    return m_fallback->access();
}

QString KWinScreenSource::advice() const
{
    return m_state == State::Unusable ? m_fallback->advice() : QString();
}

void KWinScreenSource::onAccessChanged(std::function<void()> handler)
{
    m_handler = std::move(handler);
}

QFuture<ScreenSource::Access> KWinScreenSource::ask()
{
    return m_state == State::Unusable ? m_fallback->ask() : ScreenSource::ask();
}

ScreenSource::Picture KWinScreenSource::read(int pipe, const QVariantMap &results,
                                             std::chrono::milliseconds limit)
{
    const auto failed = [](const QString &text) {
        return tl::unexpected(
            Failure{Failure::Kind::Failed, QStringLiteral("KWin's picture %1").arg(text)});
    };
    const qint64 width = results.value(QStringLiteral("width")).toUInt();
    const qint64 height = results.value(QStringLiteral("height")).toUInt();
    const qint64 stride = results.value(QStringLiteral("stride")).toUInt();
    // KWin sends the number of QImage's format.
    const uint format = results.value(QStringLiteral("format")).toUInt();
    const bool isKnown = format == QImage::Format_RGB32 || format == QImage::Format_ARGB32 ||
                         format == QImage::Format_ARGB32_Premultiplied ||
                         format == QImage::Format_RGBX8888 || format == QImage::Format_RGBA8888 ||
                         format == QImage::Format_RGBA8888_Premultiplied;
    if (!isKnown || width < 1 || height < 1 || width > maxSide || height > maxSide ||
        stride < width * 4 || stride * height > maxBytes)
        return failed(QStringLiteral("has an unknown form"));
    QImage image(static_cast<int>(width), static_cast<int>(height),
                 static_cast<QImage::Format>(format));
    if (image.isNull())
        return failed(QStringLiteral("needs more memory than there is"));
    // The rows may be longer than those of the image.
    QByteArray row(stride, Qt::Uninitialized);
    for (int y = 0; y < image.height(); ++y) {
        const bool isSame = image.bytesPerLine() == stride;
        char *target = isSame ? reinterpret_cast<char *>(image.scanLine(y)) : row.data();
        // All rows at once where they lie in a row.
        const qint64 wanted = isSame ? stride * height : stride;
        qint64 done = 0;
        while (done < wanted) {
            pollfd ready{pipe, POLLIN, 0};
            const int polled = ::poll(&ready, 1, static_cast<int>(limit.count()));
            if (polled == 0)
                return failed(QStringLiteral("has not arrived in time"));
            if (polled < 0 && errno == EINTR)
                continue;
            const ssize_t count = ::read(pipe, target + done, static_cast<size_t>(wanted - done));
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                return failed(QStringLiteral("has not arrived completely"));
            done += count;
        }
        if (isSame)
            break;
        std::copy_n(row.constData(), width * 4, reinterpret_cast<char *>(image.scanLine(y)));
    }
    return image;
}

} // namespace quellora
