// The functions below replace the C library's in this program and, because the program's symbols
// come first, in the libraries that it has loaded.
#include "support/FaultyDisk.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quellora {

namespace fs = std::filesystem;

namespace {

template <class Function>
Function *original(const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

std::string contentOf(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string folderOf(const std::string &path)
{
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

/// A change that was carried out.
struct Step
{
    enum class Kind {
        Create,
        Write,
        Truncate,
        Sync,
        SyncFolder,
        Rename,
        Link,
        Remove,
        MakeFolder,
        RemoveFolder,
    };

    Kind kind = Kind::Write;
    /// Relative to the folder.
    std::string path = {};
    /// New path, for Rename and Link.
    std::string target = {};
    /// Number of the file's content, for Create, Write, Truncate and Sync.
    int node = -1;
    std::size_t offset = 0;
    /// Bytes, for Write.
    std::string data = {};

    bool changesNames() const
    {
        return kind != Kind::Write && kind != Kind::Truncate && kind != Kind::Sync &&
               kind != Kind::SyncFolder;
    }
    bool concerns(const std::string &folder) const
    {
        return folderOf(path) == folder || (!target.empty() && folderOf(target) == folder);
    }
};

/// Names as a folder keeps them: what they stand for is kept apart.
struct Names
{
    std::map<std::string, int> files;
    std::set<std::string> folders;

    void apply(const Step &step)
    {
        switch (step.kind) {
        case Step::Kind::Create:
            files[step.path] = step.node;
            break;
        case Step::Kind::Rename:
            if (const auto file = files.find(step.path); file != files.end()) {
                files[step.target] = file->second;
                files.erase(step.path);
            } else {
                move(step.path, step.target);
            }
            break;
        case Step::Kind::Link:
            if (const auto file = files.find(step.path); file != files.end())
                files[step.target] = file->second;
            break;
        case Step::Kind::Remove:
            files.erase(step.path);
            break;
        case Step::Kind::MakeFolder:
            folders.insert(step.path);
            break;
        case Step::Kind::RemoveFolder:
            folders.erase(step.path);
            break;
        case Step::Kind::Write:
        case Step::Kind::Truncate:
        case Step::Kind::Sync:
        case Step::Kind::SyncFolder:
            break;
        }
    }

private:
    /// Renames a folder and with it what is below.
    void move(const std::string &from, const std::string &to)
    {
        const auto moved = [&](const std::string &path) {
            return path == from || path.starts_with(from + '/') ? to + path.substr(from.size())
                                                                : path;
        };
        std::map<std::string, int> movedFiles;
        for (const auto &[path, node] : files)
            movedFiles[moved(path)] = node;
        std::set<std::string> movedFolders;
        for (const std::string &path : folders)
            movedFolders.insert(moved(path));
        files = std::move(movedFiles);
        folders = std::move(movedFolders);
    }
};

int errorOf(FaultyDisk::Fault fault)
{
    switch (fault) {
    case FaultyDisk::Fault::NoSpace:
        return ENOSPC;
    case FaultyDisk::Fault::InputOutput:
        return EIO;
    case FaultyDisk::Fault::Interrupted:
        return EINTR;
    case FaultyDisk::Fault::ReadOnly:
        return EROFS;
    case FaultyDisk::Fault::ShortWrite:
        break;
    }
    return 0;
}

} // namespace

DiskImage DiskImage::of(const std::string &folder)
{
    DiskImage image;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        const std::string path = fs::relative(entry.path(), folder).string();
        if (entry.is_directory() && !entry.is_symlink())
            image.folders.insert(path);
        else
            image.files[path] = contentOf(entry.path());
    }
    return image;
}

void DiskImage::writeTo(const std::string &folder) const
{
    for (const auto &entry : fs::directory_iterator(folder))
        fs::remove_all(entry.path());
    // What was in a folder that is lost is lost as well. Folders come before what they contain.
    for (const std::string &path : folders) {
        const fs::path place = fs::path(folder) / path;
        if (fs::is_directory(place.parent_path()))
            fs::create_directory(place);
    }
    for (const auto &[path, content] : files) {
        const fs::path place = fs::path(folder) / path;
        if (fs::is_directory(place.parent_path()))
            std::ofstream(place, std::ios::binary) << content;
    }
}

/// What the replaced functions talk to.
class FaultyDisk::Calls
{
public:
    explicit Calls(std::string folder) : m_folder(std::move(folder) + '/')
    {
        const DiskImage image = DiskImage::of(m_folder);
        m_start.folders = image.folders;
        for (const auto &[path, content] : image.files) {
            m_start.files[path] = int(m_contents.size());
            m_contents.push_back(content);
        }
        m_names = m_start;
    }

    /// The path below the folder; nullopt for others.
    std::optional<std::string> inside(int directory, const char *path) const
    {
        std::string whole = path;
        if (path[0] != '/') {
            const auto opened = m_open.find(directory);
            if (opened == m_open.end() || !opened->second.isFolder)
                return std::nullopt;
            whole = m_folder + opened->second.path + '/' + path;
        }
        if (whole + '/' == m_folder)
            return std::string();
        if (!whole.starts_with(m_folder))
            return std::nullopt;
        std::string relative = whole.substr(m_folder.size());
        while (relative.ends_with('/'))
            relative.pop_back();
        return relative;
    }

    struct Opened
    {
        std::string path;
        int node = -1;
        bool isFolder = false;
    };
    Opened *opened(int descriptor)
    {
        const auto found = m_open.find(descriptor);
        return found == m_open.end() ? nullptr : &found->second;
    }
    void open(int descriptor, const std::string &path, bool isFolder, bool isTruncated)
    {
        const auto known = m_names.files.find(path);
        int node = known == m_names.files.end() ? -1 : known->second;
        if (!isFolder && node < 0) {
            node = newNode();
            add({.kind = Step::Kind::Create, .path = path, .node = node});
        } else if (!isFolder && isTruncated) {
            add({.kind = Step::Kind::Truncate, .node = node});
        }
        m_open[descriptor] = {path, node, isFolder};
    }
    /// Remembers a file without a name.
    void openNameless(int descriptor) { m_open[descriptor] = {{}, newNode(), false}; }
    void close(int descriptor) { m_open.erase(descriptor); }

    /// Counts a call. @return whether it has to fail, with errno set
    bool fails()
    {
        if (!m_fault || m_callsToSucceed-- > 0)
            return false;
        const int error = errorOf(*m_fault);
        m_hasFailed = true;
        if (!m_isLasting)
            m_fault.reset();
        errno = error;
        return error != 0;
    }
    /// As fails(), for a write of @p size bytes, which a short write makes fewer.
    bool writeFails(std::size_t &size)
    {
        const bool isShort = m_fault == Fault::ShortWrite && m_callsToSucceed <= 0;
        if (fails())
            return true;
        if (isShort && size > 1)
            size /= 2;
        return false;
    }
    void add(Step step)
    {
        if (step.changesNames())
            m_names.apply(step);
        m_steps.push_back(std::move(step));
    }
    const std::string *pathOfNode(int node) const
    {
        for (const auto &[path, each] : m_names.files) {
            if (each == node)
                return &path;
        }
        return nullptr;
    }

    static std::atomic<Calls *> active;

private:
    friend class FaultyDisk;

    int newNode()
    {
        m_contents.emplace_back();
        return int(m_contents.size()) - 1;
    }

    std::string m_folder;
    /// Before the first step. Nodes from before have their content, others none.
    Names m_start;
    std::vector<std::string> m_contents;
    Names m_names;
    std::map<int, Opened> m_open;
    std::vector<Step> m_steps;
    std::optional<Fault> m_fault;
    int m_callsToSucceed = 0;
    bool m_isLasting = false;
    bool m_hasFailed = false;
};

std::atomic<FaultyDisk::Calls *> FaultyDisk::Calls::active{nullptr};

FaultyDisk::FaultyDisk(std::string folder) : m_calls(std::make_unique<Calls>(std::move(folder)))
{
    Calls *none = nullptr;
    if (!Calls::active.compare_exchange_strong(none, m_calls.get()))
        std::abort();
}

FaultyDisk::~FaultyDisk()
{
    Calls::active = nullptr;
}

void FaultyDisk::fail(Fault fault, int callsToSucceed, bool isLasting)
{
    m_calls->m_fault = fault;
    m_calls->m_callsToSucceed = callsToSucceed;
    m_calls->m_isLasting = isLasting;
    m_calls->m_hasFailed = false;
}

bool FaultyDisk::repair()
{
    m_calls->m_fault.reset();
    return std::exchange(m_calls->m_hasFailed, false);
}

std::size_t FaultyDisk::position() const
{
    return m_calls->m_steps.size();
}

std::vector<DiskImage> FaultyDisk::afterPowerCut(std::size_t position) const
{
    Names durable = m_calls->m_start;
    std::vector<const Step *> pending;
    std::vector<std::string> written = m_calls->m_contents;
    std::vector<std::string> synced = m_calls->m_contents;
    for (std::size_t i = 0; i < position; ++i) {
        const Step &step = m_calls->m_steps[i];
        if (step.changesNames())
            pending.push_back(&step);
        std::string *const content = step.node < 0 ? nullptr : &written[std::size_t(step.node)];
        switch (step.kind) {
        case Step::Kind::Write:
            if (content->size() < step.offset + step.data.size())
                content->resize(step.offset + step.data.size());
            content->replace(step.offset, step.data.size(), step.data);
            break;
        case Step::Kind::Truncate:
            content->resize(step.offset);
            break;
        case Step::Kind::Sync:
            synced[std::size_t(step.node)] = *content;
            break;
        case Step::Kind::SyncFolder:
            std::erase_if(pending, [&](const Step *each) {
                const bool isDone = each->concerns(step.path);
                if (isDone)
                    durable.apply(*each);
                return isDone;
            });
            break;
        default:
            break;
        }
    }
    std::vector<DiskImage> images;
    for (std::size_t count = 0; count <= pending.size(); ++count) {
        if (count > 0)
            durable.apply(*pending[count - 1]);
        for (const auto *contents : {&synced, &written}) {
            DiskImage image;
            image.folders = durable.folders;
            for (const auto &[path, node] : durable.files)
                image.files[path] = (*contents)[std::size_t(node)];
            images.push_back(std::move(image));
        }
    }
    return images;
}

} // namespace quellora

using Calls = quellora::FaultyDisk::Calls;
using quellora::Step;

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

constexpr int anyWriting = O_WRONLY | O_RDWR | O_CREAT | O_TRUNC;

template <class Open>
int openFile(int directory, const char *path, int flags, Open open)
{
    Calls *const calls = Calls::active;
    if (!calls)
        return open();
    const auto place = calls->inside(directory, path);
    if (!place)
        return open();
    const bool isNameless = (flags & O_TMPFILE) == O_TMPFILE;
    if ((flags & anyWriting || isNameless) && calls->fails())
        return -1;
    const int descriptor = open();
    if (descriptor < 0)
        return descriptor;
    struct stat info = {};
    const bool isFolder = ::fstat(descriptor, &info) == 0 && S_ISDIR(info.st_mode);
    if (isNameless)
        calls->openNameless(descriptor);
    else if (flags & anyWriting || isFolder)
        calls->open(descriptor, *place, isFolder, flags & O_TRUNC);
    return descriptor;
}

#define WITH_MODE(last)                                                                            \
    mode_t mode = 0;                                                                               \
    if (flags & (O_CREAT | O_TMPFILE)) {                                                           \
        va_list arguments;                                                                         \
        va_start(arguments, last);                                                                 \
        mode = va_arg(arguments, mode_t);                                                          \
        va_end(arguments);                                                                         \
    }

template <class Write>
ssize_t writeFile(int descriptor, const void *data, std::size_t size, std::size_t offset,
                  Write write)
{
    Calls *const calls = Calls::active;
    const auto *opened = calls ? calls->opened(descriptor) : nullptr;
    if (!opened)
        return write(size);
    if (calls->writeFails(size))
        return -1;
    const ssize_t written = write(size);
    if (written > 0) {
        calls->add({.kind = Step::Kind::Write,
                    .node = opened->node,
                    .offset = offset,
                    .data = {static_cast<const char *>(data), std::size_t(written)}});
    }
    return written;
}

template <class Sync>
int syncFile(int descriptor, Sync sync)
{
    Calls *const calls = Calls::active;
    const auto *opened = calls ? calls->opened(descriptor) : nullptr;
    if (opened && calls->fails())
        return -1;
    const int result = sync(descriptor);
    if (opened && result == 0) {
        if (opened->isFolder)
            calls->add({.kind = Step::Kind::SyncFolder, .path = opened->path});
        else
            calls->add({.kind = Step::Kind::Sync, .node = opened->node});
    }
    return result;
}

/// A call that changes the name @p path.
template <class Change>
int changeName(Step::Kind kind, int directory, const char *path, Change change)
{
    Calls *const calls = Calls::active;
    if (!calls)
        return change();
    const auto place = calls->inside(directory, path);
    if (place && calls->fails())
        return -1;
    const int result = change();
    if (place && result == 0)
        calls->add({.kind = kind, .path = *place});
    return result;
}

template <class Change>
int moveName(Step::Kind kind, int fromDirectory, const char *from, int toDirectory, const char *to,
             Change change)
{
    Calls *const calls = Calls::active;
    if (!calls)
        return change();
    const auto target = calls->inside(toDirectory, to);
    if (!target)
        return change();
    if (calls->fails())
        return -1;
    const int result = change();
    if (result != 0)
        return result;
    if (const auto source = calls->inside(fromDirectory, from)) {
        calls->add({.kind = kind, .path = *source, .target = *target});
    } else {
        // A nameless file gets its name by a link from its descriptor's entry in /proc.
        const std::string name = from;
        const int descriptor = std::stoi(name.substr(name.rfind('/') + 1));
        if (auto *const opened = calls->opened(descriptor)) {
            opened->path = *target;
            calls->add({.kind = Step::Kind::Create, .path = *target, .node = opened->node});
        }
    }
    return result;
}

int truncateFile(int descriptor, off_t size, int (*truncate)(int, off_t))
{
    Calls *const calls = Calls::active;
    const auto *opened = calls ? calls->opened(descriptor) : nullptr;
    if (opened && calls->fails())
        return -1;
    const int result = truncate(descriptor, size);
    if (opened && result == 0) {
        calls->add({.kind = Step::Kind::Truncate,
                    .node = opened->node,
                    .offset = static_cast<std::size_t>(size)});
    }
    return result;
}

} // namespace

