#pragma once

#include "platform/contract/PlatformHarness.h"

namespace quellora {

class OtherProgram;

/// The macOS desktop of the user who runs the test. Posts real key and mouse events, so do not
/// touch the keyboard and mouse while it runs. Requires the Accessibility permission (Privacy &
/// Security) for the program that starts the test, usually the terminal.
///
/// Compiled and linked, but not run so far.
class MacHarness : public PlatformHarness
{
public:
    /// The main function of the other program.
    /// @return the exit code
    static int runOtherProgram(int argc, char **argv);

    QString prepare() override;
    QMap<Ability, QString> missingAbilities() const override;
    std::unique_ptr<Platform> makePlatform() override { return Platform::create(); }

    std::unique_ptr<OtherWindow> openOther() override;
    bool isAbove(QWindow &ours, const OtherWindow &other) override;
    bool isProgramActive() override;
    bool press(const QList<Combo> &combos) override;
    bool click(const QPoint &position) override;
    Qt::KeyboardModifiers editModifier() const override { return Qt::MetaModifier; }

    bool claimHotkey(const Combo &combo) override;
    bool releaseHotkey(const Combo &combo) override;
    void setDark(bool on) override;
    QString symbolName() const override { return QStringLiteral("gearshape"); }

private:
    // The latest instance; owned by the test.
    OtherProgram *m_other = nullptr;
};

} // namespace quellora
