#pragma once

#include "picker/RegionPicker.h"
#include "platform/ScreenLayout.h"
#include "query/ScreenshotCapture.h"

#include <QFuture>
#include <QObject>

#include <functional>

namespace quellora {

class PanelWindow;
class Settings;

/// Captures a part of a screen: freezes the screens, lets the user choose on the frozen pictures
/// and encodes what was chosen, so that what is sent is what was seen. Keeps the last choice in the
/// settings. One choice at a time. Main thread only.
class RegionCapture : public QObject
{
    Q_OBJECT
public:
    struct Collaborators
    {
        /// Takes one picture of all screens.
        std::function<QFuture<ScreenshotCapture::Frozen>()> freeze;
        /// The screens as they lie in the picture, in the toolkit's order.
        std::function<ScreenLayout()> layout;
        PanelWindow &panels;
        Settings &settings;
        /// Factor of the text size.
        std::function<double()> textScale = [] { return 1.0; };
    };

    /// The references must outlive the object.
    explicit RegionCapture(Collaborators collaborators, QObject *parent = nullptr);
    ~RegionCapture() override;

    /// @param again takes the part that was chosen last, if the same screen is still there;
    ///        otherwise the user chooses
    /// @return fails with Dismissed if the user chooses nothing, or is choosing already. Cancelling
    ///         it ends the choice; the future then has no result.
    QFuture<ScreenshotCapture::Outcome> capture(bool again);

Q_SIGNALS:
    /// The screens are frozen on themselves, ready for the user.
    void pickerShown();

private:
    class Run;

    Collaborators m_collaborators;
    /// The one in which the user is choosing.
    Run *m_choosing = nullptr;
};

} // namespace quellora
