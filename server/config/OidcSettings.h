#pragma once

#include <string>
#include <vector>

namespace quellora::server {

/// The team's own sign-in provider (OpenID Connect). Off while `issuer` is empty.
struct OidcSettings
{
    /// Exactly as the provider names itself.
    std::string issuer;
    std::string clientId;
    /// Empty for a client without secret.
    std::string clientSecret;
    /// People with a verified address of these domains may sign in without an invitation.
    std::vector<std::string> allowedDomains;
    /// What the button on the sign-in page says after "Sign in with".
    std::string name = "your team";

    bool isOn() const { return !issuer.empty(); }
};

/// Whether secrets may be sent to @p url: https, or http to this machine.
bool isTrustworthyUrl(const std::string &url);

} // namespace quellora::server
