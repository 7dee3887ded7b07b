import QtQuick
import Quellora.Ui
import Quellora.Login

/// Shown over the form after sign-in: why the desktop is going to ask about pictures of the screen.
Rectangle {
    id: view

    required property LoginViewModel viewModel
    readonly property LoginTokens theme: Tokens.login
    readonly property bool asked: viewModel.pictureQuestion === LoginViewModel.PictureQuestion.Asked

    color: theme.background
    Component.onCompleted: proceed.forceActiveFocus(Qt.OtherFocusReason)

    // The form beneath gets no presses.
    MouseArea { anchors.fill: parent }

    Column {
        anchors.verticalCenter: parent.verticalCenter
        x: 40
        width: parent.width - 2 * x
        spacing: 16

        Label {
            width: parent.width
            height: type.line
            horizontalAlignment: Text.AlignHCenter
            text: "One more question"
            type: Tokens.heading
            theme: view.theme
            Accessible.role: Accessible.Heading
        }
        Label {
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.Wrap
            text: "Quellora takes a picture of your screen when you press Capture, and at no other "
                  + "time. Your desktop will now ask whether it may."
            type: TypeTokens {
                designSize: 14
                designLine: 20
                scale: Tokens.textScale
            }
            theme: view.theme
        }
        Item {
            width: parent.width
            height: proceed.height

            FilledBarButton {
                id: proceed
                width: parent.width
                height: 40 + Tokens.growth(20)
                visible: !view.asked
                text: "Continue"
                weight: Font.DemiBold
                onClicked: view.viewModel.pictureQuestionConfirmed()
            }
            Spinner {
                anchors.centerIn: parent
                visible: view.asked
                size: 20
                theme: view.theme
                name: "Waiting for your desktop"
            }
        }
        LinkButton {
            anchors.horizontalCenter: parent.horizontalCenter
            text: "Not now"
            role: Accessible.Button
            theme: view.theme
            onClicked: view.viewModel.pictureQuestionPostponed()
        }
    }
}
