pragma Singleton
import QtQuick

/// Design tokens: colours, sizes in logical pixels, text styles and durations in milliseconds.
QtObject {
    id: tokens

    readonly property FrameTokens frame: FrameTokens {}
    readonly property SheetTokens sheetDark: SheetTokens { dark: true }
    readonly property SheetTokens sheetLight: SheetTokens { dark: false }
    readonly property LoginTokens login: LoginTokens {}

    /// Blends @p color over @p base with @p opacity; the result is opaque.
    function blend(base, color, opacity) {
        return Qt.rgba(base.r + (color.r - base.r) * opacity,
                       base.g + (color.g - base.g) * opacity,
                       base.b + (color.b - base.b) * opacity, 1)
    }
    /// Multiplies the alpha of @p color by @p opacity.
    function faded(color, opacity) {
        return Qt.rgba(color.r, color.g, color.b, color.a * opacity)
    }
    /// Rounds an opacity to multiples of 1/255. Near the end of a fade, an unrounded value so close to 1
    /// that the software renderer ignores the last change would leave the item translucent.
    function opacityStep(opacity) {
        return Math.round(opacity * 255) / 255
    }
    function sheet(dark) {
        return dark ? tokens.sheetDark : tokens.sheetLight
    }

    readonly property string family: "Inter"
    readonly property string monoFamily: "JetBrains Mono"
    readonly property TypeTokens caption: TypeTokens { size: 11; line: 16 }
    readonly property TypeTokens control: TypeTokens { size: 12; line: 16; weight: Font.Medium }
    readonly property TypeTokens label: TypeTokens { size: 12; line: 16 }
    readonly property TypeTokens hint: TypeTokens { size: 12; line: 18 }
    readonly property TypeTokens body: TypeTokens { size: 13; line: 20 }
    readonly property TypeTokens section: TypeTokens { size: 13; line: 20; weight: Font.DemiBold }
    readonly property TypeTokens title: TypeTokens { size: 15; line: 20; weight: Font.DemiBold }
    readonly property TypeTokens heading: TypeTokens {
        size: 26
        line: 32
        weight: Font.DemiBold
        spacing: -0.26
    }

    readonly property int space1: 4
    readonly property int space2: 8
    readonly property int space3: 12
    readonly property int space4: 16
    readonly property int space5: 20
    readonly property int space6: 24

    readonly property int radiusKbd: 4
    readonly property int radiusControl: 6
    readonly property int radiusCard: 8
    readonly property int radiusMenu: 10
    readonly property int radiusWindow: 12

    readonly property int iconSize: 16
    readonly property real iconStroke: 1.75
    readonly property real disabledOpacity: 0.45

    readonly property int ringWidth: 2
    readonly property int ringOffset: 2

    /// The system's reduced-motion preference: disables slides and pulses and shortens fades.
    property bool reducedMotion: false
    readonly property int hoverTime: reducedMotion ? 80 : 100
    readonly property int menuTime: reducedMotion ? 80 : 160
    readonly property int sheetTime: reducedMotion ? 80 : 200
    readonly property int scrimTime: reducedMotion ? 80 : 160
    readonly property int spinTime: 900
    readonly property int pulseTime: 1100
    readonly property int tooltipDelay: 500
    readonly property int copiedTime: 1500
    /// Easing of menus, cards and lists, for easing.bezierCurve.
    readonly property var standardCurve: [0.2, 0, 0, 1, 1, 1]
    readonly property int menuShift: reducedMotion ? 0 : 4
    readonly property int sheetShift: reducedMotion ? 0 : 24
}