EXPORTED int open(const char *path, int flags, ...)
{
    WITH_MODE(flags)
    static auto *const call = quellora::original<int(const char *, int, ...)>("open");
    return openFile(AT_FDCWD, path, flags, [&] { return call(path, flags, mode); });
}

EXPORTED int open64(const char *path, int flags, ...)
{
    WITH_MODE(flags)
    static auto *const call = quellora::original<int(const char *, int, ...)>("open64");
    return openFile(AT_FDCWD, path, flags, [&] { return call(path, flags, mode); });
}

EXPORTED int openat(int directory, const char *path, int flags, ...)
{
    WITH_MODE(flags)
    static auto *const call = quellora::original<int(int, const char *, int, ...)>("openat");
    return openFile(directory, path, flags, [&] { return call(directory, path, flags, mode); });
}

EXPORTED int openat64(int directory, const char *path, int flags, ...)
{
    WITH_MODE(flags)
    static auto *const call = quellora::original<int(int, const char *, int, ...)>("openat64");
    return openFile(directory, path, flags, [&] { return call(directory, path, flags, mode); });
}

EXPORTED int close(int descriptor)
{
    static auto *const call = quellora::original<int(int)>("close");
    Calls *const calls = Calls::active;
    if (!calls || !calls->opened(descriptor))
        return call(descriptor);
    const bool isFolder = calls->opened(descriptor)->isFolder;
    calls->close(descriptor);
    // The descriptor is gone, also if the call says that it failed.
    const int result = call(descriptor);
    return !isFolder && calls->fails() ? -1 : result;
}

