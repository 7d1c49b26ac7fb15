// POSIX whole-file reads and atomic replacement: rename(2) replaces the target atomically,
// and fsync on the file and then its folder makes the new contents and the rename durable.
#include <tessel/platform/AtomicFile.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <random>
#include <utility>

namespace Tessel::Platform {

namespace {

std::string ErrorText(int error) {
    return std::strerror(error);
}

// Splits PATH into its folder ("." when there is none) and leaf name.
void SplitPath(const std::string& path, std::string& folder, std::string& leaf) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        folder = ".";
        leaf = path;
    } else {
        folder = slash == 0 ? "/" : path.substr(0, slash);
        leaf = path.substr(slash + 1);
    }
}

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : mFd(fd) {}
    ~FileDescriptor() {
        if (mFd >= 0)
            ::close(mFd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
    int get() const { return mFd; }
    // Closes now and reports the result: on some file systems (NFS) close is where a
    // failed write shows up.
    bool Close() {
        const int fd = mFd;
        mFd = -1;
        return ::close(fd) == 0;
    }

private:
    int mFd;
};

bool WriteAll(int fd, std::string_view content, int& error) {
    const char* data = content.data();
    std::size_t left = content.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, left);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            error = errno;
            return false;
        }
        data += written;
        left -= static_cast<std::size_t>(written);
    }
    return true;
}

bool SyncToDisk(int fd) {
#if defined(__APPLE__)
    // On macOS fsync stops at the drive's cache; F_FULLFSYNC goes through it.
    if (::fcntl(fd, F_FULLFSYNC) == 0)
        return true;
#endif
    while (::fsync(fd) != 0) {
        if (errno != EINTR)
            return false;
    }
    return true;
}

std::string UniqueSuffix() {
    static std::atomic<std::uint64_t> counter{0};
    static const std::uint64_t seed = std::random_device{}();
    return std::to_string(::getpid()) + "-" + std::to_string(seed % 1000000) + "-" +
           std::to_string(counter.fetch_add(1));
}

}  // namespace

namespace {

// Opens PATH for reading if it is a regular file, never blocking: devices and FIFOs are
// refused before they are opened, and the open is non-blocking in case the entry is swapped
// for a FIFO in between (which has no effect on regular files). SIZE receives the file's size.
// Otherwise the descriptor is closed, STATUS says Missing or Failed and ERROR why.
FileDescriptor OpenRegularFile(const NativeString& path, std::uint64_t& size,
                               ReadFileStatus& status, std::string& error) {
    status = ReadFileStatus::Failed;
    struct stat before;
    if (::stat(path.c_str(), &before) == 0 && !S_ISREG(before.st_mode)) {
        error = S_ISDIR(before.st_mode) ? "it is a folder" : "it is not a regular file";
        return FileDescriptor(-1);
    }
    int fd;
    do {
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        if (errno == ENOENT)
            status = ReadFileStatus::Missing;
        else
            error = ErrorText(errno);
        return FileDescriptor(-1);
    }
    FileDescriptor file(fd);
    struct stat info;
    if (::fstat(fd, &info) != 0) {
        error = ErrorText(errno);
        return FileDescriptor(-1);
    }
    if (!S_ISREG(info.st_mode)) {
        error = S_ISDIR(info.st_mode) ? "it is a folder" : "it is not a regular file";
        return FileDescriptor(-1);
    }
    size = static_cast<std::uint64_t>(info.st_size);
    status = ReadFileStatus::Ok;
    return file;
}

}  // namespace

ReadFileStatus ReadWholeFile(const NativeString& path, std::string& out, std::string& error,
                             std::uint64_t maxBytes) {
    out.clear();
    std::uint64_t size = 0;
    ReadFileStatus status;
    const FileDescriptor file = OpenRegularFile(path, size, status, error);
    if (status != ReadFileStatus::Ok)
        return status;
    const int fd = file.get();
    const std::string tooLarge = "it is larger than " + std::to_string(maxBytes) + " bytes";
    if (size > maxBytes) {
        error = tooLarge;
        return ReadFileStatus::Failed;
    }
    out.reserve(static_cast<std::size_t>(size));
    char buffer[65536];
    for (;;) {
        // A file that grows while it is read is held to the limit too.
        if (out.size() > maxBytes) {
            error = tooLarge;
            out.clear();
            return ReadFileStatus::Failed;
        }
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count == 0)
            break;
        if (count < 0) {
            if (errno == EINTR)
                continue;
            error = ErrorText(errno);
            out.clear();
            return ReadFileStatus::Failed;
        }
        out.append(buffer, static_cast<std::size_t>(count));
    }
    return ReadFileStatus::Ok;
}

