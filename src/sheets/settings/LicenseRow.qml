import QtQuick
import QtQuick.Controls.Basic as Basic
import Quellora.Sheets
import Quellora.Ui

/// A component of others in the program. Clicking shows and hides its licence.
Item {
    id: row

    required property int index
    required property string name
    required property string version
    required property string license
    required property string text
    property ThemeTokens theme: Tokens.sheetDark
    property bool isFirst: false
    property bool isLast: false
    property real outerRadius: 0
    property bool isOpen: false
    readonly property real titleHeight: 40 + Tokens.growth(20)

    implicitHeight: isOpen ? titleHeight + body.height + Tokens.space3 : titleHeight

    Basic.AbstractButton {
        id: button
        objectName: "license-" + row.index
        width: row.width
        height: row.titleHeight
        padding: 0
        hoverEnabled: true
        focusPolicy: Qt.TabFocus
        onClicked: row.isOpen = !row.isOpen

        background: RowBackground {
            control: button
            theme: row.theme
            isFirst: row.isFirst
            isLast: row.isLast && !row.isOpen
            outerRadius: row.outerRadius
        }
        HoverHandler { cursorShape: Qt.PointingHandCursor }

        Keys.onReturnPressed: button.clicked()
        Keys.onEnterPressed: button.clicked()

        Accessible.role: Accessible.Button
        Accessible.name: qsTr("License of %1").arg(row.name)
        Accessible.description: row.isOpen ? qsTr("%1, shown below").arg(row.license) : row.license
        Accessible.onPressAction: button.clicked()
    }
    Label {
        id: title
        x: Tokens.space3
        width: Math.min(implicitWidth, kind.x - x - Tokens.space2)
        height: row.titleHeight
        text: row.name + " " + row.version
        type: Tokens.body
        theme: row.theme
        elide: Text.ElideRight
        Accessible.ignored: true
    }
    Label {
        id: kind
        x: arrow.x - width - Tokens.space2
        width: Math.min(implicitWidth, row.width / 2)
        height: row.titleHeight
        text: row.license
        type: Tokens.label
        color: row.theme.dimText
        elide: Text.ElideRight
        Accessible.ignored: true
    }
    Icon {
        id: arrow
        x: row.width - width - Tokens.space3
        y: Math.round((row.titleHeight - height) / 2)
        name: row.isOpen ? "chevron-up" : "chevron-down"
        size: 14
        color: row.theme.dimText
    }
    Label {
        id: body
        objectName: "licenseText-" + row.index
        x: Tokens.space3
        y: row.titleHeight
        width: row.width - 2 * x
        visible: row.isOpen
        // Empty while hidden, because laying out all texts takes time.
        text: row.isOpen ? row.text : ""
        textFormat: Text.PlainText
        type: Tokens.hint
        color: row.theme.dimText
        wrapMode: Text.Wrap
    }
}
