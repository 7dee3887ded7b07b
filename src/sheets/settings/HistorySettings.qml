import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// How long threads are kept, the space they take, and deleting all of them.
Item {
    id: settings

    required property ThreadStorage storage
    property ThemeTokens theme: Tokens.sheetDark

    implicitHeight: deleteAll.y + deleteAll.height
    height: implicitHeight

    Card {
        id: card
        width: parent.width
        height: column.height
        theme: settings.theme

        Column {
            id: column
            width: parent.width

            SwitchRow {
                objectName: "keepThreadsLimited"
                width: parent.width
                theme: settings.theme
                isFirst: true
                outerRadius: card.radius
                name: settings.storage.days === 1
                      ? qsTr("Keep threads for 1 day")
                      : qsTr("Keep threads for %1 days").arg(settings.storage.days)
                hint: qsTr("Off: they stay until you delete them. On: those that have not changed "
                           + "for longer are deleted. The thread you are in stays.")
                on: settings.storage.isLimited
                onToggledByUser: settings.storage.setLimited(!on)
            }
            Item {
                width: parent.width
                height: (error.visible ? error.y + error.height : field.y + field.height)
                        + Tokens.space2

                Label {
                    x: Tokens.space3
                    y: field.y
                    width: field.x - x - Tokens.space2
                    height: field.height
                    text: qsTr("Days")
                    type: Tokens.body
                    font.weight: Font.Medium
                    theme: settings.theme
                    elide: Text.ElideRight
                    Accessible.ignored: true
                }
                TextField {
                    id: field
                    objectName: "keepThreadsDays"

                    function show() {
                        if (settings.storage.daysError.length === 0)
                            text = settings.storage.days
                    }

                    x: parent.width - width - Tokens.space3
                    y: Tokens.space2
                    width: Tokens.grown(72)
                    horizontalAlignment: TextInput.AlignRight
                    theme: settings.theme
                    name: qsTr("Days to keep threads")
                    hint: settings.storage.daysError
                    failed: settings.storage.daysError.length > 0
                    maximumLength: 6
                    inputMethodHints: Qt.ImhDigitsOnly
                    onAccepted: settings.storage.commitDays(text)
                    onActiveFocusChanged: {
                        if (!activeFocus && text !== String(settings.storage.days))
                            settings.storage.commitDays(text)
                    }
                    Component.onCompleted: show()

                    Connections {
                        target: settings.storage
                        function onLimitChanged() { field.show() }
                    }
                }
                Label {
                    id: error
                    objectName: "keepThreadsDaysError"
                    visible: text.length > 0
                    x: Tokens.space3
                    y: field.y + field.height + Tokens.space1
                    width: parent.width - 2 * x
                    text: settings.storage.daysError
                    type: Tokens.hint
                    color: settings.theme.dangerText
                    wrapMode: Text.Wrap
                    Accessible.role: Accessible.AlertMessage
                }
            }
        }
    }
    Label {
        id: problem
        objectName: "storageProblem"
        visible: text.length > 0
        y: card.height + Tokens.space2
        width: parent.width
        text: settings.storage.problem
        type: Tokens.hint
        color: settings.theme.dangerText
        wrapMode: Text.Wrap
        Accessible.role: Accessible.AlertMessage
    }
    Button {
        id: deleteAll
        objectName: "deleteAllThreads"
        y: card.height + Tokens.space3 + (problem.visible ? problem.height + Tokens.space1 : 0)
        theme: settings.theme
        enabled: settings.storage.hasThreads
        text: qsTr("Delete all threads")
        onClicked: settings.storage.deleteAll()
        // The focus goes on instead of getting lost, but not into a sheet that is being closed.
        onEnabledChanged: {
            if (!enabled && focus && settings.enabled)
                field.forceActiveFocus(Qt.TabFocusReason)
        }
    }
    Label {
        objectName: "storageSpace"
        x: deleteAll.width + Tokens.space3
        y: deleteAll.y
        width: parent.width - x
        height: deleteAll.height
        text: settings.storage.space
        type: Tokens.hint
        color: settings.theme.dimText
        elide: Text.ElideRight
        Accessible.role: Accessible.StaticText
    }
}
