import QtQuick
import Quellora.Sheets
import Quellora.Ui

/// The sections of the settings sheet.
Column {
    id: content

    required property SettingsModel settings
    property ThemeTokens theme: Tokens.sheetDark
    property bool compact: false

    /// Requests scrolling @p item into view.
    signal revealRequested(Item item)

    spacing: Tokens.space6

    Item {
        width: parent.width
        height: note.height
        visible: content.settings.captureNote.length > 0

        Icon {
            y: (note.type.line - height) / 2
            name: "info"
            size: 14
            color: content.theme.warnText
        }
        Label {
            id: note
            objectName: "captureNote"
            x: 20
            width: parent.width - x
            text: content.settings.captureNote
            type: Tokens.hint
            color: content.theme.warnText
            wrapMode: Text.Wrap
        }
    }
    SettingsSection {
        width: parent.width
        theme: content.theme
        title: qsTr("Model")
        hint: content.settings.modelHint

        ModelChoice {
            width: parent.width
            settings: content.settings
            theme: content.theme
            compact: content.compact
        }
    }
    SettingsSection {
        width: parent.width
        theme: content.theme
        title: qsTr("Appearance")
        hint: content.settings.appearanceHint

        AppearanceSegment {
            settings: content.settings
            theme: content.theme
            available: parent.width
        }
    }
    SettingsSection {
        width: parent.width
        theme: content.theme
        title: qsTr("Response text color")
        hint: qsTr("Overrides the theme's default text color — useful when the response background "
                   + "is very transparent. Doesn't change headings, bold, or code color.")

        TextColorChoice {
            width: parent.width
            settings: content.settings
            theme: content.theme
        }
    }
    // Created only if offered, to hide it from assistive technology otherwise.
    Loader {
        id: screens

        // Inside SettingsSection, "content" would refer to its own property.
        readonly property SettingsModel settings: content.settings
        readonly property ThemeTokens theme: content.theme

        width: parent.width
        active: settings.isScreenChoiceOffered
        visible: active

        sourceComponent: SettingsSection {
            theme: screens.theme
            title: qsTr("Screenshots")
            hint: qsTr("What a capture shows while several screens are connected.")

            ScreenChoice {
                width: parent.width
                settings: screens.settings
                theme: screens.theme
            }
        }
    }
    SettingsSection {
        width: parent.width
        theme: content.theme
        title: qsTr("Sending")

        Card {
            id: sending
            width: parent.width
            height: switches.height
            theme: content.theme

            Column {
                id: switches
                width: parent.width

                SwitchRow {
                    objectName: "startNewThreadPerSend"
                    width: parent.width
                    theme: content.theme
                    isFirst: true
                    outerRadius: sending.radius
                    name: qsTr("Start a new thread with each Send")
                    hint: qsTr("Off: threads accumulate — every Send/Capture & Send continues the "
                               + "current one. On: each Send/Capture & Send begins a fresh thread "
                               + "automatically.")
                    on: content.settings.stored.startNewThreadPerSendEnabled
                    onToggledByUser: content.settings.stored.startNewThreadPerSendEnabled = !on
                }
                SwitchRow {
                    objectName: "dontClearPromptAfterSend"
                    width: parent.width
                    theme: content.theme
                    outerRadius: sending.radius
                    name: qsTr("Don't clear prompt after sending")
                    hint: qsTr("Keep your prompt in the box after Send or Capture & Send, so you "
                               + "can capture something new and ask again. Notes still clear.")
                    on: content.settings.stored.dontClearPromptAfterSendEnabled
                    onToggledByUser: content.settings.stored.dontClearPromptAfterSendEnabled = !on
                }
                SwitchRow {
                    objectName: "lookBeforeSending"
                    width: parent.width
                    theme: content.theme
                    isLast: true
                    outerRadius: sending.radius
                    name: qsTr("Look before sending")
                    hint: qsTr("A capture is shown first: Return sends it, Escape drops it.")
                    on: content.settings.stored.lookBeforeSending
                    onToggledByUser: content.settings.stored.lookBeforeSending = !on
                }
            }
        }
    }
    SettingsSection {
        width: parent.width
        theme: content.theme
        title: qsTr("Panel")
        hint: qsTr("The answer's text grows and shrinks with %1 and %2; %3 makes it normal again.")
              .arg("Ctrl++").arg("Ctrl+-").arg("Ctrl+0")

        Card {
            id: panelCard
            width: parent.width
            height: whereLeft.height
            theme: content.theme

            SwitchRow {
                id: whereLeft
                objectName: "startsWhereLeft"
                width: parent.width
                theme: content.theme
                isFirst: true
                isLast: true
                outerRadius: panelCard.radius
                name: qsTr("Start where I left it")
                hint: qsTr("Place, size and opacity of the panel, for each arrangement of your "
                           + "screens. Off: it starts as config.json says.")
                on: content.settings.stored.startsWhereLeft
                onToggledByUser: content.settings.stored.startsWhereLeft = !on
            }
        }
    }
    Loader {
        id: prompts

        readonly property SettingsModel settings: content.settings
        readonly property ThemeTokens theme: content.theme

        function reveal(item) {
            content.revealRequested(item)
        }

        width: parent.width
        active: settings.promptRows !== null
        visible: active

        sourceComponent: SettingsSection {
            theme: prompts.theme
            title: qsTr("Prompts")
            hint: qsTr("Kept in the menu beside the model, and listed when a message begins with "
                       + "“/”. Give one a hotkey below to capture and send with it.")

            PromptSettings {
                width: parent.width
                rows: prompts.settings.promptRows
                theme: prompts.theme
                onRevealRequested: item => prompts.reveal(item)
            }
        }
    }
    // Created only if offered, like the screens.
    Loader {
        id: notices

        readonly property SettingsModel settings: content.settings
        readonly property ThemeTokens theme: content.theme

        width: parent.width
        active: settings.isNoticeOffered
        visible: active

        sourceComponent: SettingsSection {
            theme: notices.theme
            title: qsTr("Answers")

            Card {
                id: noticeCard
                width: parent.width
                height: notice.height
                theme: notices.theme

                SwitchRow {
                    id: notice
                    objectName: "notifyWhenAnswerReady"
                    width: parent.width
                    theme: notices.theme
                    isFirst: true
                    isLast: true
                    outerRadius: noticeCard.radius
                    name: qsTr("Notify when an answer is ready")
                    hint: qsTr("Only while the panel is hidden. The notification contains neither "
                               + "your question nor the answer.")
                    on: notices.settings.stored.notifyWhenAnswerReady
                    onToggledByUser: notices.settings.stored.notifyWhenAnswerReady = !on
                }
            }
        }
    }
    // Created only if threads can be stored.
    Loader {
        id: threads

        readonly property SettingsModel settings: content.settings
        readonly property ThemeTokens theme: content.theme

        width: parent.width
        active: settings.threads !== null
        visible: active

        sourceComponent: SettingsSection {
            theme: threads.theme
            title: qsTr("History")

            HistorySettings {
                width: parent.width
                storage: threads.settings.threads
                theme: threads.theme
            }
        }
    }
    SettingsSection {
        width: parent.width
        theme: content.theme
        title: qsTr("Hotkeys")
        hint: content.settings.hotkeyRows.hint

        HotkeyList {
            id: hotkeys
            visible: content.settings.hotkeyRows.isListed
            // A hidden item counts for the section's height, too.
            height: visible ? implicitHeight : 0
            onRevealRequested: row => content.revealRequested(row)
            width: parent.width
            settings: content.settings
            theme: content.theme
        }
        Item {
            id: footer
            readonly property real resetWidth: resetAll.visible ? resetAll.width + Tokens.space4 : 0
            readonly property bool fits: resetWidth + help.implicitWidth <= width
            y: hotkeys.height > 0 ? hotkeys.height + Tokens.space3 : 0
            width: parent.width
            height: help.y + help.height

            Button {
                id: resetAll
                objectName: "resetAllHotkeys"
                visible: content.settings.hotkeyRows.isRecordable
                theme: content.theme
                text: qsTr("Reset all hotkeys")
                onClicked: content.settings.hotkeyRows.resetAll()
            }
            HelpLink {
                id: help
                objectName: "helpLink"
                x: footer.fits && resetAll.visible ? footer.width - width : 0
                y: footer.fits ? 0 : resetAll.height + 4
                width: Math.min(implicitWidth, footer.width)
                theme: content.theme
                text: qsTr("Need help? See the Help docs ↗")
                onClicked: content.settings.openHelp()
            }
        }
    }
    Loader {
        id: desktopShortcuts

        readonly property SettingsModel settings: content.settings
        readonly property ThemeTokens theme: content.theme

        width: parent.width
        active: settings.hotkeyRows.commandHint.length > 0
        visible: active

        sourceComponent: SettingsSection {
            theme: desktopShortcuts.theme
            title: qsTr("Desktop shortcuts")
            hint: desktopShortcuts.settings.hotkeyRows.commandHint

            ShortcutGuideList {
                width: parent.width
                settings: desktopShortcuts.settings
                theme: desktopShortcuts.theme
            }
        }
    }
    SettingsSection {
        width: parent.width
        theme: content.theme
        title: qsTr("About")

        AboutProgram {
            width: parent.width
            settings: content.settings
            theme: content.theme
        }
    }
}
