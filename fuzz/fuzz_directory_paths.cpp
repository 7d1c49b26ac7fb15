// Feeds arbitrary bytes to the folder provider's path rules (the path test and the shown form
// of a path) of both platforms, as UTF-8 and as UTF-16 (the bytes taken in pairs). Besides
// memory and UB faults it checks the shape of what passes: a Windows folder path is a UNC
// path or a "\\?\" path with a trailing backslash only on a drive root, a POSIX one is
// absolute with a trailing "/" only as the root, and the shown form only ever drops a prefix.
// Nothing here touches the file system.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <tessel/foundation/PathStyle.h>
#include <tessel/foundation/Unicode.h>

namespace {

using Tessel::Path::PathStyle;
namespace P = Tessel::Path;

void Check(bool condition) {
    if (!condition)
        std::abort();
}

void CheckWindows(std::u16string_view path) {
    if (P::IsValidDirectoryPath(PathStyle::Windows, path) && !P::IsUncPath(path)) {
        Check(path.substr(0, 4) == u"\\\\?\\");
        Check(path.back() != u'\\' || path.size() == 7);
    }
    if (P::IsUncPath(path))
        Check(P::IsValidDirectoryPath(PathStyle::Windows, path));
    // The shown form drops "\\?\" or turns "\\?\UNC\" into "\\", or is the path itself.
    const std::u16string shown = P::ToDisplayFilePath(PathStyle::Windows, path);
    Check(shown == path || (path.size() >= 4 && shown == path.substr(4)) ||
          (path.size() >= 8 && shown == u"\\\\" + std::u16string(path.substr(8))));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    std::u16string units(size / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i)
        units[i] = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));

    CheckWindows(units);
    CheckWindows(Tessel::Utf8ToUtf16(bytes));
    // Both forms of one path get the same answer.
    Check(P::IsValidDirectoryPath(PathStyle::Windows, bytes) ==
          P::IsValidDirectoryPath(PathStyle::Windows, Tessel::Utf8ToUtf16(bytes)));

    if (P::IsValidDirectoryPath(PathStyle::Posix, bytes)) {
        Check(bytes.front() == '/' && (bytes.size() == 1 || bytes.back() != '/'));
    }
    Check(P::IsValidDirectoryPath(PathStyle::Posix, bytes) ==
          P::IsValidDirectoryPath(PathStyle::Posix, Tessel::Utf8ToUtf16(bytes)));
    Check(P::ToDisplayFilePath(PathStyle::Posix, bytes) == bytes);
    return 0;
}
