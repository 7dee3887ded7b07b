#pragma once

#include <QByteArray>
#include <QString>

#include <tl/expected.hpp>

namespace quellora {

/// The file that keeps what a program writes to its standard output when nobody else does:
/// `Library/Logs/Vantiro/pipeline.log` in the user's home. Folder and file are the user's alone,
/// whatever their modes were before. Whoever holds one holds the folder's lock; only the first to
/// open it puts a file that has grown large aside, as `pipeline.log.1`.
class LogFile
{
public:
    static constexpr qint64 largest = 10 * 1024 * 1024;

    /// Opens the file for appending and makes what is missing; the error says why there is none.
    /// Links in the place of the file or its folder are not followed. Waits for another start that
    /// is putting the file aside.
    /// @param home absolute path of the user's home
    /// @param largestKept size in bytes above which the file is put aside
    static tl::expected<LogFile, QString> open(const QByteArray &home,
                                               qint64 largestKept = largest);

    LogFile(LogFile &&other) noexcept;
    LogFile &operator=(LogFile &&) = delete;
    ~LogFile();

    /// Makes @p descriptor (a standard output) write to the file, for as long as the process runs;
    /// the lock is held as long.
    /// @return why it does not; empty on success
    QString takeOver(int descriptor);

    /// Whether what is written to @p descriptor is lost: it is closed or the null device.
    static bool isLost(int descriptor);
    /// Keeps what is written to @p descriptor in the user's file from now on, if it is lost.
    /// @param home absolute path of the user's home
    /// @return why it stays lost; empty when it is kept, here or by whoever started the program
    static QString keepLostOutput(int descriptor, const QByteArray &home);

private:
    LogFile(int folder, int file) : m_folder(folder), m_file(file) {}

    int m_folder;
    int m_file;
};

} // namespace quellora
