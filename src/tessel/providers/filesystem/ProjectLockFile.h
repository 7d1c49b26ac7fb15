// The lock file of a host project (".plproj"): while someone has a project open for
// writing, a small text file beside it names them, so that others browsing the folder see
// who holds it. The lock of "/a/Cut.plproj" is "/a/Cut.plproj.lock"; it holds UTF-8 lines
// of key=value:
//
//   # Tessel project lock
//   holder=Jane Doe
//   machine=edit-bay-3
//   time=2024-03-05T09:07:02Z
//
// "holder" is required; "machine" and "time" (ISO 8601, UTC) may be missing. Blank lines
// and lines starting with '#' are ignored, and so are keys this version does not know, so
// that later versions can add some. Spaces around keys and values do not count. A line
// without '=', a repeated key, a control character (a tab included) anywhere, a time that is
// not ISO 8601 within the years 1 to 9999, a missing or empty holder, or a file larger than
// kMaximumProjectLockFileSize makes the file unusable: it is then treated as no lock.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <tessel/foundation/DateTime.h>
#include <tessel/platform/Export.h>
#include <tessel/platform/Status.h>

namespace Tessel {

// A lock file is a few lines; anything larger is not one, and is never read whole.
inline constexpr std::size_t kMaximumProjectLockFileSize = 64 * 1024;

struct ProjectLock {
    std::string holder;            // the name of the person who holds the project
    std::string machine;           // the computer they hold it on; may be empty
    std::optional<DateTime> time;  // when they took it; absent when unknown

    friend bool operator==(const ProjectLock&, const ProjectLock&) = default;
};

// The path of the lock file of the project at PROJECTPATH (UTF-8).
TESSEL_API std::string ProjectLockFilePath(std::string_view projectPath);

// The lock described by TEXT (the content of a lock file), or std::nullopt when TEXT is not
// a usable lock (see above).
TESSEL_API std::optional<ProjectLock> ParseProjectLock(std::string_view text);
// The content of the lock file for LOCK. Returns std::nullopt when the lock cannot be
// written as one: an empty holder, or a holder or machine holding a control character.
TESSEL_API std::optional<std::string> FormatProjectLock(const ProjectLock& lock);

// The lock of the project at PROJECTPATH; std::nullopt when there is none, or when its lock
// file cannot be read or is not usable. Never opens anything but a regular file.
TESSEL_API std::optional<ProjectLock> ReadProjectLockFile(std::string_view projectPath);
// Writes the lock file of the project at PROJECTPATH, replacing any earlier one atomically
// (a reader sees the old lock or the new one, complete). On failure nothing changed; a lock
// that FormatProjectLock cannot write is kInvalidArgument.
TESSEL_API Status WriteProjectLockFile(std::string_view projectPath, const ProjectLock& lock);
// Removes the lock file of the project at PROJECTPATH. A project without one is not an
// error.
TESSEL_API Status RemoveProjectLockFile(std::string_view projectPath);

}  // namespace Tessel
