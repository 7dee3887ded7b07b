#include "platform/contract/LinuxHarness.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

namespace quellora {

QString LinuxHarness::prepare()
{
    qputenv("XDG_DATA_HOME", path("data").toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", path("config").toLocal8Bit());
    if (!m_bus.start())
        return QStringLiteral("the session bus did not start");
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toLocal8Bit());
    m_portal = std::make_unique<FakePortal>(m_bus.address());
    if (!m_portal->isServing())
        return QStringLiteral("the portal did not start");
    // Writes to a temporary file and renames it, so that "opened" is always complete. Blocks on the
    // pipe "hold" while that exists and fails while "fail" exists.
    QFile opener(path("xdg-open"));
    if (!opener.open(QIODevice::WriteOnly) ||
        !opener.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner))
        return opener.errorString();
    opener.write(QStringLiteral("#!/bin/sh\ncd '%1'\n[ -p hold ] && read -r line < hold\n"
                                "[ -e fail ] && exit 4\n"
                                "printf '%s\\n' \"$@\" > part && /bin/mv part opened\n")
                     .arg(m_folder.path())
                     .toLocal8Bit());
    qputenv("PATH", m_folder.path().toLocal8Bit() + ':' + qgetenv("PATH"));
    return {};
}

std::unique_ptr<Platform> LinuxHarness::makePlatform()
{
    QFile::remove(path("opened"));
    QFile::remove(path("fail"));
    return Platform::create();
}

void LinuxHarness::setDark(bool on)
{
    m_portal->value = on ? 1U : 2U;
    m_portal->sendChange(QStringLiteral("org.freedesktop.appearance"),
                         QStringLiteral("color-scheme"), m_portal->value);
}

void LinuxHarness::setReducesMotion(bool on)
{
    m_portal->animations = !on;
    m_portal->sendChange(QStringLiteral("org.gnome.desktop.interface"),
                         QStringLiteral("enable-animations"), !on);
}

void LinuxHarness::holdOpening(bool on)
{
    if (on) {
        ::mkfifo(qPrintable(path("hold")), 0600);
        return;
    }
    // Blocks until the opener, which has already been started, opens its end.
    QFile pipe(path("hold"));
    if (pipe.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        pipe.write("go on\n");
    pipe.remove();
}

void LinuxHarness::failOpening()
{
    QFile mark(path("fail"));
    if (!mark.open(QIODevice::WriteOnly))
        qWarning() << mark.errorString();
}

QList<QUrl> LinuxHarness::opened()
{
    QFile file(path("opened"));
    QList<QUrl> all;
    if (file.open(QIODevice::ReadOnly)) {
        for (const QByteArray &line : file.readAll().trimmed().split('\n'))
            all << QUrl::fromEncoded(line);
    }
    return all;
}

QString LinuxHarness::installedPath(const QString &program) const
{
    const QFileInfo file(program);
    return file.absolutePath() == QCoreApplication::applicationDirPath()
               ? QStringLiteral(QUELLORA_BIN_DIR) + u'/' + file.fileName()
               : program;
}

} // namespace quellora
