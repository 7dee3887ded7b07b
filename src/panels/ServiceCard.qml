import QtQuick
import Quellora.Panels
import Quellora.Ui

/// A service message with a header, a body that scrolls if space is limited and an optional action.
Card {
    id: card

    required property BottomPanelsModel panels
    property bool compact: false
    property real headerHeight: 36
    readonly property bool blocking: panels.isMessageBlocking
    readonly property bool collapsed: panels.isMessageCollapsed
    readonly property color tone: blocking ? theme.dangerText : theme.accentText
    readonly property bool hasAction: panels.messageActionLabel.length > 0
    readonly property real actionHeight: hasAction && !compact ? 12 + 28 + Tokens.growth(16) : 0
    readonly property real bottomPad: compact ? 10 : 12
    /// Preferred height of the body, including the action and the padding below.
    readonly property real bodyHeight: body.height + actionHeight + bottomPad

    bar: blocking ? theme.dangerBar : theme.accent
    color: blocking ? Tokens.frame.blockingCard : theme.raised
    border.width: 0

    Accessible.role: blocking ? Accessible.AlertMessage : Accessible.Grouping
    Accessible.name: panels.messageHeader
    Accessible.description: panels.messageBodyText

    Icon {
        x: card.compact ? 12 : 14
        y: (card.headerHeight - height) / 2
        name: card.blocking ? "triangle-alert" : "info"
        fillOpacity: card.blocking ? 0.22 : 0
        color: card.tone
    }
    Label {
        objectName: "messageHeader"
        x: card.compact ? 36 : 38
        width: (card.compact && card.hasAction ? compactAction.x - 8 : chevron.x - 4) - x
        height: card.headerHeight
        text: card.panels.messageHeader
        type: Tokens.section
        color: card.tone
        elide: Text.ElideRight
    }
    Button {
        id: compactAction
        objectName: "compactMessageAction"
        visible: card.compact && card.hasAction
        x: (chevron.visible ? chevron.x - 2 : card.width - 4) - width
        y: (card.headerHeight - height) / 2
        implicitHeight: 24 + Tokens.growth(16)
        leftPadding: 10
        rightPadding: 10
        // A long label must not displace the header.
        width: Math.min(implicitWidth, card.width / 2)
        kind: Button.Primary
        text: card.panels.messageActionLabel
        onClicked: card.panels.performMessageAction()
    }
    IconButton {
        id: chevron
        objectName: "collapseMessage"
        visible: !card.blocking
        x: card.blocking ? card.width - 10 : card.width - width - 4
        y: (card.headerHeight - height) / 2
        width: card.blocking ? 0 : implicitWidth
        iconName: card.collapsed ? "chevron-right" : "chevron-down"
        name: card.collapsed ? qsTr("Expand message") : qsTr("Collapse message")
        onClicked: card.panels.toggleMessageCollapsed()
    }

    Flickable {
        id: scroller
        objectName: "messageScroller"
        readonly property bool overflows: contentHeight > height + 0.5

        x: card.compact ? 12 : 38
        y: card.headerHeight
        width: card.width - x - (card.compact ? 10 : 14)
        height: card.height - y - card.actionHeight - card.bottomPad
        visible: !card.collapsed && height > 0
        contentWidth: width
        contentHeight: body.height
        boundsBehavior: Flickable.StopAtBounds
        interactive: overflows
        clip: overflows
        activeFocusOnTab: overflows
        Accessible.role: Accessible.Pane
        Accessible.name: card.panels.messageHeader
        Accessible.focusable: overflows

        Keys.onUpPressed: contentY = Math.max(0, contentY - 19)
        Keys.onDownPressed: contentY = Math.min(contentHeight - height, contentY + 19)

        Text {
            id: body
            objectName: "messageBody"
            width: scroller.width
            text: card.compact ? card.panels.messageBodyCompact : card.panels.messageBody
            textFormat: Text.RichText
            wrapMode: Text.Wrap
            color: card.theme.icon
            linkColor: card.theme.accentText
            font.family: Tokens.family
            font.pixelSize: card.compact ? Tokens.label.size : Tokens.body.size
            onLinkActivated: link => card.panels.openMessageLink(link)

            Accessible.role: Accessible.StaticText
            Accessible.name: card.panels.messageBodyText

            HoverHandler {
                enabled: body.hoveredLink.length > 0
                cursorShape: Qt.PointingHandCursor
            }
        }
    }
    ScrollMark {
        flickable: scroller
        x: card.width - 7
        transform: Translate { y: scroller.y }
        opacity: scroller.visible ? 1 : 0
    }
    FocusRing {
        parent: scroller
        shown: scroller.activeFocus
    }
    Button {
        objectName: "messageAction"
        visible: card.hasAction && !card.compact && !card.collapsed
        x: 38
        y: card.height - card.bottomPad - height
        width: Math.min(implicitWidth, card.width - x - 14)
        kind: Button.Primary
        text: card.panels.messageActionLabel
        onClicked: card.panels.performMessageAction()
    }
}
