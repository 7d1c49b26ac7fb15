// Whole-file reads and crash-safe replacement of small files (preferences, settings).
// One implementation per OS (platform/posix/AtomicFile.cpp, platform/win32/AtomicFile.cpp).
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>
#include <tessel/platform/Status.h>

namespace Tessel::Platform {

enum class ReadFileStatus {
    Ok,
    Missing,  // neither the file nor its folder exists
    Failed,   // it exists but could not be read (a folder, no permission, I/O error)
};

// Reads all of PATH into OUT. ERROR receives a message when the answer is Failed.
// A file larger than MAX_BYTES is refused (Failed) without being read whole.
TESSEL_API ReadFileStatus ReadWholeFile(const NativeString& path, std::string& out,
                                        std::string& error, std::uint64_t maxBytes = UINT64_MAX);

// Reads the first BYTES of PATH into OUT (all of it when it is shorter), for formats whose
// header is all a caller needs of a large file. Like ReadWholeFile, only a regular file is
// read: a FIFO or device is refused without blocking.
TESSEL_API ReadFileStatus ReadFileHead(const NativeString& path, std::string& out,
                                       std::string& error, std::size_t bytes);

// Replaces PATH with CONTENT so that a crash at any moment leaves either the old file or the
// new one, complete: CONTENT goes to a uniquely named temporary file in the same folder
// (PATH + ".tmp-" + something unique), is flushed to the disk, and is renamed over PATH;
// on POSIX the folder is flushed too, so the rename itself survives a power cut. The folder
// must exist. On failure PATH is untouched.
// How much a replacement must survive. Durable files (preferences) are flushed to the disk,
// with their folder, before and after the rename; replaceable output (a thumbnail written
// for a person) is only renamed into place whole, which is much quicker.
enum class Durability { Durable, Replaceable };

TESSEL_API Status WriteFileAtomically(const NativeString& path, std::string_view content,
                                      Durability durability = Durability::Durable);

// The prefix of the temporary files WriteFileAtomically makes for PATH (leaf name only).
TESSEL_API NativeString AtomicTemporaryPrefix(const NativeString& path);

// Removes temporary files that WriteFileAtomically left beside PATH (after a crash) and that
// were last written longer than MINIMUM_AGE ago, so that a save in progress in another
// process keeps its file. Failures are ignored: the files are only clutter.
TESSEL_API void RemoveStaleAtomicTemporaries(const NativeString& path,
                                             std::chrono::seconds minimumAge);

enum class RenameStatus { Done, TargetExists, Failed };
// Renames FROM to TO, but never replaces an existing TO: the answer is then TargetExists and
// nothing changed. ERROR receives a message when the answer is Failed.
TESSEL_API RenameStatus RenameWithoutReplacing(const NativeString& from, const NativeString& to,
                                               std::string& error);

// Creates DIRECTORY and its missing parents.
TESSEL_API Status CreateDirectories(const NativeString& directory);

}  // namespace Tessel::Platform
