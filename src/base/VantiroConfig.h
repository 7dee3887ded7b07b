#pragma once

#include <QDir>
#include <QList>
#include <QMap>
#include <QString>

#include <optional>

namespace quellora {

/// The parsed `config.json`: hotkeys and the panel's initial geometry. Loaded once at launch and
/// never written.
struct VantiroConfig
{
    /// Combos as written, e.g. "ctrl+alt+cmd+c", by the action's key. The grammar lives in
    /// hotkeys/.
    using Hotkeys = QMap<QString, QString>;

    /// A key that the section "hotkeys" may have.
    struct HotkeyKey
    {
        const char *name;
        /// Whether a file without the key is refused.
        bool isRequired;
    };

    /// Initial panel geometry in points and opacity from 0 to 1.
    struct Overlay
    {
        double x = 40;
        double y = 80;
        double width = 624;
        double height = 744;
        double defaultOpacity = 0.88;

        bool operator==(const Overlay &) const = default;
    };

    Hotkeys hotkeys;
    Overlay overlay;

    bool operator==(const VantiroConfig &) const = default;

    /// Finds and reads `config.json`. On any error returns the built-in defaults.
    /// @param hotkeyKeys the keys to read from the section "hotkeys"; others are ignored
    static VantiroConfig load(const QList<HotkeyKey> &hotkeyKeys);
    /// Overload for a given folder; without one, returns the built-in defaults.
    static VantiroConfig load(const std::optional<QDir> &folder,
                              const QList<HotkeyKey> &hotkeyKeys);
    /// Decodes the file's content; on failure returns nothing and sets @p error.
    static std::optional<VantiroConfig> decode(const QByteArray &json,
                                               const QList<HotkeyKey> &hotkeyKeys, QString *error);
};

} // namespace quellora
