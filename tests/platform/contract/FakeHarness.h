#pragma once

#include "fakes/FakePlatform.h"
#include "platform/contract/PlatformHarness.h"

namespace quellora {

/// Runs the contract against the fakes. Other programs' windows are simulated, ours are offscreen.
class FakeHarness : public PlatformHarness
{
public:
    /// Short, because only the toolkit itself works asynchronously here.
    int timeout() const override { return 300; }
    QString prepare() override { return {}; }
    QMap<Ability, QString> missingAbilities() const override;
    std::unique_ptr<Platform> makePlatform() override;

    std::unique_ptr<OtherWindow> openOther() override;
    bool isAbove(QWindow &ours, const OtherWindow &other) override;
    bool isProgramActive() override;
    bool press(const QList<Combo> &combos) override;
    bool click(const QPoint &position) override;
    Qt::KeyboardModifiers editModifier() const override { return Qt::ControlModifier; }

    bool claimHotkey(const Combo &combo) override;
    bool releaseHotkey(const Combo &combo) override;
    void setDark(bool on) override { m_fakes->systemAppearance.setDark(on); }
    void setReducesMotion(bool on) override { m_fakes->systemAppearance.setReducesMotion(on); }
    void setCompositing(bool on) override { m_fakes->panel.setCompositing(on); }
    void setStatusArea(bool on) override { m_fakes->systemStatusArea.setAvailable(on); }
    void setPermitted(bool on) override { m_fakes->systemPermissions.answer(on, on); }
    void holdOpening(bool on) override;
    void failOpening() override { m_fakes->systemWorkspace.answer = FakeWorkspace::failure(); }
    QList<QUrl> opened() override;
    QString symbolName() const override { return QStringLiteral("gear"); }

private:
    class Other;

    void pressOne(const Combo &combo);
    QWindow *windowAt(const QPoint &position) const;

    // The platform under test; owned by the test.
    FakePlatform *m_fakes = nullptr;
    // Bottom to top; owned by the test.
    QList<Other *> m_others;
    bool m_holdsOpening = false;
};

} // namespace quellora
