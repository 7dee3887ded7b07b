#pragma once

#include "connect/LocalServers.h"
#include "connect/ModelSetup.h"

#include <string>
#include <vector>

namespace quellora::server {

/// What the owner sees on the account page.
struct AccountView
{
    /// Single-use token for the page's forms.
    std::string nonce;
    /// What has just been done; empty when nothing.
    std::string notice;
    /// What is wrong with the last submission or the stored connections; empty when nothing.
    std::string problem;
    /// The submission to correct.
    std::string enteredChoice;
    std::string enteredAddress;
    /// Whether connected models are ignored because the server runs offline on purpose.
    bool isOffline = false;
    std::vector<ModelSettings> configured;
    std::vector<Connection> connections;
    std::vector<ConnectChoice> choices;
    std::vector<LocalServer> local;
};

/// The page for the owner.
std::string accountBody(const AccountView &view);
/// The page for everybody else.
std::string foreignAccountBody();
/// The page of the connection being set up.
std::string setupBody(const SetupView &view);
/// "this machine" or the host.
std::string placeName(const std::string &host);

} // namespace quellora::server
