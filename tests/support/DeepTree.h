// A chain of folders whose path is longer than the system's path limit (PATH_MAX on POSIX,
// MAX_PATH on Windows), made and removed one level at a time through calls that never see
// the whole path, so that the tests, not the helper, find out whether the code under test
// copes with it.
#pragma once

#include <string>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#endif

namespace Tessel::Test {

class DeepTree {
public:
#if defined(_WIN32)
    // Beyond MAX_PATH, which only the long-path form passes. (Wine itself reaches no further
    // than the path limit of the system it runs on.)
    static constexpr int kLevels = 5;
    static constexpr std::size_t kNameLength = 100;
    static constexpr std::size_t kLimit = 260;
#else
    // Far beyond PATH_MAX: 20 levels of long names, about 5,000 bytes.
    static constexpr int kLevels = 20;
    static constexpr std::size_t kNameLength = 250;
    static constexpr std::size_t kLimit = 4096;
#endif

    explicit DeepTree(const std::string& base) : DeepTree(base, kLevels, kNameLength) {}
    // LEVELS folders below BASE (an existing folder, in the long-path form on Windows), level
    // I named by LENGTH copies of the letter 'a' + I.
    DeepTree(const std::string& base, int levels, std::size_t length) : mBase(base) {
        std::string path = base;
        for (int i = 0; i < levels; ++i) {
            const std::string name(length, static_cast<char>('a' + i % 26));
            path += kSeparator + name;
            if (i == 0)
                mFirst = path;
#if defined(_WIN32)
            CreateDirectoryW(Wide(path).c_str(), nullptr);
#else
            if (mFds.empty())
                mFds.push_back(open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            mkdirat(mFds.back(), name.c_str(), 0700);
            mFds.push_back(openat(mFds.back(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
#endif
        }
        mPath = path;
    }
    ~DeepTree() {
#if defined(_WIN32)
        Remove(Wide(mFirst));
#else
        for (std::size_t i = mFds.size(); i-- > 1;)
            close(mFds[i]);
        if (!mFds.empty()) {
            RemoveAt(mFds[0], mFirst.substr(mBase.size() + 1).c_str());
            close(mFds[0]);
        }
#endif
    }
    DeepTree(const DeepTree&) = delete;
    DeepTree& operator=(const DeepTree&) = delete;

    // The deepest folder.
    const std::string& Path() const {
        return mPath;
    }

    // Makes a file (or a folder) NAME in the deepest folder.
    void Add(const std::string& name, bool folder = false) const {
#if defined(_WIN32)
        const std::wstring path = Wide(mPath + kSeparator + name);
        if (folder) {
            CreateDirectoryW(path.c_str(), nullptr);
        } else {
            CloseHandle(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
        }
#else
        if (folder) {
            mkdirat(mFds.back(), name.c_str(), 0700);
        } else {
            close(openat(mFds.back(), name.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        }
#endif
    }

private:
#if defined(_WIN32)
    static constexpr char kSeparator = '\\';
    static std::wstring Wide(const std::string& ascii) {
        return {ascii.begin(), ascii.end()};
    }
    static void Remove(const std::wstring& path) {
        WIN32_FIND_DATAW data;
        const HANDLE find = FindFirstFileW((path + L"\\*").c_str(), &data);
        if (find != INVALID_HANDLE_VALUE) {
            do {
                const std::wstring name = data.cFileName;
                if (name == L"." || name == L"..")
                    continue;
                if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                    Remove(path + L"\\" + name);
                } else {
                    DeleteFileW((path + L"\\" + name).c_str());
                }
            } while (FindNextFileW(find, &data));
            FindClose(find);
        }
        RemoveDirectoryW(path.c_str());
    }
#else
    static constexpr char kSeparator = '/';
    static void RemoveAt(int parent, const char* name) {
        const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) {
            unlinkat(parent, name, 0);
            return;
        }
        DIR* dir = fdopendir(fd);
        std::vector<std::string> names;
        while (const dirent* entry = readdir(dir)) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                names.push_back(entry->d_name);
        }
        for (const std::string& inner : names)
            RemoveAt(fd, inner.c_str());
        closedir(dir);
        unlinkat(parent, name, AT_REMOVEDIR);
    }
    std::vector<int> mFds;
#endif

    std::string mBase;
    std::string mFirst;
    std::string mPath;
};

}  // namespace Tessel::Test
