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

    /// Factor by which the desktop enlarges or reduces text.
    property real textScale: 1

    /// Scales a length in logical pixels that depends on the width of text; never reduces it.
    function grown(pixels) {
        return Math.round(pixels * Math.max(1, tokens.textScale))
    }
    /// The room that a line of @p line logical pixels needs in addition, for the height of controls. 0
    /// for reduced text, whose controls keep their height.
    function growth(line) {
        return tokens.grown(line) - line
    }

    readonly property string family: "Inter"
    readonly property string monoFamily: "JetBrains Mono"
    readonly property TypeTokens caption: TypeTokens {
        scale: tokens.textScale
        designSize: 11
        designLine: 16
    }
    readonly property TypeTokens control: TypeTokens {
        scale: tokens.textScale
        designSize: 12
        designLine: 16
        weight: Font.Medium
    }
    readonly property TypeTokens label: TypeTokens {
        scale: tokens.textScale
        designSize: 12
        designLine: 16
    }
    readonly property TypeTokens hint: TypeTokens {
        scale: tokens.textScale
        designSize: 12
        designLine: 18
    }
    readonly property TypeTokens body: TypeTokens {
        scale: tokens.textScale
        designSize: 13
        designLine: 20
    }
    readonly property TypeTokens section: TypeTokens {
        scale: tokens.textScale
        designSize: 13
        designLine: 20
        weight: Font.DemiBold
    }
    readonly property TypeTokens title: TypeTokens {
        scale: tokens.textScale
        designSize: 15
        designLine: 20
        weight: Font.DemiBold
    }
    readonly property TypeTokens heading: TypeTokens {
        scale: tokens.textScale
        designSize: 26
        designLine: 32
        weight: Font.DemiBold
        designSpacing: -0.26
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
