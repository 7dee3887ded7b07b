import QtQuick
import Quellora.Panels
import Quellora.Ui

/// A thin scroll indicator for a Flickable; hidden if all content fits.
Rectangle {
    id: mark

    required property Flickable flickable

    visible: flickable.contentHeight > flickable.height + 0.5
    width: 3
    radius: 1.5
    color: Tokens.frame.track
    height: Math.max(12, flickable.height * flickable.visibleArea.heightRatio)
    y: flickable.contentHeight > flickable.height
       ? (flickable.height - height) * flickable.contentY
         / (flickable.contentHeight - flickable.height) : 0
    Accessible.ignored: true
}
