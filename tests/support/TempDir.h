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
    std::string str() const { return mPath.string(); }
    std::u16string u16() const;

    // Writes FILE (relative to the folder; parents are made) with CONTENT, returns its path.
    std::filesystem::path WriteFile(const std::string& relative, const std::string& content = {});
    std::filesystem::path MakeDir(const std::string& relative);

private:
    std::filesystem::path mPath;
};

}  // namespace Tessel::Test
