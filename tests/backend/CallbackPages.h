#pragma once

namespace quellora {

/// The exact pages that the browser must receive.
inline constexpr auto successPage =
    "<!DOCTYPE html>\n"
    "<html>\n"
    "<head>\n"
    "  <title>Vantiro — Signed In</title>\n"
    "  <style>\n"
    "    body { font-family: system-ui; background: #131313; color: #f0f0f0;\n"
    "           display: flex; align-items: center; justify-content: center;\n"
    "           height: 100vh; margin: 0; text-align: center; }\n"
    "    h1 { font-size: 24px; font-weight: 500; margin-bottom: 12px; }\n"
    "    p { color: #888; font-size: 14px; }\n"
    "    .check { font-size: 48px; margin-bottom: 20px; }\n"
    "  </style>\n"
    "</head>\n"
    "<body>\n"
    "  <div>\n"
    "    <div class=\"check\">&#10003;</div>\n"
    "    <h1>You're signed in</h1>\n"
    "    <p>You can close this browser tab and return to Vantiro.</p>\n"
    "  </div>\n"
    "</body>\n"
    "</html>";

inline constexpr auto failurePage =
    "<!DOCTYPE html>\n"
    "<html>\n"
    "<head>\n"
    "  <title>Vantiro — Sign-in Failed</title>\n"
    "  <style>\n"
    "    body { font-family: system-ui; background: #131313; color: #f0f0f0;\n"
    "           display: flex; align-items: center; justify-content: center;\n"
    "           height: 100vh; margin: 0; text-align: center; }\n"
    "    h1 { font-size: 24px; font-weight: 500; margin-bottom: 12px; }\n"
    "    p { color: #888; font-size: 14px; }\n"
    "    .x { font-size: 48px; margin-bottom: 20px; }\n"
    "  </style>\n"
    "</head>\n"
    "<body>\n"
    "  <div>\n"
    "    <div class=\"x\">✕</div>\n"
    "    <h1>Sign-in failed</h1>\n"
    "    <p>You can close this tab and try again in Vantiro.</p>\n"
    "  </div>\n"
    "</body>\n"
    "</html>";

} // namespace quellora