EXPORTED ssize_t write(int descriptor, const void *data, std::size_t size)
{
    static auto *const call = quellora::original<ssize_t(int, const void *, std::size_t)>("write");
    const off_t at = Calls::active.load() ? ::lseek(descriptor, 0, SEEK_CUR) : 0;
    return writeFile(descriptor, data, size, at < 0 ? 0 : std::size_t(at),
                     [&](std::size_t count) { return call(descriptor, data, count); });
}

EXPORTED ssize_t pwrite(int descriptor, const void *data, std::size_t size, off_t offset)
{
    static auto *const call =
        quellora::original<ssize_t(int, const void *, std::size_t, off_t)>("pwrite");
    return writeFile(descriptor, data, size, std::size_t(offset),
                     [&](std::size_t count) { return call(descriptor, data, count, offset); });
}

EXPORTED ssize_t pwrite64(int descriptor, const void *data, std::size_t size, off64_t offset)
{
    static auto *const call =
        quellora::original<ssize_t(int, const void *, std::size_t, off64_t)>("pwrite64");
    return writeFile(descriptor, data, size, std::size_t(offset),
                     [&](std::size_t count) { return call(descriptor, data, count, offset); });
}

EXPORTED int ftruncate(int descriptor, off_t size) noexcept
{
    return truncateFile(descriptor, size, quellora::original<int(int, off_t)>("ftruncate"));
}

