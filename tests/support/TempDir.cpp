#include "support/TempDir.h"

#include <cstdlib>
#include <fstream>
#include <random>
#include <stdexcept>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>

namespace Tessel::Test {

TempDir::TempDir() {
    std::random_device rd;
    std::mt19937_64 rng(rd());
    auto base = std::filesystem::temp_directory_path();
    for (int attempt = 0; attempt < 100; ++attempt) {
        auto candidate = base / ("tessel-test-" + std::to_string(rng()));
        std::error_code ec;
        if (std::filesystem::create_directory(candidate, ec)) {
            mPath = candidate;
            return;
        }
    }
    throw std::runtime_error("cannot create a temporary folder");
}

TempDir::~TempDir() {
    std::error_code ec;
    // Restore permissions a test may have taken away, so removal succeeds.
    for (auto it = std::filesystem::recursive_directory_iterator(
             mPath, std::filesystem::directory_options::skip_permission_denied, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec)) {
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ec);
        }
    }
    std::filesystem::permissions(mPath, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(mPath, ec);
}

namespace {

// RELATIVE, a UTF-8 name (or POSIX bytes), as a path. Windows would read a narrow string in
// the ANSI code page.
std::filesystem::path PathOf(const std::string& relative) {
#if defined(_WIN32)
    return std::filesystem::path(Utf8ToUtf16(relative));
#else
    return std::filesystem::path(relative);
#endif
}

}  // namespace

std::string TempDir::str() const {
#if defined(_WIN32)
    return Utf16ToUtf8(mPath.u16string());
#else
    return mPath.string();
#endif
}

std::u16string TempDir::u16() const {
    return Utf8ToUtf16(str());
}

std::string TempDir::longStr() const {
    return Utf16ToUtf8(longU16());
}

std::u16string TempDir::longU16() const {
    return Path::ToLongPath(u16());
}

std::filesystem::path TempDir::WriteFile(const std::string& relative, const std::string& content) {
    auto file = mPath / PathOf(relative);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary);
    out << content;
    return file;
}

std::filesystem::path TempDir::MakeDir(const std::string& relative) {
    auto dir = mPath / PathOf(relative);
    std::filesystem::create_directories(dir);
    return dir;
}

}  // namespace Tessel::Test
