// What kind of icon a path gets when there is no better picture of it. Classification
// never opens the path (a FIFO or a device would block), and looks only at what the
// directory entry and the mount table say, and at the name's extension.
#pragma once

#include <string_view>

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

}  // namespace Tessel::Platform