EXPORTED int ftruncate64(int descriptor, off64_t size) noexcept
{
    return truncateFile(descriptor, size, quellora::original<int(int, off_t)>("ftruncate64"));
}

EXPORTED int fsync(int descriptor)
{
    return syncFile(descriptor, quellora::original<int(int)>("fsync"));
}

EXPORTED int fdatasync(int descriptor)
{
    return syncFile(descriptor, quellora::original<int(int)>("fdatasync"));
}

EXPORTED int rename(const char *from, const char *to) noexcept
{
    static auto *const call = quellora::original<int(const char *, const char *)>("rename");
    return moveName(Step::Kind::Rename, AT_FDCWD, from, AT_FDCWD, to,
                    [&] { return call(from, to); });
}

EXPORTED int renameat(int fromDirectory, const char *from, int toDirectory, const char *to) noexcept
{
    static auto *const call =
        quellora::original<int(int, const char *, int, const char *)>("renameat");
    return moveName(Step::Kind::Rename, fromDirectory, from, toDirectory, to,
                    [&] { return call(fromDirectory, from, toDirectory, to); });
}

EXPORTED int renameat2(int fromDirectory, const char *from, int toDirectory, const char *to,
                       unsigned flags) noexcept
{
    static auto *const call =
        quellora::original<int(int, const char *, int, const char *, unsigned)>("renameat2");
    return moveName(Step::Kind::Rename, fromDirectory, from, toDirectory, to,
                    [&] { return call(fromDirectory, from, toDirectory, to, flags); });
}

