#pragma once

#include <QDir>
#include <QJsonValue>
#include <QMap>
#include <QString>

#include <optional>

namespace quellora {

class UserDefaults;

/// The seven bindable actions in their fixed order (registration, hot-key ids, settings list).
enum class HotkeyAction {
    Capture,
    Clear,
    Toggle,
    OpacityUp,
    OpacityDown,
    CaptureNoSend,
    NewThread,
};

/// The parsed `config.json`: hotkeys and the panel's initial geometry. Loaded once at launch and
/// never written.
struct VantiroConfig
{
    using HotkeyAction = quellora::HotkeyAction;

    /// One combo string per action, e.g. "ctrl+alt+cmd+c". The grammar lives in hotkeys/.
    struct Hotkeys
    {
        QString capture = QStringLiteral("ctrl+alt+cmd+c");
        QString clear = QStringLiteral("ctrl+alt+cmd+x");
        QString toggle = QStringLiteral("ctrl+alt+cmd+t");
        QString opacityUp = QStringLiteral("ctrl+alt+cmd+]");
        QString opacityDown = QStringLiteral("ctrl+alt+cmd+[");
        QString captureNoSend = QStringLiteral("ctrl+alt+cmd+shift+c");
        QString newThread = QStringLiteral("cmd+n");

        bool operator==(const Hotkeys &) const = default;
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
    static VantiroConfig load();
    /// Overload for a given folder; without one, returns the built-in defaults.
    static VantiroConfig load(const std::optional<QDir> &folder);
    /// Decodes the file's content; on failure returns nothing and sets @p error.
    static std::optional<VantiroConfig> decode(const QByteArray &json, QString *error);
};

} // namespace quellora
