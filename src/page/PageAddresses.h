#pragma once

#include <QByteArrayView>

namespace quellora::pageaddress {

/// Addresses that the pages refer to. The app never connects to one of them: every request is
/// answered from the bundled assets.
inline constexpr QByteArrayView markedScript =
    "https://cdn.jsdelivr.net/npm/marked/lib/marked.umd.js";
inline constexpr QByteArrayView highlightScript =
    "https://cdn.jsdelivr.net/gh/highlightjs/cdn-release@11.12.0/build/highlight.min.js";
inline constexpr QByteArrayView lightCodeStyle =
    "https://cdn.jsdelivr.net/gh/highlightjs/cdn-release@11.12.0/build/styles/github.min.css";
inline constexpr QByteArrayView darkCodeStyle =
    "https://cdn.jsdelivr.net/gh/highlightjs/cdn-release@11.12.0/build/styles/github-dark.min.css";

/// Where pages and their pictures come from.
inline constexpr QByteArrayView pages = "quellora-page:";
/// The typesetter of formulas, which a page loads with the first one; named in scripts/math.js too.
inline constexpr QByteArrayView mathScript = "quellora-asset://page/math.js";
/// The pages' own script, and the origin that serves all bundled assets.
inline constexpr QByteArrayView pageScript = "quellora-asset://page/page.js";
inline constexpr QByteArrayView assets = "quellora-asset://page";

} // namespace quellora::pageaddress
