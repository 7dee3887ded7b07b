#include "store/PrivateFile.h"

#include "base/Secrets.h"
#include "store/Database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace quellora::server {

PrivateFile::PrivateFile(std::filesystem::path file) : m_file(std::move(file))
{
    initializeCrypto();
    std::error_code ignored;
    if (std::filesystem::exists(m_file, ignored))
        throw DatabaseError("there is already a file " + m_file.string());
    m_fresh = m_file.string() + "." + randomUuid() + ".new";
    m_descriptor = ::open(m_fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                          S_IRUSR | S_IWUSR);
    if (m_descriptor < 0)
        fail();
    // The process's mask may take away even the owner's rights.
    ::fchmod(m_descriptor, S_IRUSR | S_IWUSR);
}

PrivateFile::~PrivateFile()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    if (!m_isFinished)
        ::unlink(m_fresh.c_str());
}

void PrivateFile::fail() const
{
    throw DatabaseError("cannot write " + m_file.string() + ": " + std::strerror(errno));
}

void PrivateFile::write(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(m_descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            fail();
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void PrivateFile::finish()
{
    // A link, unlike renaming, does not replace a file that has appeared meanwhile.
    if (::fsync(m_descriptor) != 0 || ::link(m_fresh.c_str(), m_file.c_str()) != 0)
        fail();
    ::unlink(m_fresh.c_str());
    m_isFinished = true;
}

} // namespace quellora::server
