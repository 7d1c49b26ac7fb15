// Icons of paths without a better picture. On Windows the shell draws them (DrawShellIcon);
// elsewhere the library draws its own artwork for the kind of path (ClassifyFileIcon).
// Neither opens the path (a FIFO or a device would block): classification looks only at
// what the directory entry and the mount table say, and at the name's extension.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel::Platform {

enum class FileIconKind {
    Folder,
    Drive,           // the root of a mounted local file system
    RemovableDrive,  // the root of a removable or optical medium
    NetworkShare,    // the root of a network mount
    Video,
    Audio,
    Image,
    Document,
    File,  // anything else, a missing path included
};

TESSEL_API FileIconKind ClassifyFileIcon(const NativeString& path);

// The kind a file name's extension suggests (case-insensitive): Video, Audio, Image,
// Document or File. Shared by every platform.
TESSEL_API FileIconKind FileIconKindForName(std::string_view utf8Name);

// An icon drawn by the system: SIZE x SIZE pixels, 8-bit B, G, R, A, rows stored bottom-up
// (as in a PelPix), SIZE * 4 bytes a row.
struct ShellIcon {
    std::uint32_t size = 0;
    std::vector<std::uint8_t> pixels;
};

// The shell's icon of PATH from the system image list of SIZE (16, 32, 48 or 256; any other
// size gives none). The path is normalised and loses its long-path prefix, as the shell
// wants; a path the shell does not know gets the icon of a folder or a plain file by
// whether it is an existing folder. None when the shell has no icon, and always on POSIX,
// which has no shell icons.
TESSEL_API std::optional<ShellIcon> DrawShellIcon(const NativeString& path, std::uint32_t size);

}  // namespace Tessel::Platform