EXPORTED int link(const char *from, const char *to) noexcept
{
    static auto *const call = quellora::original<int(const char *, const char *)>("link");
    return moveName(Step::Kind::Link, AT_FDCWD, from, AT_FDCWD, to, [&] { return call(from, to); });
}

EXPORTED int linkat(int fromDirectory, const char *from, int toDirectory, const char *to,
                    int flags) noexcept
{
    static auto *const call =
        quellora::original<int(int, const char *, int, const char *, int)>("linkat");
    return moveName(Step::Kind::Link, fromDirectory, from, toDirectory, to,
                    [&] { return call(fromDirectory, from, toDirectory, to, flags); });
}

EXPORTED int unlink(const char *path) noexcept
{
    static auto *const call = quellora::original<int(const char *)>("unlink");
    return changeName(Step::Kind::Remove, AT_FDCWD, path, [&] { return call(path); });
}

EXPORTED int unlinkat(int directory, const char *path, int flags) noexcept
{
    static auto *const call = quellora::original<int(int, const char *, int)>("unlinkat");
    return changeName(flags & AT_REMOVEDIR ? Step::Kind::RemoveFolder : Step::Kind::Remove,
                      directory, path, [&] { return call(directory, path, flags); });
}

EXPORTED int remove(const char *path) noexcept
{
    struct stat info = {};
    return ::lstat(path, &info) == 0 && S_ISDIR(info.st_mode) ? ::rmdir(path) : ::unlink(path);
}

EXPORTED int rmdir(const char *path) noexcept
{
    static auto *const call = quellora::original<int(const char *)>("rmdir");
    return changeName(Step::Kind::RemoveFolder, AT_FDCWD, path, [&] { return call(path); });
}

EXPORTED int mkdir(const char *path, mode_t mode) noexcept
{
    static auto *const call = quellora::original<int(const char *, mode_t)>("mkdir");
    return changeName(Step::Kind::MakeFolder, AT_FDCWD, path, [&] { return call(path, mode); });
}
