#pragma once

#include "fakes/FakePlatform.h"
#include "platform/contract/PlatformHarness.h"

namespace quellora {

/// A desktop made of the fakes: other programs' windows are notes, ours are offscreen.
class FakeHarness : public PlatformHarness
{
public:
    /// Everything happens at once, except what the toolkit itself does.
    int patience() const override { return 300; }
    QString prepare() override { return {}; }
    QMap<Ability, QString> missing() const override;
    std::unique_ptr<Platform> makePlatform() override;

    std::unique_ptr<OtherWindow> openOther() override;
    bool isAbove(QWindow &ours, const OtherWindow &other) override;
    bool isProgramInFront() override;
    bool press(const QList<Combo> &combos) override;
    bool click(const QPoint &place) override;
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
    QWindow *windowAt(const QPoint &place) const;

    // Of the platform under test, which the test owns.
    FakePlatform *m_fakes = nullptr;
    // The latest one is in front; each is owned by the test.
    QList<Other *> m_others;
    bool m_holdsOpening = false;
};

} // namespace quellora
