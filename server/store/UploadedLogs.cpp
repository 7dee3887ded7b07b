#include "store/UploadedLogs.h"

#include "base/Log.h"
#include "base/Secrets.h"
#include "base/Text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace quellora::server {
namespace {

bool writeAll(int descriptor, const std::string &text)
{
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t step = ::write(descriptor, text.data() + written, text.size() - written);
        if (step < 0 && errno == EINTR)
            continue;
        if (step <= 0)
            return false;
        written += static_cast<std::size_t>(step);
    }
    return true;
}

} // namespace

UploadedLogs::UploadedLogs(std::filesystem::path directory, const Clock &clock, int keptPerAccount)
    : m_directory(std::move(directory)), m_clock(clock), m_keptPerAccount(keptPerAccount)
{}

bool UploadedLogs::store(std::int64_t accountId, const std::string &text)
{
    std::error_code error;
    if (std::filesystem::create_directories(m_directory, error))
        ::chmod(m_directory.c_str(), S_IRWXU);
    std::string stamp = isoTime(m_clock.now());
    std::replace(stamp.begin(), stamp.end(), ':', '-');
    const std::string prefix = "account-" + std::to_string(accountId) + "-";
    // The random suffix distinguishes uploads of the same second.
    const std::filesystem::path file =
        m_directory / (prefix + stamp + "-" + randomUuid().substr(0, 8) + ".log");
    const int descriptor =
        ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    bool stored = descriptor >= 0 && writeAll(descriptor, text);
    const int problem = errno;
    if (descriptor >= 0)
        stored = ::close(descriptor) == 0 && stored;
    if (!stored) {
        Log::event("[UploadedLogs] ERROR: could not store an uploaded log: " +
                   std::string(std::strerror(problem)));
        std::filesystem::remove(file, error);
        return false;
    }
    dropOldest(prefix);
    return true;
}

void UploadedLogs::dropOldest(const std::string &prefix)
{
    std::error_code error;
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(m_directory, error)) {
        if (entry.path().filename().string().rfind(prefix, 0) == 0)
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    const auto kept = static_cast<std::size_t>(m_keptPerAccount);
    for (std::size_t i = 0; i + kept < files.size(); ++i)
        std::filesystem::remove(files[i], error);
}

} // namespace quellora::server
