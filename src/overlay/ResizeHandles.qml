import QtQuick
import Quellora.Overlay

/// Invisible strips along the edges of the frameless panel that resize it.
Item {
    id: handles

    required property NonFocusPanel panelWindow
    readonly property int reach: 6
    readonly property int corner: 12

    component Handle: MouseArea {
        required property int edges
        acceptedButtons: Qt.LeftButton
        preventStealing: true
        cursorShape: {
            switch (edges) {
            case Qt.LeftEdge:
            case Qt.RightEdge:
                return Qt.SizeHorCursor
            case Qt.TopEdge:
            case Qt.BottomEdge:
                return Qt.SizeVerCursor
            case Qt.TopEdge | Qt.LeftEdge:
            case Qt.BottomEdge | Qt.RightEdge:
                return Qt.SizeFDiagCursor
            default:
                return Qt.SizeBDiagCursor
            }
        }
    }

    Handle {
        edges: Qt.LeftEdge
        width: handles.reach
        height: parent.height
        onPressed: handles.panelWindow.beginResize(edges)
    }
    Handle {
        edges: Qt.RightEdge
        x: parent.width - width
        width: handles.reach
        height: parent.height
        onPressed: handles.panelWindow.beginResize(edges)
    }
    Handle {
        edges: Qt.TopEdge
        width: parent.width
        height: handles.reach
        onPressed: handles.panelWindow.beginResize(edges)
    }
    Handle {
        edges: Qt.BottomEdge
        y: parent.height - height
        width: parent.width
        height: handles.reach
        onPressed: handles.panelWindow.beginResize(edges)
    }
    Repeater {
        model: [Qt.TopEdge | Qt.LeftEdge, Qt.TopEdge | Qt.RightEdge,
                Qt.BottomEdge | Qt.LeftEdge, Qt.BottomEdge | Qt.RightEdge]

        // Two strips per corner: a square would cover the window buttons.
        Item {
            id: both

            required property int modelData
            readonly property bool atRight: (modelData & Qt.RightEdge) !== 0
            readonly property bool atBottom: (modelData & Qt.BottomEdge) !== 0

            width: handles.width
            height: handles.height

            Handle {
                edges: both.modelData
                x: both.atRight ? both.width - width : 0
                y: both.atBottom ? both.height - height : 0
                width: handles.reach
                height: handles.corner
                onPressed: handles.panelWindow.beginResize(edges)
            }
            Handle {
                edges: both.modelData
                x: both.atRight ? both.width - width : 0
                y: both.atBottom ? both.height - height : 0
                width: handles.corner
                height: handles.reach
                onPressed: handles.panelWindow.beginResize(edges)
            }
        }
    }
}
