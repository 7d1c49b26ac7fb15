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
#include <tessel/platform/Volumes.h>

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

// The kind of icon PATH gets. On POSIX nothing at or under a network mount of the mount
// table (FILES) is ever stat'ed, not even through a link that leads there: a dead server
// would hang the caller. Such a path is told by the table (a network mount point is a
// NetworkShare) and by its name (a trailing separator names a folder, else the extension
// decides). Elsewhere each component of the path is examined with lstat, without
// triggering automounts (each counted in EntryStatCount), links followed by hand. A path
// that is not absolute is told by its name alone.
TESSEL_API FileIconKind ClassifyFileIcon(const NativeString& path,
                                         const MountTableFiles& files = {});

// The kind a file name's extension suggests (case-insensitive): Video, Audio, Image,
// Document or File. Shared by every platform.
TESSEL_API FileIconKind FileIconKindForName(std::string_view utf8Name);

// An icon drawn by the system: SIZE x SIZE pixels, 8-bit B, G, R, A, rows stored bottom-up
// (as in a PelPix), SIZE * 4 bytes a row.
struct ShellIcon {
    std::uint32_t size = 0;
    std::vector<std::uint8_t> pixels;
};

// The largest canvas DrawShellIcon draws on (a side); larger ones give none.
inline constexpr std::uint32_t kLargestShellIconCanvas = 1024;

// The shell's icon of PATH from the system image list of LIST_SIZE (16, 32, 48 or 256; any
// other size gives none), drawn at its own size into the top left corner of a clear canvas
// of CANVAS_SIZE x CANVAS_SIZE (clipped when the canvas is smaller). The path is normalised
// and loses its long-path prefix, as the shell wants; a path the shell does not know gets
// the icon of a folder or a plain file by whether it is an existing folder. None when the
// shell has no icon, and always on POSIX, which has no shell icons.
TESSEL_API std::optional<ShellIcon> DrawShellIcon(const NativeString& path, std::uint32_t listSize,
                                                  std::uint32_t canvasSize);

}  // namespace Tessel::Platform
