#include "platform/contract/FakeHarness.h"

#include "hotkeys/HotkeyCombo.h"
#include "platform/contract/ProbeWindow.h"

#include <QGuiApplication>
#include <QtTest>

#include <utility>

namespace quellora {

class FakeHarness::Other : public OtherWindow
{
public:
    explicit Other(FakeHarness &harness) : m_harness(harness) {}
    ~Other() override { m_harness.m_others.removeOne(this); }
    QStringList keys() const override { return typed; }
    QList<QPoint> clicks() const override { return clicked; }
    int focusLosses() const override { return m_harness.m_fakes->panel.keyboardOwner() ? 1 : 0; }

    QStringList typed;
    QList<QPoint> clicked;

private:
    FakeHarness &m_harness;
};

QMap<Ability, QString> FakeHarness::missingAbilities() const
{
    return {{Ability::FindCaptureTool,
             QStringLiteral("existence of the capture tool (the fake has none, so that no test "
                            "can run it by accident)")}};
}

std::unique_ptr<Platform> FakeHarness::makePlatform()
{
    auto platform = std::make_unique<FakePlatform>();
    m_fakes = platform.get();
    m_holdsOpening = false;
    QImage gear(16, 16, QImage::Format_ARGB32_Premultiplied);
    gear.fill(Qt::black);
    m_fakes->systemSymbols.images.insert(symbolName(), gear);
    return platform;
}

std::unique_ptr<OtherWindow> FakeHarness::openOther()
{
    auto other = std::make_unique<Other>(*this);
    m_others << other.get();
    m_fakes->panel.focus(nullptr);
    return other;
}

bool FakeHarness::isAbove(QWindow &ours, const OtherWindow &other)
{
    if (!ours.isVisible() || m_others.isEmpty() || m_others.last() != &other)
        return false;
    return m_fakes->panel.isFloating(ours) ||
           (isProgramActive() && m_fakes->applicationShell.activated == &ours);
}

bool FakeHarness::isProgramActive()
{
    const QWindow *owner = m_fakes->panel.keyboardOwner();
    return owner && !m_fakes->panel.isFloating(*owner);
}

bool FakeHarness::press(const QList<Combo> &combos)
{
    for (const Combo &combo : combos)
        pressOne(combo);
    return true;
}

void FakeHarness::pressOne(const Combo &combo)
{
    const std::optional<QKeyCombination> bindable = HotkeyCombo::parse(combo.key);
    const Qt::Key key = bindable                                ? bindable->key()
                        : combo.key == QStringLiteral("escape") ? Qt::Key_Escape
                                                                : Qt::Key_Space;
    if (m_fakes->hotkeys.pressCombo(combo.modifiers | key))
        return;
    QWindow *owner = m_fakes->panel.keyboardOwner();
    if (!owner) {
        if (!m_others.isEmpty())
            m_others.last()->typed << combo.key;
        return;
    }
    if (m_fakes->keys.press(
            {combo.modifiers, bindable ? combo.key : QString(), key == Qt::Key_Escape}))
        return;
    QTest::keyClick(owner, key, combo.modifiers);
}

/// Our window that receives a click at a screen position; null if another program's window does.
QWindow *FakeHarness::windowAt(const QPoint &position) const
{
    const QWindowList windows = QGuiApplication::topLevelWindows();
    for (QWindow *window : windows) {
        const bool isHere = window->isVisible() && window->geometry().contains(position);
        if (isHere && m_fakes->panel.isFloating(*window) &&
            !m_fakes->panel.clickThroughRect().contains(window->mapFromGlobal(position)))
            return window;
    }
    return nullptr;
}

bool FakeHarness::click(const QPoint &position)
{
    if (QWindow *ours = windowAt(position)) {
        QTest::mouseClick(ours, Qt::LeftButton, {}, ours->mapFromGlobal(position));
        return true;
    }
    if (m_others.isEmpty())
        return false;
    m_others.last()->clicked << position;
    m_fakes->panel.focus(nullptr);
    return true;
}

bool FakeHarness::claimHotkey(const Combo &combo)
{
    m_fakes->hotkeys.claim(combo.modifiers | HotkeyCombo::parse(combo.key)->key());
    return true;
}

bool FakeHarness::releaseHotkey(const Combo &combo)
{
    m_fakes->hotkeys.release(combo.modifiers | HotkeyCombo::parse(combo.key)->key());
    return true;
}

void FakeHarness::holdOpening(bool on)
{
    m_holdsOpening = on;
    if (on) {
        m_fakes->systemWorkspace.answer.reset();
        return;
    }
    m_fakes->systemWorkspace.answer = FakeWorkspace::opened();
    m_fakes->systemWorkspace.finish(FakeWorkspace::opened());
}

QList<QUrl> FakeHarness::opened()
{
    if (m_holdsOpening)
        return {};
    QList<QUrl> all = m_fakes->systemWorkspace.urls;
    for (const QString &path : std::as_const(m_fakes->systemWorkspace.files))
        all << QUrl::fromLocalFile(path);
    return all;
}

} // namespace quellora
