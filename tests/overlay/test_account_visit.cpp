#include "overlay/AccountVisit.h"
#include "support/TestProgram.h"

#include <QEnterEvent>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>
#include <QWindow>

using namespace quellora;
using namespace std::chrono_literals;

class TestAccountVisit : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_now = {};
        m_visit = std::make_unique<AccountVisit>(m_panel, [this] { return m_now; });
        m_returned = std::make_unique<QSignalSpy>(m_visit.get(), &AccountVisit::returned);
    }
    void cleanup() { m_visit.reset(); }

    void withoutAVisitNobodyReturns()
    {
        enter();
        m_now += 1h;
        enter();
        QCOMPARE(m_returned->size(), 0);
    }

    void pointerAndKeyboardReturn()
    {
        m_visit->begin();
        enter();
        QCOMPARE(m_returned->size(), 0);
        m_now += AccountVisit::pause;
        enter();
        QCOMPARE(m_returned->size(), 1);
        enter();
        QCOMPARE(m_returned->size(), 1);
        m_now += AccountVisit::pause;
        QFocusEvent focus(QEvent::FocusIn);
        QCoreApplication::sendEvent(&m_panel, &focus);
        QCOMPARE(m_returned->size(), 2);
        m_now += AccountVisit::pause;
        QShowEvent shown;
        QCoreApplication::sendEvent(&m_panel, &shown);
        QCOMPARE(m_returned->size(), 3);
        m_now += AccountVisit::pause;
        QEvent other(QEvent::Leave);
        QCoreApplication::sendEvent(&m_panel, &other);
        QCOMPARE(m_returned->size(), 3);
    }

    void aVisitEnds()
    {
        m_visit->begin();
        m_now += AccountVisit::longestVisit - 1s;
        enter();
        QCOMPARE(m_returned->size(), 1);
        m_now += 1min;
        enter();
        QCOMPARE(m_returned->size(), 1);
        m_visit->begin();
        m_now += 1min;
        enter();
        QCOMPARE(m_returned->size(), 2);
    }

    void aLastingVisitDoesNotEnd()
    {
        m_visit->setLasting(true);
        enter();
        QCOMPARE(m_returned->size(), 0);
        m_now += 24h;
        enter();
        QCOMPARE(m_returned->size(), 1);
        m_visit->setLasting(false);
        m_now += 1h;
        enter();
        QCOMPARE(m_returned->size(), 1);
    }

private:
    void enter()
    {
        QEnterEvent event({}, {}, {});
        QCoreApplication::sendEvent(&m_panel, &event);
    }

    QWindow m_panel;
    std::chrono::steady_clock::time_point m_now;
    std::unique_ptr<AccountVisit> m_visit;
    std::unique_ptr<QSignalSpy> m_returned;
};

QUELLORA_TEST(QGuiApplication, TestAccountVisit)
#include "test_account_visit.moc"
