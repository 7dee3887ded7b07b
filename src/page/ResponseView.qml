import QtQuick
import Quellora.Page

/// The response page. Give it the host that the overlay made; it fills this item.
Item {
    id: root

    /// The ResponseHost whose page is shown here.
    property ResponseHost host
    /// Things in the page stand still.
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
