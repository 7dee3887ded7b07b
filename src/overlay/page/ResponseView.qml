import QtQuick
import Quellora.Page

/// The response page. Give it the host that the overlay made; it fills this item.
Item {
    id: root

    /// The ResponseHost whose page is shown here.
    property ResponseHost host

    Accessible.role: Accessible.Pane
    Accessible.name: qsTr("Response")

    onHostChanged: {
        if (host)
            host.attachTo(root);
    }
}
