#include "platform/contract/OtherProgram.h"

#include "platform/contract/ProbeWindow.h"

#include <QDrag>
#include <QFile>
#include <QGuiApplication>
#include <QMimeData>
#include <QPainter>
#include <QScreen>
#include <QSocketNotifier>
#include <QtTest>

#include <cstdio>
#include <iostream>
#include <string>

namespace quellora {
namespace {

void report(const QString &line)
{
    std::fputs(qPrintable(line + u'\n'), stdout);
    static_cast<void>(std::fflush(stdout));
}

/// Reports its input events on standard output.
class ReportingWindow : public QRasterWindow
{
public:
    explicit ReportingWindow(const OtherProgram::System &system) : m_system(system) {}

protected:
    void exposeEvent(QExposeEvent *event) override
    {
        QRasterWindow::exposeEvent(event);
        if (isExposed())
            report(QStringLiteral("window %1")
                       .arg(m_system.windowNumber ? m_system.windowNumber(*this) : winId()));
    }
    void focusInEvent(QFocusEvent *) override { report(QStringLiteral("active 1")); }
    void focusOutEvent(QFocusEvent *) override { report(QStringLiteral("active 0")); }
    void keyPressEvent(QKeyEvent *event) override
    {
        if (const QString name = contractKeyName(*event); !name.isEmpty() && !event->isAutoRepeat())
            report(QStringLiteral("key ") + name);
    }
    void mousePressEvent(QMouseEvent *event) override
    {
        const QPoint position = event->globalPosition().toPoint();
        report(QStringLiteral("click %1 %2").arg(position.x()).arg(position.y()));
    }
    void mouseMoveEvent(QMouseEvent *event) override
    {
        // The picture in this file is dragged with the first button.
        const QString path = qEnvironmentVariable("QUELLORA_OTHER_DRAGS");
        if (path.isEmpty() || m_isDragging || !(event->buttons() & Qt::LeftButton))
            return;
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return;
        auto *content = new QMimeData;
        content->setData(QStringLiteral("image/png"), file.readAll());
        auto *drag = new QDrag(this);
        drag->setMimeData(content);
        m_isDragging = true;
        report(QStringLiteral("drag"));
        report(QStringLiteral("dropped %1").arg(int(drag->exec(Qt::CopyAction))));
        m_isDragging = false;
    }
    void wheelEvent(QWheelEvent *event) override
    {
        report(QStringLiteral("wheel %1").arg(event->angleDelta().y()));
    }
    void paintEvent(QPaintEvent *) override
    {
        // Four quarters, so that pictures of the screen show where it is.
        QPainter painter(this);
        const QSize half = size() / 2;
        const QSize rest = size() - half;
        painter.fillRect(QRect(QPoint(), half), QColor(200, 60, 60));
        painter.fillRect(QRect(QPoint(half.width(), 0), QSize(rest.width(), half.height())),
                         QColor(60, 180, 75));
        painter.fillRect(QRect(QPoint(0, half.height()), QSize(half.width(), rest.height())),
                         QColor(66, 99, 216));
        painter.fillRect(QRect(QPoint(half.width(), half.height()), rest), QColor(240, 200, 60));
    }

private:
    const OtherProgram::System &m_system;
    bool m_isDragging = false;
};

} // namespace

int OtherProgram::run(int argc, char **argv, const System &system)
{
    QGuiApplication application(argc, argv);
    ReportingWindow window(system);
    window.setFlags(Qt::FramelessWindowHint);
    window.setTitle(QStringLiteral("Other program"));
    window.setGeometry(QGuiApplication::primaryScreen()->availableGeometry());
    // On some Wayland desktops only a full-screen window has a known position.
    if (qEnvironmentVariableIsSet("QUELLORA_OTHER_FULL_SCREEN"))
        window.showFullScreen();
    else
        window.show();
    window.raise();
    if (system.requestsActivation)
        window.requestActivate();
    // One command at a time. End of file means that the test has finished.
    QSocketNotifier commands(fileno(stdin), QSocketNotifier::Read);
    QObject::connect(&commands, &QSocketNotifier::activated, &application, [&system] {
        quint32 keyCode = 0;
        quint32 modifiers = 0;
        bool taken = false;
        if (std::cin >> keyCode >> modifiers >> taken)
            report(QStringLiteral("claim %1")
                       .arg(system.claim ? system.claim(keyCode, modifiers, taken) : -1));
        else
            QCoreApplication::quit();
    });
    return QGuiApplication::exec();
}

std::unique_ptr<OtherProgram> OtherProgram::start(const QMap<QString, QString> &variables)
{
    std::unique_ptr<OtherProgram> other(new OtherProgram);
    // Set by this process for itself; the other program must not inherit it.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("QT_MAC_DISABLE_FOREGROUND_APPLICATION_TRANSFORM"));
    for (auto variable = variables.begin(); variable != variables.end(); ++variable)
        environment.insert(variable.key(), variable.value());
    other->m_process.setProcessEnvironment(environment);
    other->m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QObject::connect(&other->m_process, &QProcess::readyReadStandardOutput, &other->m_process,
                     [program = other.get()] { program->read(); });
    other->m_process.start(QCoreApplication::applicationFilePath(),
                           {QString::fromLatin1(argument)});
    if (!QTest::qWaitFor([&other] { return other->m_active && other->m_window != 0; }, 20000))
        return nullptr;
    return other;
}

OtherProgram::~OtherProgram()
{
    m_process.disconnect();
    m_process.closeWriteChannel();
    if (!m_process.waitForFinished(5000))
        m_process.kill();
}

bool OtherProgram::claim(quint32 keyCode, quint32 modifiers, bool taken)
{
    const auto before = m_claims.size();
    m_process.write(
        QStringLiteral("%1 %2 %3\n").arg(keyCode).arg(modifiers).arg(int(taken)).toLatin1());
    return QTest::qWaitFor([&] { return m_claims.size() > before; }) && m_claims.last() == 0;
}

void OtherProgram::read()
{
    while (m_process.canReadLine()) {
        const QStringList words =
            QString::fromLocal8Bit(m_process.readLine()).trimmed().split(u' ');
        const QString &what = words.first();
        const QString value = words.value(1);
        if (what == QStringLiteral("window"))
            m_window = value.toULongLong();
        else if (what == QStringLiteral("key"))
            m_keys << value;
        else if (what == QStringLiteral("click"))
            m_clicks << QPoint(value.toInt(), words.value(2).toInt());
        else if (what == QStringLiteral("claim"))
            m_claims << value.toInt();
        else if (what == QStringLiteral("active")) {
            m_focusLosses += m_active && value == QStringLiteral("0");
            m_active = value == QStringLiteral("1");
        }
    }
}

} // namespace quellora