ReadFileStatus ReadFileHead(const NativeString& path, std::string& out, std::string& error,
                            std::size_t bytes) {
    out.clear();
    std::uint64_t size = 0;
    ReadFileStatus status;
    const FileDescriptor file = OpenRegularFile(path, size, status, error);
    if (status != ReadFileStatus::Ok)
        return status;
    const int fd = file.get();
    out.resize(bytes);
    std::size_t filled = 0;
    while (filled < bytes) {
        const ssize_t count = ::read(fd, out.data() + filled, bytes - filled);
        if (count == 0)
            break;
        if (count < 0) {
            if (errno == EINTR)
                continue;
            error = ErrorText(errno);
            out.clear();
            return ReadFileStatus::Failed;
        }
        filled += static_cast<std::size_t>(count);
    }
    out.resize(filled);
    return ReadFileStatus::Ok;
}

NativeString AtomicTemporaryPrefix(const NativeString& path) {
    std::string folder, leaf;
    SplitPath(path, folder, leaf);
    return leaf + ".tmp-";
}

Status WriteFileAtomically(const NativeString& path, std::string_view content,
                           Durability durability) {
    const bool durable = durability == Durability::Durable;
    std::string folder, leaf;
    SplitPath(path, folder, leaf);
    if (leaf.empty())
        return {StatusCode::kInvalidArgument, "no file name in " + path};

    std::string temporary;
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        temporary = path + ".tmp-" + UniqueSuffix();
        fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST && errno != EINTR) {
            return Status::FromErrno(errno, "cannot create " + temporary);
        }
    }
    if (fd < 0)
        return {StatusCode::kIOError, "cannot create a temporary file beside " + path};
    FileDescriptor file(fd);

    auto fail = [&](const std::string& what, int error) {
        if (file.get() >= 0)
            file.Close();
        ::unlink(temporary.c_str());
        return Status::FromErrno(error, what + " " + temporary);
    };

    // The new file keeps the old one's permissions, so a user who made it private keeps it so.
    struct stat old;
    if (::stat(path.c_str(), &old) == 0)
        ::fchmod(fd, old.st_mode & 07777);

    int error = 0;
    if (!WriteAll(fd, content, error))
        return fail("cannot write", error);
    if (durable && !SyncToDisk(fd))
        return fail("cannot flush", errno);
    if (!file.Close())
        return fail("cannot close", errno);
    if (::rename(temporary.c_str(), path.c_str()) != 0)
        return fail("cannot rename", errno);

    // Make the rename itself durable. Some file systems refuse fsync on folders; the file is
    // in place by now either way, so that is not an error.
    if (!durable)
        return Status::Ok();
    int folderFd = ::open(folder.c_str(), O_RDONLY | O_CLOEXEC | O_DIRECTORY);
    if (folderFd >= 0) {
        FileDescriptor folderFile(folderFd);
        SyncToDisk(folderFd);
    }
    return Status::Ok();
}

void RemoveStaleAtomicTemporaries(const NativeString& path, std::chrono::seconds minimumAge) {
    std::string folder, leaf;
    SplitPath(path, folder, leaf);
    const std::string prefix = leaf + ".tmp-";
    DIR* directory = ::opendir(folder.c_str());
    if (!directory)
        return;
    const std::time_t now = std::time(nullptr);
    while (const dirent* entry = ::readdir(directory)) {
        if (std::strncmp(entry->d_name, prefix.c_str(), prefix.size()) != 0)
            continue;
        struct stat info;
        if (::fstatat(::dirfd(directory), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        if (S_ISREG(info.st_mode) && now - info.st_mtime > minimumAge.count()) {
            ::unlinkat(::dirfd(directory), entry->d_name, 0);
        }
    }
    ::closedir(directory);
}

RenameStatus RenameWithoutReplacing(const NativeString& from, const NativeString& to,
                                    std::string& error) {
    // link(2) fails when TO exists, which makes the no-replace test and the rename one step.
    if (::link(from.c_str(), to.c_str()) == 0) {
        ::unlink(from.c_str());
        return RenameStatus::Done;
    }
    if (errno == EEXIST)
        return RenameStatus::TargetExists;
    if (errno == ENOENT) {
        error = ErrorText(errno);
        return RenameStatus::Failed;
    }
    // File systems without hard links (FAT, some FUSE and network ones) and folders: test
    // first, then rename. The gap between the two only matters if another process picks
    // the same name in the same second.
    struct stat info;
    if (::lstat(to.c_str(), &info) == 0)
        return RenameStatus::TargetExists;
    if (::rename(from.c_str(), to.c_str()) != 0) {
        error = ErrorText(errno);
        return RenameStatus::Failed;
    }
    return RenameStatus::Done;
}

Status CreateDirectories(const NativeString& directory) {
    if (directory.empty())
        return Status::Ok();
    struct stat info;
    if (::stat(directory.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode))
            return Status::Ok();
        return {StatusCode::kInvalidArgument, directory + " exists and is not a folder"};
    }
    std::string parent, leaf;
    SplitPath(directory, parent, leaf);
    if (parent != directory && parent != ".") {
        if (Status status = CreateDirectories(parent); !status.IsOk())
            return status;
    }
    if (::mkdir(directory.c_str(), 0777) != 0 && errno != EEXIST) {
        return Status::FromErrno(errno, "cannot create folder " + directory);
    }
    return Status::Ok();
}

}  // namespace Tessel::Platform
