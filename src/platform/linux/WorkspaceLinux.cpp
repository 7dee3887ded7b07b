#include "platform/linux/WorkspaceLinux.h"

#include "platform/OpenRules.h"
#include "platform/wayland/PanelWindowWayland.h"

#include <QFileInfo>
#include <QProcess>
#include <QPromise>
#include <QStandardPaths>
#include <QTimer>

#include <unistd.h>

#include <utility>

namespace quellora {
namespace {

const OpenResult opened;

/// User-visible meaning of an exit status, as documented in the manual of xdg-open.
QString statusText(int status)
{
    switch (status) {
    case 2:
        return QStringLiteral("xdg-open did not find it (status 2)");
    case 3:
        return QStringLiteral("there is no program for it (xdg-open, status 3)");
    case 4:
        return QStringLiteral("its program failed (xdg-open, status 4)");
    default:
        return QStringLiteral("xdg-open ended with status %1").arg(status);
    }
}

/// One run of xdg-open. Deletes itself when the process has finished; deleting it earlier does not
/// end the process.
class Opener : public QProcess
{
public:
    Opener(const QString &program, const QUrl &url, QObject *parent) : QProcess(parent), m_url(url)
    {
        setProgram(program);
        // Encoded and starting with its scheme, an address cannot be parsed as an option.
        setArguments({url.toString(QUrl::FullyEncoded)});
        // Keeps the output of browsers out of the log on standard output.
        setStandardInputFile(nullDevice());
        setStandardOutputFile(nullDevice());
        setStandardErrorFile(nullDevice());
        // A new session, so that signals from this program's terminal do not reach the browser.
        // Meant for this program's panel; another program's windows would not appear.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QString::fromLatin1(PanelWindowWayland::bypassVariable));
        setProcessEnvironment(environment);
        setChildProcessModifier([] { ::setsid(); });
        connect(this, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
            if (error != QProcess::FailedToStart)
                return;
            fail(QStringLiteral("xdg-open could not be started"));
            deleteLater();
        });
        connect(this, &QProcess::finished, this, [this](int status, QProcess::ExitStatus how) {
            if (how == QProcess::CrashExit)
                fail(QStringLiteral("xdg-open crashed"));
            else if (status != 0)
                fail(statusText(status));
            else
                finish(opened);
            deleteLater();
        });
    }
    ~Opener() override
    {
        // Otherwise the base class would kill the process.
        setProcessState(QProcess::NotRunning);
    }
    Q_DISABLE_COPY_MOVE(Opener)

    QFuture<OpenResult> run(std::chrono::milliseconds timeout)
    {
        m_promise.start();
        start();
        QTimer::singleShot(timeout, this, [this] { finish(opened); });
        return m_promise.future();
    }

private:
    void fail(const QString &reason)
    {
        if (!m_isFinished)
            finish(tl::unexpected(OpenRules::failure(m_url, reason)));
    }
    void finish(const OpenResult &result)
    {
        if (std::exchange(m_isFinished, true))
            return;
        m_promise.addResult(result);
        m_promise.finish();
    }

    QUrl m_url;
    QPromise<OpenResult> m_promise;
    bool m_isFinished = false;
};

} // namespace

QFuture<OpenResult> WorkspaceLinux::openUrl(const QUrl &url)
{
    if (const auto refusal = OpenRules::checkAllowed(url))
        return OpenRules::failedFuture(*refusal);
    return startOpener(url);
}

QFuture<OpenResult> WorkspaceLinux::openFile(const QString &path)
{
    if (const auto refusal = OpenRules::checkAllowed(path))
        return OpenRules::failedFuture(*refusal);
    return startOpener(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));
}

QFuture<OpenResult> WorkspaceLinux::startOpener(const QUrl &url)
{
    const QString program = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    if (program.isEmpty())
        return OpenRules::failedFuture(
            OpenRules::failure(url, QStringLiteral("xdg-open is not installed")));
    auto *opener = new Opener(program, url, &m_openerParent);
    return opener->run(m_timeout);
}

} // namespace quellora
