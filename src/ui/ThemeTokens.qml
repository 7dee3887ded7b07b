import QtQuick

/// Colours of controls on one kind of surface. Assigned to the `theme` property of controls:
/// Tokens.frame, Tokens.sheetDark, Tokens.sheetLight or Tokens.login.
QtObject {
    property color background
    /// Opaque variant of `background`, blended into dimmed controls.
    property color surface: background
    property color raised
    property color input
    property color line
    property color outline
    property color text
    property color dimText
    property color icon
    property color placeholder
    property color hover
    property color pressed
    /// Fill of secondary buttons in the normal, hovered and pressed state, and their outline.
    property color secondary
    property color secondaryHover
    property color secondaryPressed
    property color secondaryOutline
    property color secondaryOutlineHover
    property color secondaryOutlinePressed
    /// Marks and slider fills; `accentText` is for text, carets, spinners and active icons.
    property color accent
    property color accentText
    property color accentFill
    property color accentFillHover
    property color accentFillPressed
    property color textOnAccent: "#ffffff"
    property color dangerText
    property color dangerBar: "#e53935"
    property color dangerFill: "#c62828"
    property color dangerFillHover: "#d13434"
    property color dangerFillPressed: "#a82121"
    property color warnText
    property color ring
    /// Outline of a focused field.
    property color fieldFocus
    property color selection
    property color switchOff
    property color switchOffOutline
    property color switchOn
    property color switchOnOutline
    property color knob: "#f2f3f5"
    property color disabledGlyph: "#7f8595"
    property color track
}
