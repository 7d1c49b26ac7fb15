// A temporary folder for one test, removed with everything in it at the end.
#pragma once

#include <filesystem>
#include <string>

namespace Tessel::Test {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return mPath; }
    // The folder's path in UTF-8.
    std::string str() const;
    std::u16string u16() const;
    // The folder as the library takes it: in the long-path form "\\?\C:\..." on Windows,
    // the same as str() and u16() elsewhere.
    std::string longStr() const;
    std::u16string longU16() const;

    // Writes FILE (relative to the folder, UTF-8; parents are made) with CONTENT, returns its
    // path.
    std::filesystem::path WriteFile(const std::string& relative, const std::string& content = {});
    std::filesystem::path MakeDir(const std::string& relative);

private:
    std::filesystem::path mPath;
};

}  // namespace Tessel::Test
