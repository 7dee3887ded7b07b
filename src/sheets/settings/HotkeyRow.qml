import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Sheets
import Quellora.Ui

/// An action with its shortcut. Clicking records a new one, unless the desktop assigns the keys; the
/// pointer or the focus shows a button that unsets it. Errors and conflicts are shown below.
Item {
    id: row

    required property int index
    required property string title
    required property string combo
    required property string keyState
    required property bool isChanged
    required property bool isCapturing
    required property string error
    required property string conflict
    required property string conflictCombo
    required property HotkeyRows rows
    property ThemeTokens theme: Tokens.sheetDark
    property bool isFirst: false
    property bool isLast: false
    property real outerRadius: 0
    readonly property bool isPending: conflict.length > 0
    readonly property bool canUnset: rows.isRecordable && combo.length > 0 && !isCapturing
    /// Whether the chip is below the title, for narrow windows.
    readonly property bool isStacked: Tokens.space3 + titleLabel.implicitWidth + Tokens.space3
                                      + chip.width + trailingSpace > width
    /// To the right of the chip.
    readonly property real trailingSpace: rows.isRecordable ? 44 : Tokens.space3
    readonly property real topHeight: isStacked ? chip.y + chip.height + 8 : titleLabel.height
    readonly property bool isPendingStacked: notice.x + notice.implicitWidth + Tokens.space2
                                             + choices.width + Tokens.space3 > width

    /// Requests scrolling this row into view.
    signal revealRequested()

    onIsCapturingChanged: {
        if (isCapturing)
            revealRequested()
    }
    onImplicitHeightChanged: {
        if (isPending || error.length > 0)
            revealRequested()
    }

    objectName: "hotkey-" + index
    implicitHeight: topHeight + (isPending ? choices.height + 10 + (isPendingStacked ? noticeHeight : 0)
                                 : error.length > 0 ? noticeHeight + 10 : 0)
    readonly property real noticeHeight: Math.max(notice.type.line, notice.height)

    HoverHandler { id: rowHover }
    Basic.AbstractButton {
        id: button
        objectName: "hotkeyButton-" + row.index
        anchors.fill: parent
        padding: 0
        hoverEnabled: true
        enabled: row.rows.isRecordable
        focusPolicy: Qt.TabFocus
        onClicked: row.rows.beginCapture(row.index)

        background: RowBackground {
            control: button
            theme: row.theme
            // Keys do not navigate the sheet while a conflict awaits confirmation.
            showsRing: !row.isPending
            isFirst: row.isFirst
            isLast: row.isLast
            outerRadius: row.outerRadius
        }

        Keys.onReturnPressed: button.clicked()
        Keys.onEnterPressed: button.clicked()
        Keys.onDeletePressed: row.rows.unset(row.index)
        Keys.onPressed: event => {
            if (event.key !== Qt.Key_Backspace)
                return
            event.accepted = true
            row.rows.unset(row.index)
        }

        Accessible.ignored: !enabled
        Accessible.role: Accessible.Button
        Accessible.name: row.title + ", " + (row.isPending ? row.conflictCombo
                                            : row.isCapturing ? chip.text : row.keyState)
        Accessible.description: row.isPending ? row.conflict
                              : row.error.length > 0 ? row.error
                              : row.canUnset ? qsTr("Delete unsets it") : ""
        Accessible.onPressAction: button.clicked()
    }
    // Not a changed role of the button: assistive technology keeps the first one.
    Item {
        anchors.fill: parent
        visible: !button.enabled
        Accessible.role: Accessible.StaticText
        Accessible.name: button.Accessible.name
    }
    Label {
        id: titleLabel
        x: Tokens.space3
        width: Math.min(implicitWidth, (unset.visible && !row.isStacked ? unset.x
                                        : parent.width - row.trailingSpace) - x)
        height: (row.isStacked ? 32 : 40) + Tokens.growth(20)
        text: row.title
        type: Tokens.body
        theme: row.theme
        elide: Text.ElideRight
        Accessible.ignored: true
    }
    Chip {
        id: chip
        objectName: "chip-" + row.index
        x: row.isStacked ? Tokens.space3 : parent.width - row.trailingSpace - width
        y: row.isStacked ? titleLabel.height : Math.round((titleLabel.height - height) / 2)
        theme: row.theme
        text: row.isPending ? row.conflictCombo
            : row.isCapturing ? qsTr("Press a shortcut…")
            : row.combo.length > 0 ? row.combo
            : row.rows.isRecordable ? qsTr("Not set") : qsTr("No key assigned")
        vacant: row.combo.length === 0
        recording: row.isCapturing && !row.isPending
        conflict: row.isPending
    }
    IconButton {
        id: unset
        objectName: "unset-" + row.index
        x: row.isStacked ? chip.x + chip.width + Tokens.space1 : chip.x - width - Tokens.space1
        y: chip.y + Math.round((chip.height - height) / 2)
        visible: row.canUnset && (rowHover.hovered || button.visualFocus)
        theme: row.theme
        foreground: down || hovered ? theme.text : theme.dimText
        iconName: "x"
        name: qsTr("Unset %1").arg(row.title)
        shortcutText: qsTr("Delete")
        // The Delete key on the row does the same.
        focusPolicy: Qt.NoFocus
        onClicked: row.rows.unset(row.index)
    }
    IconButton {
        id: trailing
        objectName: "trailing-" + row.index
        readonly property bool cancels: row.isCapturing
        x: parent.width - width - Tokens.space2
        y: (row.topHeight - height) / 2
        visible: row.isCapturing || row.isChanged
        theme: row.theme
        foreground: down || hovered ? theme.text : theme.dimText
        iconName: cancels ? "x" : "rotate-ccw"
        name: cancels ? qsTr("Cancel recording") : qsTr("Reset %1").arg(row.title)
        // Recording consumes all keys.
        focusPolicy: cancels ? Qt.NoFocus : Qt.TabFocus
        onClicked: cancels ? row.rows.cancelCapture() : row.rows.reset(row.index)
    }

    Icon {
        x: Tokens.space3
        y: notice.y + (notice.type.line - height) / 2
        visible: notice.visible
        name: "triangle-alert"
        size: 14
        fillOpacity: row.isPending ? 0.22 : 0
        color: row.isPending ? row.theme.warnText : row.theme.dangerText
    }
    Label {
        id: notice
        objectName: "notice-" + row.index
        x: Tokens.space3 + 20
        y: row.isPending && !row.isPendingStacked ? row.topHeight + 5 : row.topHeight
        width: Math.min(implicitWidth, parent.width - x - Tokens.space3)
        visible: row.isPending || row.error.length > 0
        text: row.isPending ? row.conflict : row.error
        type: Tokens.hint
        color: row.isPending ? row.theme.text : row.theme.dangerText
        wrapMode: Text.Wrap
        Accessible.role: Accessible.AlertMessage
    }
    Row {
        id: choices
        x: parent.width - width - Tokens.space3
        y: row.isPendingStacked ? notice.y + row.noticeHeight : row.topHeight
        visible: row.isPending
        spacing: Tokens.space2

        Button {
            objectName: "conflictCancel"
            text: qsTr("Cancel")
            kind: Button.Ghost
            opacity: hovered || down ? 1 : 0.72
            theme: row.theme
            focusPolicy: Qt.NoFocus
            onClicked: row.rows.cancelConflict()
        }
        Button {
            objectName: "conflictConfirm"
            text: qsTr("Use anyway")
            theme: row.theme
            focusPolicy: Qt.NoFocus
            onClicked: row.rows.confirmConflict()
        }
    }
}
