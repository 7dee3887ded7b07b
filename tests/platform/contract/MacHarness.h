#pragma once

#include "platform/contract/PlatformHarness.h"

namespace quellora {

class OtherProgram;

/// The desktop of the user who runs the test, on macOS: keys and clicks are real and go where they
/// would go for the user, so hands off while it runs. Needs the permission to control the computer
/// (Privacy & Security, Accessibility) for the program that starts the test, mostly the terminal.
///
/// This has been compiled and linked, but nobody has run it yet.
class MacHarness : public PlatformHarness
{
public:
    /// What another program does for it: the second program starts with this.
    /// @return the exit code
    static int runOtherProgram(int argc, char **argv);

    QString prepare() override;
    QMap<Ability, QString> missing() const override;
    std::unique_ptr<Platform> makePlatform() override { return Platform::create(); }

    std::unique_ptr<OtherWindow> openOther() override;
    bool isAbove(QWindow &ours, const OtherWindow &other) override;
    bool isProgramInFront() override;
    bool press(const QList<Combo> &combos) override;
    bool click(const QPoint &place) override;
    Qt::KeyboardModifiers editModifier() const override { return Qt::MetaModifier; }

    bool claimHotkey(const Combo &combo) override;
    bool releaseHotkey(const Combo &combo) override;
    void setDark(bool on) override;
    QString symbolName() const override { return QStringLiteral("gearshape"); }

private:
    // The latest one; owned by the test.
    OtherProgram *m_other = nullptr;
};

} // namespace quellora
