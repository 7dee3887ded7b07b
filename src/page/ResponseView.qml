import QtQuick
import Quellora.Page

/// The response page, filling this item.
Item {
    id: root

    /// The ResponseHost that provides the page.
    property ResponseHost host
    /// Disables animations in the page.
    property bool reducedMotion: false

    Accessible.role: Accessible.Pane
    Accessible.name: qsTr("Response")

    onHostChanged: {
        if (!host)
            return;
        host.setMotionReduced(reducedMotion);
        host.attachTo(root);
    }
    onReducedMotionChanged: {
        if (host)
            host.setMotionReduced(reducedMotion);
    }
}
