import QtQuick
import Quellora.Ui

/// The multicoloured "G" logo of the Google sign-in button.
Icon {
    source: "qrc:/quellora/login/google-mark.svg"
    size: 18
    Accessible.ignored: true
}
