#include "platform/wayland/ClipboardDataWayland.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QMimeData>
#include <QPointer>

#include <memory>

using namespace quellora;

/// Runs on a Wayland desktop.
class ClipboardDataWaylandTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QCOMPARE(QGuiApplication::platformName(), QStringLiteral("wayland")); }
    void init() { m_data = std::make_unique<ClipboardDataWayland>(m_clipboard); }
    void cleanup() { m_data.reset(); }

    void lastCopyIsKept()
    {
        const QPointer<QMimeData> copy = put(QStringLiteral("first"));
        QCoreApplication::processEvents();
        QVERIFY(copy);
        QCOMPARE(m_clipboard.text(), QStringLiteral("first"));
    }
    void replacedCopyIsDeleted()
    {
        const QPointer<QMimeData> first = put(QStringLiteral("first"));
        const QPointer<QMimeData> second = put(QStringLiteral("second"));
        QVERIFY(!first);
        QVERIFY(second);
        m_clipboard.setText(QStringLiteral("third"));
        QVERIFY(!second);
        QCOMPARE(m_clipboard.text(), QStringLiteral("third"));
    }
    void clearedCopyIsDeleted()
    {
        const QPointer<QMimeData> copy = put(QStringLiteral("first"));
        m_clipboard.clear();
        QVERIFY(!copy);
    }
    void lastCopyIsDeletedAtTheEnd()
    {
        const QPointer<QMimeData> copy = put(QStringLiteral("first"));
        m_data.reset();
        QVERIFY(!copy);
        QVERIFY(!m_clipboard.ownsClipboard());
    }
    void selectionIsKeptApart()
    {
        QVERIFY(m_clipboard.supportsSelection());
        const QPointer<QMimeData> copy = put(QStringLiteral("copied"));
        const QPointer<QMimeData> selected = put(QStringLiteral("selected"), QClipboard::Selection);
        QVERIFY(copy);
        QVERIFY(selected);
        m_clipboard.setText(QStringLiteral("other"), QClipboard::Selection);
        QVERIFY(copy);
        QVERIFY(!selected);
    }

private:
    QMimeData *put(const QString &text, QClipboard::Mode mode = QClipboard::Clipboard)
    {
        auto *data = new QMimeData;
        data->setText(text);
        m_clipboard.setMimeData(data, mode);
        return data;
    }

    QClipboard &m_clipboard = *QGuiApplication::clipboard();
    std::unique_ptr<ClipboardDataWayland> m_data;
};

QUELLORA_TEST(QGuiApplication, ClipboardDataWaylandTest)
#include "test_clipboard_data_wayland.moc"
