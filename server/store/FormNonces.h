#pragma once

#include "base/Clock.h"
#include "store/Database.h"

#include <mutex>
#include <string>

namespace quellora::server {

/// Single-use tokens that prove that a form was served by this service, by whichever instance.
/// Thread-safe. Each is valid for ten minutes.
///
/// Issued tokens are signed and stored nowhere, so that nobody makes those of others invalid by
/// opening many pages. Used ones are stored; of more than a few thousand only the newest.
class FormNonces
{
public:
    /// @p scope tells forms apart: a token serves those of its scope only.
    FormNonces(Database &database, const Clock &clock, std::string scope)
        : m_database(database), m_clock(clock), m_scope(std::move(scope))
    {}

    std::string issue();
    /// Invalidates @p nonce; false when it is unknown, used or expired.
    bool consume(const std::string &nonce);

private:
    static constexpr std::int64_t most = 4096;

    /// What all instances sign with.
    std::string key();
    std::string signature(const std::string &content);

    Database &m_database;
    const Clock &m_clock;
    std::string m_scope;
    std::mutex m_mutex;
    std::string m_key;
};

} // namespace quellora::server
