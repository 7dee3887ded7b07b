import QtQuick
import Quellora.Page

/// The response page, filling this item.
Item {
    id: root

    /// The ResponseHost that provides the page.
    property ResponseHost host
    /// Disables animations in the page.
    property bool reducedMotion: false
    /// Factor by which the page is enlarged or reduced.
    property real textScale: 1

    Accessible.role: Accessible.Pane
    Accessible.name: qsTr("Response")

    onHostChanged: {
        if (!host)
            return;
        host.setMotionReduced(reducedMotion);
        host.textScale = textScale;
        host.attachTo(root);
    }
    onReducedMotionChanged: {
        if (host)
            host.setMotionReduced(reducedMotion);
    }
    onTextScaleChanged: {
        if (host)
            host.textScale = textScale;
    }
}
