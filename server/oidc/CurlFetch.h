#pragma once

#include "oidc/OidcProvider.h"

namespace quellora::server {

/// Downloads over the network: at most 1 MiB within ten seconds, certificates checked, no
/// redirects, https or http only.
OidcFetch curlFetch();

} // namespace quellora::server
