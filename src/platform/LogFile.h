#pragma once

#include <QByteArray>
#include <QString>

#include <tl/expected.hpp>

namespace quellora {

/// The log file `Library/Logs/Vantiro/pipeline.log` in the user's home, for standard output that no
/// parent process captures. The folder has mode 0700 and the file 0600; wider modes are corrected.
/// Each open LogFile holds a shared lock on the folder, and only the first one rotates a large file
/// to `pipeline.log.1`.
class LogFile
{
public:
    static constexpr qint64 largest = 10 * 1024 * 1024;

    /// Opens the file for appending and creates it and its folder if missing. Does not follow
    /// symbolic links. Blocks while another process rotates the file.
    /// @param home absolute path of the user's home
    /// @param largestKept size in bytes above which the file is rotated
    /// @return the file, or the reason it could not be opened
    static tl::expected<LogFile, QString> open(const QByteArray &home,
                                               qint64 largestKept = largest);

    LogFile(LogFile &&other) noexcept;
    LogFile &operator=(LogFile &&) = delete;
    ~LogFile();

    /// Redirects @p descriptor (a standard output) to the file and holds the folder's lock until
    /// the process ends.
    /// @return the error; empty on success
    QString redirect(int descriptor);

    /// Whether output written to @p descriptor is discarded: it is closed or the null device.
    static bool isDiscarded(int descriptor);
    /// Redirects @p descriptor to the log file unless the parent process already captured it.
    /// @param home absolute path of the user's home
    /// @return the error; empty on success or if nothing had to be done
    static QString redirectIfDiscarded(int descriptor, const QByteArray &home);

private:
    LogFile(int folder, int file) : m_folder(folder), m_file(file) {}

    int m_folder;
    int m_file;
};

} // namespace quellora
