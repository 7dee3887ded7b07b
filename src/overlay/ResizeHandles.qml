import QtQuick
import Quellora.Overlay

/// Invisible resize handles along the edges and corners of the frameless panel.
Item {
    id: handles

    required property NonFocusPanel panelWindow
    readonly property int thickness: 6
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
        width: handles.thickness
        height: parent.height
        onPressed: handles.panelWindow.beginResize(edges)
    }
    Handle {
        edges: Qt.RightEdge
        x: parent.width - width
        width: handles.thickness
        height: parent.height
        onPressed: handles.panelWindow.beginResize(edges)
    }
    Handle {
        edges: Qt.TopEdge
        width: parent.width
        height: handles.thickness
        onPressed: handles.panelWindow.beginResize(edges)
    }
    Handle {
        edges: Qt.BottomEdge
        y: parent.height - height
        width: parent.width
        height: handles.thickness
        onPressed: handles.panelWindow.beginResize(edges)
    }
    Repeater {
        model: [Qt.TopEdge | Qt.LeftEdge, Qt.TopEdge | Qt.RightEdge,
                Qt.BottomEdge | Qt.LeftEdge, Qt.BottomEdge | Qt.RightEdge]

        // Two strips per corner, because a square would cover the window buttons.
        Item {
            id: cornerHandles

            required property int modelData
            readonly property bool atRight: (modelData & Qt.RightEdge) !== 0
            readonly property bool atBottom: (modelData & Qt.BottomEdge) !== 0

            width: handles.width
            height: handles.height

            Handle {
                edges: cornerHandles.modelData
                x: cornerHandles.atRight ? cornerHandles.width - width : 0
                y: cornerHandles.atBottom ? cornerHandles.height - height : 0
                width: handles.thickness
                height: handles.corner
                onPressed: handles.panelWindow.beginResize(edges)
            }
            Handle {
                edges: cornerHandles.modelData
                x: cornerHandles.atRight ? cornerHandles.width - width : 0
                y: cornerHandles.atBottom ? cornerHandles.height - height : 0
                width: handles.corner
                height: handles.thickness
                onPressed: handles.panelWindow.beginResize(edges)
            }
        }
    }
}
