import QtQuick
import Quellora.Panels
import Quellora.Ui

/// The overlay's menu. While it is open, a press outside closes it and returns the focus to the
/// button; presses on the answer still reach the answer.
FocusScope {
    id: host

    required property HamburgerMenuModel menu
    property bool compact: false
    property bool open: false
    /// Button that opens the menu.
    property Item opener
    /// Area in which presses reach the items below and do not close the menu.
    property rect passage
    /// Where the top right corner of the second page is wanted; below the menu button if negative.
    property point exportCorner: Qt.point(-1, -1)

    readonly property int tier: menu.tier
    readonly property bool isUrgent: tier === HamburgerMenuModel.Danger
                                     || tier === HamburgerMenuModel.Exceeded
    property bool byKeyboard: false
    /// Row height, reduced in small windows so that all rows fit; the menu scrolls if they still do not.
    readonly property int rowHeight: Tokens.growth(20) + Math.max(28, Math.min(
        34, Math.floor((height - 36 - 4 - 24 - (menu.isExportShown ? exportTitle.height : usage.height))
                       / rows().length) - Tokens.growth(20)))

    function rows() {
        return (menu.isExportShown
                ? [markdownFile, webPage, pdf, copyMarkdown, copyRichText, copyAnswer]
                : [history, exportThread, settings, captureWindow, captureRegion, account, connectModel,
                   upgrade, signOut])
               .filter(row => row.available)
    }
    /// Makes a choice on the second page.
    function choose(choice) {
        host.run(() => host.menu.exportChosen(choice))
    }
    function move(step) {
        const all = host.rows()
        const at = all.findIndex(row => row.activeFocus)
        const next = at < 0 ? 0 : (at + step + all.length) % all.length
        all[next].forceActiveFocus(Qt.TabFocusReason)
        scroller.revealFocused()
    }
    function isInPassage(point) {
        return point.x >= passage.left && point.x < passage.right
               && point.y >= passage.top && point.y < passage.bottom
    }
    function close(byKey) {
        host.byKeyboard = byKey
        host.menu.closeRequested()
    }
    function run(action) {
        host.menu.closeRequested()
        action()
    }

    /// The fading end of rows that continue, with a chevron.
    component Continuation: Rectangle {
        id: continuation

        required property Flickable flickable
        property bool isAtTop: false

        visible: flickable.contentHeight > flickable.height + 0.5
                 && !(isAtTop ? flickable.atYBeginning : flickable.atYEnd)
        x: 1
        width: parent.width - 2
        height: 30
        radius: Tokens.radiusMenu - 1
        gradient: Gradient {
            GradientStop {
                position: continuation.isAtTop ? 1 : 0
                color: "#00242730"
            }
            GradientStop {
                position: continuation.isAtTop ? 0.4 : 0.6
                color: "#f0242730"
            }
            GradientStop {
                position: continuation.isAtTop ? 0 : 1
                color: "#242730"
            }
        }

        Icon {
            x: Math.round((continuation.width - width) / 2)
            y: continuation.isAtTop ? 2 : continuation.height - height - 2
            size: 14
            name: continuation.isAtTop ? "chevron-up" : "chevron-down"
            color: "#e8e8ea"
        }
    }

    Connections {
        target: host.menu
        function onPageChanged() {
            if (host.open) {
                scroller.contentY = 0
                host.rows()[0].forceActiveFocus(host.byKeyboard ? Qt.TabFocusReason : Qt.OtherFocusReason)
            }
        }
    }
    onOpenChanged: {
        if (open) {
            // Before focusing: hidden or disabled items cannot take the focus.
            visible = true
            enabled = true
            byKeyboard = opener !== null && opener.visualFocus === true
            scroller.contentY = 0
            rows()[0].forceActiveFocus(byKeyboard ? Qt.TabFocusReason : Qt.OtherFocusReason)
            return
        }
        if (opener && host.activeFocus)
            opener.forceActiveFocus(byKeyboard ? Qt.TabFocusReason : Qt.OtherFocusReason)
        enabled = false
    }

    visible: false
    enabled: false

    MouseArea {
        objectName: "menuScrim"
        anchors.fill: parent
        acceptedButtons: Qt.AllButtons
        // Events that are not accepted reach the items below.
        onPressed: mouse => {
            mouse.accepted = !host.isInPassage(mouse)
            if (mouse.accepted)
                host.menu.closeRequested()
        }
        onWheel: wheel => wheel.accepted = !host.isInPassage(wheel)
    }

    Rectangle {
        id: card
        objectName: "hamburgerMenu"
        readonly property bool isAtCorner: host.menu.isExportShown && host.exportCorner.x >= 0

        x: isAtCorner ? Math.max(4, Math.min(host.exportCorner.x, host.width - 4) - width)
                      : host.width - width - (host.compact ? 4 : 6)
        y: (isAtCorner ? Math.max(36, Math.min(host.exportCorner.y, host.height - 4 - height)) : 36)
           + (host.open ? 0 : -Tokens.menuShift)
        width: Math.min(Tokens.grown(host.compact ? 232 : 248), host.width - 8)
        height: Math.min(column.height + 12, host.height - 36 - 4)
        radius: Tokens.radiusMenu
        color: "#242730"
        border.width: 1
        border.color: "#454a5a"
        opacity: host.open ? 1 : 0
        antialiasing: true
        onOpacityChanged: {
            if (opacity === 0 && !host.open)
                host.visible = false
        }

        Accessible.role: Accessible.PopupMenu
        Accessible.name: qsTr("Menu")

        Behavior on opacity { NumberAnimation { duration: Tokens.menuTime } }
        Behavior on y {
            NumberAnimation {
                duration: Tokens.menuTime
                easing.type: Easing.Bezier
                easing.bezierCurve: Tokens.standardCurve
            }
        }

        Keys.onUpPressed: host.move(-1)
        Keys.onDownPressed: host.move(1)
        Keys.onPressed: event => {
            const all = host.rows()
            if (event.key !== Qt.Key_Home && event.key !== Qt.Key_End)
                return
            const row = all[event.key === Qt.Key_Home ? 0 : all.length - 1]
            row.forceActiveFocus(Qt.TabFocusReason)
            scroller.revealFocused()
            event.accepted = true
        }

        // Keeps presses between the rows from reaching the answer.
        MouseArea {
            anchors.fill: parent
            acceptedButtons: Qt.AllButtons
            hoverEnabled: true
            cursorShape: Qt.ArrowCursor
            onWheel: {}
        }

        Flickable {
            id: scroller
            objectName: "menuScroller"
            readonly property bool overflows: contentHeight > height + 0.5

            function revealFocused() {
                const row = host.rows().find(row => row.activeFocus)
                if (row)
                    contentY = Math.max(row.y + row.height - height, Math.min(contentY, row.y))
            }

            onHeightChanged: revealFocused()

            x: 6
            y: 6
            width: parent.width - 12
            height: parent.height - 12
            contentWidth: width
            contentHeight: column.height
            boundsBehavior: Flickable.StopAtBounds
            interactive: overflows
            clip: overflows

            Column {
                id: column
                width: parent.width
                // Rows get their places after a change of the text size or the window.
                onPositioningComplete: scroller.revealFocused()

                Item {
                    id: exportTitle
                    visible: host.menu.isExportShown
                    width: parent.width
                    height: 30 + Tokens.growth(16)

                    Label {
                        objectName: "exportTitle"
                        x: 10
                        width: parent.width - 20
                        height: parent.height
                        text: host.menu.exportTitle
                        type: Tokens.caption
                        color: "#a2a6b3"
                        elide: Text.ElideRight
                        Accessible.role: Accessible.Heading
                    }
                }
                HamburgerMenuRow {
                    id: markdownFile
                    objectName: "exportMarkdownFile"
                    available: host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "file-text"
                    text: qsTr("Export as Markdown…")
                    onTabbed: step => host.move(step)
                    onClicked: host.choose(HamburgerMenuModel.MarkdownFile)
                }
                HamburgerMenuRow {
                    id: webPage
                    objectName: "exportWebPage"
                    available: host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "globe"
                    text: qsTr("Export as web page…")
                    onTabbed: step => host.move(step)
                    onClicked: host.choose(HamburgerMenuModel.WebPage)
                }
                HamburgerMenuRow {
                    id: pdf
                    objectName: "exportPdf"
                    available: host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "file-down"
                    text: qsTr("Export as PDF…")
                    onTabbed: step => host.move(step)
                    onClicked: host.choose(HamburgerMenuModel.Pdf)
                }
                Item {
                    visible: host.menu.isExportShown
                    width: parent.width
                    height: 12

                    Hairline {
                        x: 4
                        y: 6
                        width: parent.width - 8
                        color: "#353946"
                    }
                }
                HamburgerMenuRow {
                    id: copyMarkdown
                    objectName: "copyMarkdown"
                    available: host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "copy"
                    text: qsTr("Copy as Markdown")
                    onTabbed: step => host.move(step)
                    onClicked: host.choose(HamburgerMenuModel.CopyMarkdown)
                }
                HamburgerMenuRow {
                    id: copyRichText
                    objectName: "copyRichText"
                    available: host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "copy"
                    text: qsTr("Copy as rich text")
                    onTabbed: step => host.move(step)
                    onClicked: host.choose(HamburgerMenuModel.CopyRichText)
                }
                HamburgerMenuRow {
                    id: copyAnswer
                    objectName: "copyAnswerRichText"
                    available: host.menu.isExportShown && host.menu.answerAvailable
                    width: parent.width
                    height: host.rowHeight
                    iconName: "copy"
                    text: qsTr("Copy answer as rich text")
                    onTabbed: step => host.move(step)
                    onClicked: host.choose(HamburgerMenuModel.CopyAnswer)
                }
                HamburgerMenuRow {
                    id: history
                    objectName: "menuHistory"
                    available: host.menu.historyAvailable && !host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "history"
                    text: qsTr("History")
                    onTabbed: step => host.move(step)
                    onClicked: host.run(host.menu.historyRequested)
                }
                HamburgerMenuRow {
                    id: exportThread
                    objectName: "menuExport"
                    available: host.menu.exportAvailable && !host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "share"
                    trailingIcon: "chevron-right"
                    text: qsTr("Export or copy thread")
                    onTabbed: step => host.move(step)
                    onClicked: {
                        host.byKeyboard = visualFocus
                        host.menu.exportRequested()
                    }
                }
                HamburgerMenuRow {
                    id: settings
                    objectName: "menuSettings"
                    available: host.menu.settingsAvailable && !host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "settings"
                    text: qsTr("Settings")
                    onTabbed: step => host.move(step)
                    onClicked: host.run(host.menu.settingsRequested)
                }
                HamburgerMenuRow {
                    id: captureWindow
                    objectName: "menuCaptureWindow"
                    available: host.menu.capturesAvailable && !host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "app-window"
                    text: qsTr("Capture window")
                    onTabbed: step => host.move(step)
                    onClicked: host.run(host.menu.captureWindowRequested)
                }
                HamburgerMenuRow {
                    id: captureRegion
                    objectName: "menuCaptureRegion"
                    available: host.menu.capturesAvailable && !host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "scan"
                    text: qsTr("Capture region")
                    onTabbed: step => host.move(step)
                    onClicked: host.run(host.menu.captureRegionRequested)
                }
                HamburgerMenuRow {
                    id: account
                    objectName: "menuAccount"
                    available: !host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "circle-user"
                    trailingIcon: "arrow-up-right"
                    text: qsTr("Account")
                    onTabbed: step => host.move(step)
                    onClicked: host.run(host.menu.accountRequested)
                }
                HamburgerMenuRow {
                    id: connectModel
                    objectName: "menuConnectModel"
                    available: host.menu.connectAvailable && !host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "plug"
                    trailingIcon: "arrow-up-right"
                    text: qsTr("Connect a model")
                    color: Tokens.frame.accentText
                    onTabbed: step => host.move(step)
                    onClicked: host.run(host.menu.connectRequested)
                }
                Item {
                    visible: !host.menu.isExportShown
                    width: parent.width
                    height: 12

                    Hairline {
                        x: 4
                        y: 6
                        width: parent.width - 8
                        color: "#353946"
                    }
                }
                Item {
                    id: usage
                    objectName: "menuUsage"
                    visible: !host.menu.isExportShown
                    width: parent.width
                    height: 68 + 2 * Tokens.growth(16)
                    Accessible.role: Accessible.Grouping
                    Accessible.name: title.text
                    Accessible.description: figures.text
                                            + (caption.text.length > 0 ? ", " + caption.text : "")

                    Label {
                        id: title
                        x: 10
                        y: 6
                        text: qsTr("Usage")
                        type: Tokens.control
                        font.weight: Font.DemiBold
                        color: "#e8e8ea"
                        Accessible.ignored: true
                    }
                    Label {
                        id: figures
                        objectName: "usageFigures"
                        x: title.x + title.width + 8
                        y: 6
                        width: parent.width - x - 10
                        horizontalAlignment: Text.AlignRight
                        text: host.menu.usageText
                        color: "#e8e8ea"
                        elide: Text.ElideRight
                        Accessible.ignored: true
                    }
                    UsageBar {
                        x: 10
                        y: 30 + Tokens.growth(16)
                        width: parent.width - 20
                        height: 6
                        fraction: host.menu.fillFraction
                        exceeded: host.tier === HamburgerMenuModel.Exceeded
                        visible: host.visible
                        track: "#454a5a"
                        normalColor: "#2f80ed"
                        warnColor: "#e6a660"
                        dangerColor: "#e53935"
                    }
                    Label {
                        id: caption
                        objectName: "usageCaption"
                        x: 10
                        y: 42 + Tokens.growth(16)
                        width: parent.width - 20
                        text: host.menu.caption
                        type: Tokens.caption
                        color: host.isUrgent ? Tokens.frame.dangerText
                             : host.tier === HamburgerMenuModel.Amber ? Tokens.frame.warnText
                                                                      : "#a2a6b3"
                        elide: Text.ElideRight
                        Accessible.ignored: true
                    }
                }
                HamburgerMenuRow {
                    id: upgrade
                    objectName: "menuUpgrade"
                    available: !host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "circle-arrow-up"
                    text: qsTr("Upgrade")
                    color: Tokens.frame.accentText
                    filled: host.isUrgent
                    onTabbed: step => host.move(step)
                    onClicked: host.run(host.menu.upgradeRequested)
                }
                HamburgerMenuRow {
                    id: signOut
                    objectName: "menuSignOut"
                    available: !host.menu.isExportShown
                    width: parent.width
                    height: host.rowHeight
                    iconName: "log-out"
                    text: qsTr("Sign Out")
                    onTabbed: step => host.move(step)
                    onClicked: host.run(host.menu.signOutRequested)
                }
            }
        }
        Continuation {
            objectName: "menuContinuesAbove"
            flickable: scroller
            isAtTop: true
            y: 1
        }
        Continuation {
            objectName: "menuContinuesBelow"
            flickable: scroller
            y: card.height - height - 1
        }
        Item {
            x: card.width - 5
            y: scroller.y
            height: scroller.height

            ScrollMark {
                objectName: "menuScrollMark"
                flickable: scroller
            }
        }
    }
}
