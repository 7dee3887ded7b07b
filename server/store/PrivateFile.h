#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace quellora::server {

/// A new file that its owner alone may read (mode 0600). It appears under its name when finish() is
/// called; without that nothing is left. Throws a DatabaseError, also when the name is taken.
class PrivateFile
{
public:
    explicit PrivateFile(std::filesystem::path file);
    ~PrivateFile();
    PrivateFile(const PrivateFile &) = delete;
    PrivateFile &operator=(const PrivateFile &) = delete;

    void write(std::string_view bytes);
    void finish();

private:
    [[noreturn]] void fail() const;

    std::filesystem::path m_file;
    std::string m_fresh;
    int m_descriptor = -1;
    bool m_isFinished = false;
};

} // namespace quellora::server
