#include "platform/linux/WorkspaceLinux.h"

#include "platform/OpenRules.h"

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

/// What a status of xdg-open means, as its manual says.
QString meaningOf(int status)
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

/// One run of the opener. Deletes itself when the run has ended; deleted before, it leaves the run
/// alone.
class Opener : public QProcess
{
public:
    Opener(const QString &program, const QUrl &url, QObject *parent) : QProcess(parent), m_url(url)
    {
        setProgram(program);
        // Encoded and with its scheme in front, an address can never be taken for an option.
        setArguments({url.toString(QUrl::FullyEncoded)});
        // Standard output is the log's alone, and browsers are talkative.
        setStandardInputFile(nullDevice());
        setStandardOutputFile(nullDevice());
        setStandardErrorFile(nullDevice());
        // What ends this program from a terminal does not end the user's browser.
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
                fail(meaningOf(status));
            else
                finish(opened);
            deleteLater();
        });
    }
    ~Opener() override
    {
        // Or the base class would kill it.
        setProcessState(QProcess::NotRunning);
    }
    Q_DISABLE_COPY_MOVE(Opener)

    QFuture<OpenResult> run(std::chrono::milliseconds patience)
    {
        m_promise.start();
        start();
        QTimer::singleShot(patience, this, [this] { finish(opened); });
        return m_promise.future();
    }

private:
    void fail(const QString &reason)
    {
        if (!m_told)
            finish(tl::unexpected(OpenRules::failure(m_url, reason)));
    }
    void finish(const OpenResult &result)
    {
        if (std::exchange(m_told, true))
            return;
        m_promise.addResult(result);
        m_promise.finish();
    }

    QUrl m_url;
    QPromise<OpenResult> m_promise;
    bool m_told = false;
};

} // namespace

QFuture<OpenResult> WorkspaceLinux::openUrl(const QUrl &url)
{
    if (const auto refusal = OpenRules::refusalOf(url))
        return OpenRules::notOpened(*refusal);
    return handOver(url);
}

QFuture<OpenResult> WorkspaceLinux::openFile(const QString &path)
{
    if (const auto refusal = OpenRules::refusalOf(path))
        return OpenRules::notOpened(*refusal);
    return handOver(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));
}

QFuture<OpenResult> WorkspaceLinux::handOver(const QUrl &url)
{
    const QString program = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    if (program.isEmpty())
        return OpenRules::notOpened(
            OpenRules::failure(url, QStringLiteral("xdg-open is not installed")));
    auto *opener = new Opener(program, url, &m_openers);
    return opener->run(m_patience);
}

} // namespace quellora
