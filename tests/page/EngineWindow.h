#pragma once

#include "page/ResponseView.h"
#include "page/WebEngineSetup.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QJSEngine>
#include <QJSValue>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <chrono>

namespace quellora {

/// Runs the event loop until @p condition holds or the time is over; returns whether it holds. The
/// engine needs the loop running: QTest's own waiting sleeps between its events.
template <typename Condition>
bool runUntil(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(60))
{
    QElapsedTimer clock;
    clock.start();
    while (!condition() && clock.elapsed() < timeout.count()) {
        QEventLoop loop;
        QTimer::singleShot(1, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return condition();
}

/// QTRY_COMPARE with runUntil().
#define ENGINE_TRY_COMPARE(actual, expected)                                                       \
    do {                                                                                           \
        quellora::runUntil([&] { return (actual) == (expected); });                                \
        QCOMPARE(actual, expected);                                                                \
    } while (false)

/// Runs the tests in @p Test, which need the page engine.
template <class Test>
int runEngineTest(int argc, char **argv)
{
    prepareWebEngine();
    QGuiApplication application(argc, argv);
    Test test;
    return QTest::qExec(&test, argc, argv);
}

/// A window with a real response view in it, for tests that need the page engine.
class EngineWindow
{
public:
    EngineWindow()
    {
        m_window.engine()->addImportPath(QStringLiteral("qrc:/qt/qml"));
        m_window.resize(600, 500);
        m_container = new QQuickItem(m_window.contentItem());
        m_container->setSize(QSizeF(600, 500));
        QQmlEngine::setContextForObject(m_container, m_window.engine()->rootContext());
        m_window.show();
        view.attachTo(m_container);
    }
    ~EngineWindow() { view.attachTo(nullptr); }
    EngineWindow(const EngineWindow &) = delete;
    EngineWindow &operator=(const EngineWindow &) = delete;

    /// Loads a page and waits until it has finished loading.
    bool load(const PageContent &page)
    {
        QSignalSpy finished(&view, &PageSurface::loadFinished);
        const auto id = view.load(page, QStringLiteral("load"));
        return runUntil(
            [&] { return !finished.isEmpty() && finished.last().first().toULongLong() == id; });
    }

    /// Value of an expression in the page's world; invalid when none came in time, as from a page
    /// whose process has ended.
    QVariant value(const QString &expression,
                   std::chrono::milliseconds timeout = std::chrono::seconds(60))
    {
        if (!view.item())
            return {};
        QQmlEngine &engine = *m_window.engine();
        const QJSValue slot = engine.newObject();
        QJSValue callback =
            engine
                .evaluate(QStringLiteral(
                    "(function(slot) { return function(v) { slot.v = v; slot.done = true; } })"))
                .call({slot});
        if (!QMetaObject::invokeMethod(view.item(), "runJavaScript", Q_ARG(QString, expression),
                                       Q_ARG(QJSValue, callback)))
            return {};
        if (!runUntil([&] { return slot.property(QStringLiteral("done")).toBool(); }, timeout))
            return {};
        return slot.property(QStringLiteral("v")).toVariant();
    }
    QString text(const QString &expression) { return value(expression).toString(); }

    /// Waits for two frames of the page: what has changed before is painted.
    bool painted()
    {
        value(QStringLiteral("window.painted = false; requestAnimationFrame(() => "
                             "requestAnimationFrame(() => { window.painted = true; }))"));
        return runUntil([&] { return value(QStringLiteral("window.painted")).toBool(); });
    }
    /// Clicks the centre of an element, given as an expression.
    bool click(const QString &element)
    {
        value(QStringLiteral("(%1).scrollIntoView({block: 'center'})").arg(element));
        if (!painted())
            return false;
        const QVariantList middle =
            value(QStringLiteral("(() => { const r = (%1).getBoundingClientRect();"
                                 "return [r.x + r.width / 2, r.y + r.height / 2]; })()")
                      .arg(element))
                .toList();
        if (middle.size() != 2)
            return false;
        QTest::mouseClick(&m_window, Qt::LeftButton, {},
                          QPoint(middle[0].toInt(), middle[1].toInt()));
        return true;
    }
    /// Focuses an element, given as an expression.
    bool focus(const QString &element)
    {
        m_window.requestActivate();
        view.item()->forceActiveFocus();
        value(QStringLiteral("(%1).focus()").arg(element));
        return runUntil([&] {
            return value(QStringLiteral("document.hasFocus() && document.activeElement === (%1)")
                             .arg(element))
                .toBool();
        });
    }

    QQuickView &window() { return m_window; }

private:
    QQuickView m_window;

public:
    /// Declared after the window: the view must be destroyed before the QML engine.
    ResponseView view;

private:
    QQuickItem *m_container = nullptr;
};

} // namespace quellora
