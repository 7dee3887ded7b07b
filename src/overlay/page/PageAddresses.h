#pragma once

#include <QByteArrayView>

namespace quellora::pageaddress {

/// Addresses that the pages name. They are part of the page text only: the app never connects to
/// them, every request for one is answered from the bundled assets.
inline constexpr QByteArrayView markedScript =
    "https://cdn.jsdelivr.net/npm/marked/lib/marked.umd.js";
inline constexpr QByteArrayView highlightScript =
    "https://cdn.jsdelivr.net/gh/highlightjs/cdn-release@11.9.0/build/highlight.min.js";
inline constexpr QByteArrayView lightCodeStyle =
    "https://cdn.jsdelivr.net/gh/highlightjs/cdn-release@11.9.0/build/styles/github.min.css";
inline constexpr QByteArrayView darkCodeStyle =
    "https://cdn.jsdelivr.net/gh/highlightjs/cdn-release@11.9.0/build/styles/github-dark.min.css";

} // namespace quellora::pageaddress
