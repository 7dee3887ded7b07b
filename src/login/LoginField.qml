import QtQuick
import Quellora.Ui

/// A text field of the sign-in form, 340 × 40 pixels; dimmed and read-only while signing in.
TextField {
    id: field

    property bool busy: false

    width: 340
    height: 40
    leftPadding: 12
    rightPadding: 12
    radius: 8
    theme: Tokens.login
    type: TypeTokens { size: 14; line: 20 }
    readOnly: busy
    opacity: busy ? 0.55 : 1
}
