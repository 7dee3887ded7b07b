import QtQuick
import Quellora.Ui

/// A section with a heading, an optional hint and controls.
Item {
    id: section

    property ThemeTokens theme: Tokens.sheetDark
    property string title
    property string hint
    default property alias content: body.data

    implicitHeight: body.y + body.height
    Accessible.role: Accessible.Grouping
    Accessible.name: section.title

    Label {
        id: heading
        width: parent.width
        text: section.title
        type: Tokens.section
        theme: section.theme
        elide: Text.ElideRight
        Accessible.role: Accessible.Heading
    }
    Label {
        id: hintLabel
        y: heading.height + 2
        width: parent.width
        visible: section.hint.length > 0
        text: section.hint
        type: Tokens.hint
        color: section.theme.dimText
        wrapMode: Text.Wrap
    }
    Item {
        id: body
        y: hintLabel.visible ? hintLabel.y + hintLabel.height + 10 : heading.height + 8
        width: parent.width
        height: childrenRect.height
    }
}
