import QtQuick
import QtQuick.Window
import Quellora.Ui
import Quellora.Login

/// The sign-in form, 420 × 480 pixels, more with larger text. Scrolls in a window that is lower than the
/// form.
Item {
    id: view

    required property LoginViewModel viewModel
    readonly property LoginTokens theme: Tokens.login
    readonly property bool complete: viewModel.isComplete(email.text, password.text)
    readonly property bool loading: viewModel.isLoading
    readonly property int margin: 40
    readonly property int fieldWidth: Math.min(Tokens.grown(340), width - 2 * margin)
    /// Additional height of all items above the last link with larger text.
    readonly property int growth: Tokens.growth(32) + 5 * Tokens.growth(16) + 4 * Tokens.growth(20)
    /// Distance by which the error message shifts the items below it.
    readonly property int errorOffset: error.visible ? error.height + 2 : 0

    /// Clears the fields after sign-in.
    function clearFields() {
        password.clear()
        email.clear()
    }
    function pressSignIn() {
        if (view.complete)
            view.viewModel.submit(email.text, password.text)
    }

    implicitWidth: Tokens.grown(340) + 2 * margin
    // Has room for an error of two lines.
    implicitHeight: 480 + growth + Tokens.growth(16) + 2 * Tokens.growth(18)
    Keys.onReturnPressed: pressSignIn()
    Keys.onEnterPressed: pressSignIn()

    Connections {
        target: view.viewModel
        function onSubmitFailed() {
            password.forceActiveFocus(Qt.OtherFocusReason)
            password.selectAll()
        }
    }

    Rectangle {
        anchors.fill: parent
        color: view.theme.background
    }

    Flickable {
        id: scroller
        objectName: "loginScroller"
        readonly property bool overflows: contentHeight > height + 0.5

        function reveal() {
            const item = view.Window.activeFocusItem
            if (!overflows || !item)
                return
            const top = item.mapToItem(contentItem, 0, 0).y
            contentY = Math.max(top + item.height + 12 - height, Math.min(contentY, top - 12), 0)
        }

        anchors.fill: parent
        contentWidth: width
        contentHeight: Math.max(height, signUp.y + signUp.height + 4)
        boundsBehavior: Flickable.StopAtBounds
        interactive: overflows

        Connections {
            target: view.Window.window
            function onActiveFocusItemChanged() { scroller.reveal() }
        }

        Label {
            x: view.margin
            y: 28
            width: parent.width - 2 * x
            height: type.line
            horizontalAlignment: Text.AlignHCenter
            text: "Quellora"
            type: Tokens.heading
            theme: view.theme
            Accessible.role: Accessible.Heading
        }

        Label {
            id: emailLabel
            x: view.margin
            y: 80 + Tokens.growth(32)
            height: type.line
            text: "Email"
            type: Tokens.control
            color: view.theme.dimText
            Accessible.ignored: true
        }
        LoginField {
            id: email
            x: view.margin
            y: emailLabel.y + 22 + Tokens.growth(16)
            width: view.fieldWidth
            name: "Email"
            focus: true
            busy: view.loading
            inputMethodHints: Qt.ImhEmailCharactersOnly | Qt.ImhNoAutoUppercase
                              | Qt.ImhNoPredictiveText
            onAccepted: view.pressSignIn()
        }

        Label {
            id: passwordLabel
            x: view.margin
            y: email.y + 54 + Tokens.growth(20)
            height: type.line
            text: "Password"
            type: Tokens.control
            color: view.theme.dimText
            Accessible.ignored: true
        }
        LoginField {
            id: password
            x: view.margin
            y: passwordLabel.y + 22 + Tokens.growth(16)
            width: view.fieldWidth
            name: "Password"
            // This field is focused after an error, so that screen readers announce the message.
            hint: view.viewModel.errorMessage
            busy: view.loading
            echoMode: TextInput.Password
            inputMethodHints: Qt.ImhSensitiveData | Qt.ImhNoAutoUppercase | Qt.ImhNoPredictiveText
            // Return submits even if `complete` is false, which only disables the button.
            onAccepted: view.viewModel.submit(email.text, password.text)
        }

        LinkButton {
            id: forgot
            x: view.margin + view.fieldWidth - width
            y: password.y + 44 + Tokens.growth(20)
            text: "Forgot password?"
            theme: view.theme
            onClicked: view.viewModel.forgotPasswordRequested()
        }

        Label {
            id: error
            x: view.margin
            y: forgot.y + 30 + Tokens.growth(16)
            width: parent.width - 2 * x
            visible: text.length > 0
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.Wrap
            text: view.viewModel.errorMessage
            type: TypeTokens {
                scale: Tokens.textScale
                designSize: 13
                designLine: 18
            }
            color: view.theme.dangerText
            Accessible.role: Accessible.AlertMessage
        }

        Item {
            id: signIn
            x: view.margin
            y: forgot.y + 40 + Tokens.growth(16) + view.errorOffset
            width: parent.width - 2 * x
            height: 40 + Tokens.growth(20)

            FilledBarButton {
                anchors.fill: parent
                visible: !view.loading
                enabled: view.complete
                text: "Sign in"
                weight: Font.DemiBold
                onClicked: view.pressSignIn()
            }
            Spinner {
                anchors.centerIn: parent
                visible: view.loading
                size: 20
                theme: view.theme
                name: "Signing in"
            }
        }

        Item {
            id: divider
            x: view.margin
            y: signIn.y + 54 + Tokens.growth(20)
            width: parent.width - 2 * x
            height: orLabel.height
            visible: view.viewModel.offersGoogle

            Hairline {
                y: parent.height / 2 - 0.5
                width: orLabel.x - Tokens.space3
                color: view.theme.line
            }
            Label {
                id: orLabel
                x: Math.round((parent.width - width) / 2)
                height: type.line
                text: "or"
                color: view.theme.muted
            }
            Hairline {
                x: orLabel.x + Math.round(orLabel.width) + Tokens.space3
                y: parent.height / 2 - 0.5
                width: parent.width - x
                color: view.theme.line
            }
        }

        FilledBarButton {
            id: google
            x: view.margin
            y: divider.y + 30 + Tokens.growth(16)
            width: parent.width - 2 * x
            height: implicitHeight
            visible: view.viewModel.offersGoogle
            enabled: !view.loading
            waiting: view.viewModel.isGoogleLoading
            text: waiting ? "Waiting for your browser\u2026" : "Sign in with Google"
            showsGoogleMark: true
            fillColor: view.theme.secondary
            hoverFillColor: view.theme.secondaryHover
            pressedFillColor: view.theme.secondaryPressed
            borderColor: view.theme.secondaryOutline
            textColor: view.theme.text
            onClicked: view.viewModel.requestGoogleSignIn()
        }

        // Overlaps the Google button, which ignores presses while waiting.
        LinkButton {
            x: google.x + google.width - Tokens.space3 - width
            y: google.y + (google.height - height) / 2
            visible: view.viewModel.isGoogleLoading
            text: "Cancel"
            role: Accessible.Button
            theme: view.theme
            onClicked: {
                // This link is about to be hidden, so move the focus to the Google button.
                if (activeFocus)
                    google.forceActiveFocus(visualFocus ? Qt.TabFocusReason : Qt.OtherFocusReason)
                view.viewModel.cancelGoogleSignIn()
            }
        }

        Label {
            id: waitHint
            x: view.margin
            y: google.y + 50 + Tokens.growth(20)
            width: parent.width - 2 * x
            height: type.line
            visible: view.viewModel.isGoogleLoading
            horizontalAlignment: Text.AlignHCenter
            text: "Finish signing in there, then come back here."
            color: view.theme.dimText
        }

        LinkButton {
            id: signUp
            x: Math.round((parent.width - width) / 2)
            y: Math.max(436 + view.growth,
                        view.viewModel.isGoogleLoading ? waitHint.y + waitHint.height - 2
                        : view.viewModel.offersGoogle ? google.y + google.height + 4
                                                      : signIn.y + signIn.height + 4)
            leadingText: "Don't have an account?"
            text: "Sign up"
            name: "Don't have an account? Sign up"
            textColor: view.theme.text
            weight: Font.Medium
            theme: view.theme
            onClicked: view.viewModel.signupRequested()
        }
    }

    Loader {
        anchors.fill: parent
        active: view.viewModel.pictureQuestion !== LoginViewModel.PictureQuestion.None
        sourceComponent: PictureQuestionPage { viewModel: view.viewModel }
    }
}
