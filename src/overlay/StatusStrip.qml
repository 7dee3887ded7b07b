import QtQuick
import Quellora.Overlay
import Quellora.Ui

/// The strip below the control bar: the thread at the left, the status at the right. A notice, or
/// what was removed and can be brought back, temporarily replaces the thread title but not the
/// controls at the right.
FocusScope {
    id: strip

    required property OverlayModel overlay
    property bool compact: false
    /// The hot key that switches the clicks, in display form; empty for none.
    property string clicksShortcut
    /// That which asks the last question again.
    property string retryShortcut
    /// Null in a panel that cannot find text.
    property FindModel find: null
    /// Receives the focus from the find bar if the item that had it before is gone.
    property Item prompt: null
    readonly property bool isFinding: find !== null && find.isOpen
    /// The find bar takes the place of the title, in a narrow window also that of everything else but
    /// the status's sign and Stop.
    readonly property bool isFindAlone: isFinding && (compact || width < Tokens.grown(600))
    readonly property int status: overlay.status
    readonly property bool hasStatus: status !== OverlayModel.Ready
                                      && status !== OverlayModel.Answer
    readonly property bool isThreadShown: !compact || !hasStatus
    readonly property bool isNoticeShown: overlay.notice.length > 0
    /// Whether a sheet covers the strip; it offers the undo itself.
    property bool isCovered: false
    readonly property bool isUndoOffered: overlay.undoText.length > 0 && !isCovered
    /// Whether the title has given way to other words.
    readonly property bool isTitleReplaced: isNoticeShown || isUndoOffered
    /// True if a compact window has room for only one text.
    readonly property bool isNarrow: compact && (hasStatus || isTitleReplaced
                                                 || overlay.isThreadCovered)
    /// A compact window has room for the undo only without the controls of the last question.
    readonly property bool isUndoCramped: compact && isUndoOffered
    /// Left edge of the title and the notice, after the save indicator.
    readonly property real textStart: notSavedLabel.visible
                                      ? notSavedLabel.x + notSavedLabel.width + 10
                                      : drive.visible || notSaved.visible ? 34 : 12
    /// Whether a compact window has no room for the words of the status beside the other controls.
    readonly property bool isCrowded: compact
        && (usage.visible ? usage.implicitWidth + right.spacing : 0)
           + (stop.visible ? stop.width + right.spacing : 0)
           + (clicks.visible ? clicks.width + right.spacing : 0)
           + 22 + statusLabel.implicitWidth + right.edge + 12 > width
    readonly property bool isRightEmpty: isFindAlone && !stop.visible && !hasStatus
    readonly property bool isBusy: status === OverlayModel.Waiting
                                   || status === OverlayModel.Streaming

    /// The first focusable control, or null.
    function firstControl() {
        return [notSaved, undo, usage, back, latest, stop, earlier, later, edit, copy, clicks]
            .find(control => control.visible && control.enabled) ?? null
    }

    function startFind() {
        findBar.item.start()
    }
    function closeFind() {
        findBar.item.close()
    }

    implicitHeight: overlay.stripHeight
    /// Height of a text above the hairline.
    readonly property real textHeight: height - 1

    Item {
        id: drive
        // Required by ToolTip.
        readonly property bool pressed: false
        readonly property bool visualFocus: false
        readonly property bool isSaving: strip.overlay.saveState === OverlayModel.Saving

        objectName: "drive"
        visible: !strip.isFindAlone
                 && (isSaving || strip.overlay.saveState === OverlayModel.Saved)
                 && strip.isThreadShown && strip.overlay.title.length > 0
        x: 12
        y: Math.round((strip.textHeight - height) / 2)
        width: 14
        height: 14
        Accessible.role: Accessible.Graphic
        Accessible.name: isSaving ? qsTr("Saving thread…") : qsTr("Thread saved")

        Icon {
            size: 14
            name: "hard-drive"
            color: Tokens.frame.dimText
            opacity: drive.isSaving ? Tokens.disabledOpacity : 1
        }
        ToolTip {
            target: drive
            text: drive.Accessible.name
        }
    }
    IconButton {
        id: notSaved
        objectName: "notSaved"
        visible: strip.overlay.saveState === OverlayModel.Failed
                 && !strip.isFindAlone
        x: 5
        y: Math.round((strip.height - height) / 2)
        iconName: strip.isNarrow ? "triangle-alert" : "hard-drive"
        iconSize: 14
        foreground: Tokens.frame.dangerText
        name: qsTr("Not saved: %1. Press to try again.").arg(strip.overlay.saveProblem)
        onClicked: strip.overlay.retrySaving()
        Accessible.name: qsTr("Not saved")
        Accessible.description: name
    }
    Label {
        id: notSavedLabel
        objectName: "notSavedWords"
        visible: notSaved.visible && !strip.isNarrow
        x: 34
        height: strip.textHeight
        text: qsTr("Not saved")
        type: Tokens.control
        color: Tokens.frame.dangerText
        Accessible.ignored: true
    }
    Label {
        objectName: "threadTitle"
        visible: strip.isThreadShown && !strip.isTitleReplaced && !strip.isFinding
                 && !(strip.compact && notSaved.visible)
        x: strip.textStart
        width: Math.max(0, right.x - 12 - x)
        height: strip.textHeight
        text: strip.overlay.title.length > 0 ? strip.overlay.title : qsTr("Ready")
        color: strip.overlay.title.length > 0 ? Tokens.frame.text : Tokens.frame.dimText
        type: Tokens.body
        font.weight: strip.overlay.title.length > 0 ? Font.Medium : Font.Normal
        elide: Text.ElideRight
    }

    Item {
        objectName: "notice"
        visible: strip.isNoticeShown && !strip.isFinding
        x: strip.textStart
        width: Math.max(0, right.x - 12 - x)
        height: strip.textHeight
        // It is announced to screen readers as well; it does not take focus.
        Accessible.role: Accessible.StaticText
        Accessible.name: strip.overlay.notice

        Icon {
            y: Math.round((parent.height - height) / 2)
            size: 14
            name: strip.overlay.isNoticeWarning ? "triangle-alert" : "share"
            color: strip.overlay.isNoticeWarning ? Tokens.frame.warnText : Tokens.frame.accentText
        }
        Label {
            objectName: "noticeWords"
            x: 22
            width: Math.max(0, parent.width - x)
            height: parent.height
            text: strip.overlay.notice
            color: strip.overlay.isNoticeWarning ? Tokens.frame.warnText : Tokens.frame.text
            elide: Text.ElideRight
            Accessible.ignored: true
        }
    }

    Item {
        objectName: "removed"
        visible: strip.isUndoOffered && !strip.isNoticeShown && !strip.isFinding
        x: strip.textStart
        width: Math.max(0, right.x - 12 - x)
        height: strip.textHeight
        Accessible.role: Accessible.StaticText
        Accessible.name: strip.overlay.undoText

        Icon {
            y: Math.round((parent.height - height) / 2)
            size: 14
            name: "trash-2"
            color: Tokens.frame.dimText
        }
        Label {
            objectName: "removedWords"
            x: 22
            width: Math.max(0, parent.width - x)
            height: parent.height
            text: strip.overlay.undoText
            color: Tokens.frame.text
            elide: Text.ElideRight
            Accessible.ignored: true
        }
    }

    Loader {
        id: findBar
        active: strip.find !== null
        x: strip.isFindAlone ? 6 : strip.textStart
        width: Math.max(0, (strip.isRightEmpty ? strip.width - 6
                                               : right.x - (strip.isFindAlone ? 6 : 12)) - x)
        height: strip.textHeight

        sourceComponent: FindBar {
            objectName: "findBar"
            find: strip.find
            compact: strip.isFindAlone
            fallback: strip.prompt
        }
    }
    Row {
        id: right
        visible: !strip.isRightEmpty
        readonly property real edge: stop.visible || copy.visible || clicks.visible
                                     || retry.visible || undo.visible && !strip.hasStatus
                                     || latest.visible && !strip.hasStatus
                                     || (usage.visible || back.visible) && !strip.hasStatus
                                     ? 6 : 14
        x: strip.width - width - edge
        y: 5
        height: strip.height - 10
        spacing: strip.compact ? 6 : 8

        UsageBadge {
            id: usage
            // Hidden in a compact window while a notice is shown.
            visible: strip.overlay.isUsageShown && !strip.isFindAlone
                     && (!strip.compact || !strip.isTitleReplaced || activeFocus)
            overlay: strip.overlay
            isBarShown: !strip.compact || !strip.hasStatus
        }
        Button {
            id: undo
            objectName: "undoInStrip"
            visible: strip.isUndoOffered && !strip.isFindAlone
            text: qsTr("Undo")
            onClicked: strip.overlay.undo()
            onVisibleChanged: {
                if (visible || !focus)
                    return
                focus = false
                if (strip.prompt)
                    strip.prompt.forceActiveFocus(Qt.OtherFocusReason)
            }
            Accessible.description: strip.overlay.undoText
        }
        Button {
            id: back
            objectName: "backToThread"
            visible: strip.overlay.isThreadCovered && !strip.isFindAlone
            text: strip.compact ? "" : qsTr("Back to thread")
            iconName: "chevron-left"
            leftPadding: 6
            rightPadding: strip.compact ? 0 : 10
            tooltip: qsTr("Back to thread")
            onClicked: strip.overlay.backToThread()
            Accessible.name: qsTr("Back to thread")
            Accessible.description: ""
        }
        Item {
            objectName: "status"
            visible: strip.hasStatus
                     && (!strip.compact || !strip.isTitleReplaced || strip.isFinding)
            width: (statusLabel.visible ? statusLabel.x + statusLabel.width : 14)
                   + (seconds.visible ? seconds.width + seconds.gap : 0)
            height: parent.height
            // Changes are announced to screen readers; it does not take focus.
            Accessible.role: Accessible.StatusBar
            Accessible.name: strip.overlay.statusText

            Spinner {
                visible: strip.status === OverlayModel.Capturing
                         || strip.status === OverlayModel.Waiting
                y: Math.round((parent.height - height) / 2)
            }
            LiveDot {
                visible: strip.status === OverlayModel.Streaming
                y: Math.round((parent.height - height) / 2)
            }
            Icon {
                visible: strip.status === OverlayModel.Blocked
                y: Math.round((parent.height - height) / 2)
                size: 14
                name: "lock"
                color: Tokens.frame.dangerText
            }
            Label {
                id: statusLabel
                // A compact window with other indicators shows only the icon.
                visible: strip.status === OverlayModel.Stopped || !strip.isFindAlone
                         && (!strip.compact || !(strip.overlay.isThreadCovered || notSaved.visible
                                                 || strip.isCrowded))
                x: strip.status === OverlayModel.Stopped ? 0 : 22
                height: parent.height
                text: strip.overlay.statusText
                type: strip.status === OverlayModel.Streaming ? Tokens.control : Tokens.label
                color: strip.status === OverlayModel.Blocked ? Tokens.frame.dangerText
                     : strip.status === OverlayModel.Streaming ? Tokens.frame.text
                                                               : Tokens.frame.dimText
                Accessible.ignored: true
            }
            Label {
                id: seconds
                readonly property int gap: strip.status === OverlayModel.Streaming ? 8 : 4
                visible: strip.isBusy && !strip.compact && !strip.isFindAlone
                x: statusLabel.x + statusLabel.width + gap
                height: parent.height
                text: strip.overlay.secondsText
                type: Tokens.label
                color: Tokens.frame.dimText
                Accessible.ignored: true
            }
        }
        Button {
            id: latest
            objectName: "latest"
            visible: strip.overlay.isLatestOffered && !strip.isFindAlone
            text: strip.compact ? "" : qsTr("Latest")
            iconName: "arrow-down"
            leftPadding: strip.compact ? 0 : 6
            rightPadding: strip.compact ? 0 : 10
            tooltip: qsTr("Latest")
            onClicked: strip.overlay.showLatest()
            Accessible.name: qsTr("Latest")
            Accessible.description: qsTr("Shows the end of the answer")
        }
        Button {
            id: stop
            objectName: "stop"
            visible: strip.overlay.canStop
            // The smallest window has no room for the word beside all the other controls.
            readonly property bool isShort: strip.isFindAlone
                                            || strip.compact && back.visible && clicks.visible
            width: isShort ? 28 : 10 + 9 + 8 + stopLabel.implicitWidth + 10
            text: qsTr("Stop")
            tooltip: qsTr("Stop")
            shortcutText: strip.overlay.stopShortcut
            onClicked: strip.overlay.stop()

            contentItem: Item {
                Rectangle {
                    y: (parent.height - height) / 2
                    width: 9
                    height: 9
                    radius: 1.5
                    color: stop.foreground
                }
                Label {
                    id: stopLabel
                    visible: !stop.isShort
                    x: 17
                    height: parent.height
                    text: stop.text
                    type: Tokens.control
                    Accessible.ignored: true
                }
            }
            leftPadding: 10
            rightPadding: 10
            Accessible.description: shortcutText
        }
        Row {
            id: versions
            objectName: "versions"
            visible: strip.overlay.versionCount > 1 && !strip.isFindAlone && !strip.isUndoCramped

            /// Shows the next version in a direction. At the end the keyboard focus goes to the
            /// button that leads back.
            function step(direction, pressed, opposite) {
                const hadFocus = pressed.activeFocus
                strip.overlay.showVersion(strip.overlay.shownVersion + direction)
                if (hadFocus && !pressed.enabled)
                    opposite.forceActiveFocus(Qt.TabFocusReason)
            }

            y: Math.round((right.height - height) / 2)

            IconButton {
                id: earlier
                objectName: "earlierVersion"
                width: 22
                iconName: "chevron-left"
                name: qsTr("Earlier answer")
                enabled: strip.overlay.shownVersion > 0
                onClicked: versions.step(-1, earlier, later)
            }
            Label {
                objectName: "versionWords"
                readonly property string words: qsTr("%1 of %2").arg(strip.overlay.shownVersion + 1)
                                                                .arg(strip.overlay.versionCount)
                height: earlier.height
                text: strip.compact ? words.replace(" of ", "/") : words
                type: Tokens.label
                color: Tokens.frame.dimText
                Accessible.role: Accessible.StatusBar
                Accessible.name: qsTr("Version %1").arg(words)
            }
            IconButton {
                id: later
                objectName: "laterVersion"
                width: 22
                iconName: "chevron-right"
                name: qsTr("Later answer")
                enabled: strip.overlay.shownVersion < strip.overlay.versionCount - 1
                onClicked: versions.step(1, later, earlier)
            }
        }
        Row {
            visible: strip.overlay.canAskAgain && !strip.isFindAlone && !strip.isUndoCramped
            y: Math.round((right.height - height) / 2)

            IconButton {
                id: edit
                objectName: "editQuestion"
                iconName: "pencil"
                iconSize: 14
                name: qsTr("Edit question")
                onClicked: strip.overlay.editQuestion()
            }
            IconButton {
                id: retry
                objectName: "retry"
                iconName: "rotate-ccw"
                iconSize: 14
                name: qsTr("Retry")
                shortcutText: strip.retryShortcut
                onClicked: strip.overlay.retry()
            }
        }
        IconButton {
            id: copy
            objectName: "copyAnswer"
            property bool isDone: false

            y: Math.round((right.height - height) / 2)
            visible: strip.status === OverlayModel.Answer && !strip.isFindAlone
            iconName: isDone ? "check" : "copy"
            foreground: isDone ? "#4fcf8c" : defaultForeground()
            name: isDone ? qsTr("Copied") : qsTr("Copy answer")
            onClicked: {
                strip.overlay.copyAnswer()
                isDone = true
                feedback.restart()
            }
            onVisibleChanged: isDone = false

            // The tooltip changes to "Copied"; the accessible name stays the same.
            Accessible.name: qsTr("Copy answer")
            Accessible.description: isDone ? qsTr("Copied") : ""

            Timer {
                id: feedback
                interval: Tokens.copiedTime
                onTriggered: copy.isDone = false
            }
        }
        IconButton {
            id: clicks
            objectName: "clicks"
            y: Math.round((right.height - height) / 2)
            visible: strip.overlay.areClicksOffered && !strip.isFindAlone
            role: Accessible.CheckBox
            isSwitch: true
            isOn: strip.overlay.takesClicks
            active: isOn
            iconName: isOn ? "mouse-pointer-click" : "mouse-pointer-ban"
            name: isOn ? qsTr("Clicks: answer") : qsTr("Clicks: through")
            label: isOn && !strip.compact && !strip.hasStatus ? name : ""
            shortcutText: strip.clicksShortcut
            onClicked: strip.overlay.toggleClicks()

            // The state tells whether it is on; the name stays the same.
            Accessible.name: qsTr("Clicks reach the answer")
            Accessible.checkable: true
            Accessible.checked: isOn
            Accessible.onToggleAction: strip.overlay.toggleClicks()
        }
    }
    Hairline {
        y: strip.height - 1
        width: strip.width
        color: Tokens.frame.line
    }
}
