import QtQuick
import Quellora.Overlay

/// Texts for screen readers, which read a notification out when it appears. The items take turns, so
/// that a slow reader finds each text unchanged.
Item {
    id: announcements

    required property OverlayModel overlay
    property int next: 0

    Connections {
        target: announcements.overlay
        function onAnnounced(text) {
            const item = items.itemAt(announcements.next)
            announcements.next = (announcements.next + 1) % items.count
            item.visible = false
            item.text = text
            item.visible = true
        }
    }
    Repeater {
        id: items
        model: 8

        Item {
            id: item

            property string text

            visible: false
            width: 1
            height: 1
            Accessible.role: Accessible.Notification
            Accessible.name: text

            // What was read out is not found again among the controls.
            Timer {
                interval: 10000
                running: item.visible
                onTriggered: item.visible = false
            }
        }
    }
}
