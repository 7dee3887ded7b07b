import QtQuick
import QtQuick.Window
import Quellora.Ui
import Quellora.Login

/// The sign-in form, 420 × 480 pixels. Positions are relative to the top of the content.
Item {
    id: view

    required property LoginViewModel viewModel
    readonly property LoginTokens theme: Tokens.login
    readonly property bool complete: viewModel.isComplete(email.text, password.text)
    readonly property bool loading: viewModel.isLoading
    readonly property int margin: 40
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

    width: 420
    height: 480
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

    Label {
        x: view.margin
        y: 28
        width: parent.width - 2 * x
        height: 32
        horizontalAlignment: Text.AlignHCenter
        text: "Quellora"
        type: Tokens.heading
        theme: view.theme
        Accessible.role: Accessible.Heading
    }

    Label {
        x: view.margin
        y: 80
        height: 16
        text: "Email"
        type: Tokens.control
        color: view.theme.dimText
        Accessible.ignored: true
    }
    LoginField {
        id: email
        x: view.margin
        y: 102
        name: "Email"
        focus: true
        busy: view.loading
        inputMethodHints: Qt.ImhEmailCharactersOnly | Qt.ImhNoAutoUppercase
                          | Qt.ImhNoPredictiveText
        onAccepted: view.pressSignIn()
    }

    Label {
        x: view.margin
        y: 156
        height: 16
        text: "Password"
        type: Tokens.control
        color: view.theme.dimText
        Accessible.ignored: true
    }
    LoginField {
        id: password
        x: view.margin
        y: 178
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
        x: 380 - width
        y: 222
        text: "Forgot password?"
        theme: view.theme
        onClicked: view.viewModel.forgotPasswordRequested()
    }

    Label {
        id: error
        x: view.margin
        y: 252
        width: parent.width - 2 * x
        visible: text.length > 0
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.Wrap
        text: view.viewModel.errorMessage
        type: TypeTokens { size: 13; line: 18 }
        color: view.theme.dangerText
        Accessible.role: Accessible.AlertMessage
    }

    Item {
        x: view.margin
        y: 262 + view.errorOffset
        width: parent.width - 2 * x
        height: 40

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
        x: view.margin
        y: 316 + view.errorOffset
        width: parent.width - 2 * x
        height: 16
        visible: view.viewModel.offersGoogle

        Rectangle {
            y: 7.5
            width: orLabel.x - Tokens.space3
            height: 1
            color: view.theme.line
        }
        Label {
            id: orLabel
            x: Math.round((parent.width - width) / 2)
            height: 16
            text: "or"
            color: view.theme.muted
        }
        Rectangle {
            x: orLabel.x + Math.round(orLabel.width) + Tokens.space3
            y: 7.5
            width: parent.width - x
            height: 1
            color: view.theme.line
        }
    }

    FilledBarButton {
        id: google
        x: view.margin
        y: 346 + view.errorOffset
        width: parent.width - 2 * x
        height: 40
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
        x: view.margin
        y: 396 + view.errorOffset
        width: parent.width - 2 * x
        height: 16
        visible: view.viewModel.isGoogleLoading
        horizontalAlignment: Text.AlignHCenter
        text: "Finish signing in there, then come back here."
        color: view.theme.dimText
    }

    LinkButton {
        x: Math.round((parent.width - width) / 2)
        y: view.viewModel.isGoogleLoading ? Math.max(436, 410 + view.errorOffset) : 436
        leadingText: "Don't have an account?"
        text: "Sign up"
        name: "Don't have an account? Sign up"
        textColor: view.theme.text
        weight: Font.Medium
        theme: view.theme
        onClicked: view.viewModel.signupRequested()
    }
}
