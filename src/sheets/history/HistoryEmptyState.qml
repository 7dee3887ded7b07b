import QtQuick
import Quellora.Panels
import Quellora.Sheets
import Quellora.Ui

/// Placeholder shown if no threads are stored or none matches the search.
Column {
    id: empty

    required property HistoryModel history
    property ThemeTokens theme: Tokens.sheetDark
    readonly property bool isSearch: history.hasThreads

    signal searchCleared()

    spacing: 2

    Icon {
        anchors.horizontalCenter: parent.horizontalCenter
        name: empty.isSearch ? "search" : "history"
        size: 28
        color: empty.theme.dimText
    }
    Item { width: 1; height: 8 }
    Label {
        width: parent.width
        horizontalAlignment: Text.AlignHCenter
        text: empty.isSearch ? qsTr("No matching threads")
                              : qsTr("No saved threads yet")
        type: Tokens.section
        theme: empty.theme
        wrapMode: Text.Wrap
    }
    Label {
        width: parent.width
        horizontalAlignment: Text.AlignHCenter
        text: empty.isSearch
              ? qsTr("Search looks at titles, questions, answers and notes.")
              : qsTr("Turn on “Save thread” below the prompt to keep a thread here.")
        type: Tokens.hint
        color: empty.theme.dimText
        wrapMode: Text.Wrap
    }
    Item { width: 1; height: 8; visible: clear.visible }
    Button {
        id: clear
        anchors.horizontalCenter: parent.horizontalCenter
        visible: empty.isSearch
        text: qsTr("Clear search")
        theme: empty.theme
        onClicked: {
            empty.history.searchText = ""
            empty.searchCleared()
        }
    }
}
