import QtQuick
import Quellora.Ui

/// A text field of the sign-in form, 340 × 40 pixels, more with larger text;
/// dimmed and read-only while signing in.
TextField {
    id: field

    property bool busy: false

    width: Tokens.grown(340)
    height: 40 + Tokens.growth(20)
    leftPadding: 12
    rightPadding: 12
    radius: 8
    theme: Tokens.login
    type: TypeTokens {
        scale: Tokens.textScale
        designSize: 14
        designLine: 20
    }
    readOnly: busy
    opacity: busy ? 0.55 : 1
}
