import QtQuick
import Quellora.Ui

/// The multicoloured "G" mark of the browser sign-in button, drawn from shapes.
Icon {
    source: "qrc:/quellora/login/google-mark.svg"
    size: 18
    Accessible.ignored: true
}
