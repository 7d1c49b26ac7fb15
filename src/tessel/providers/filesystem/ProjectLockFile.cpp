#include <tessel/providers/filesystem/ProjectLockFile.h>

#include <cstdint>
#include <filesystem>
#include <system_error>

#include <tessel/foundation/Path.h>
#include <tessel/platform/AtomicFile.h>

namespace Tessel {

namespace {

constexpr std::string_view kLockFileSuffix = ".lock";
constexpr std::string_view kHeaderLine = "# Tessel project lock";
constexpr std::string_view kHolderKey = "holder";
constexpr std::string_view kMachineKey = "machine";
constexpr std::string_view kTimeKey = "time";

// Times are kept to the years 1 to 9999, which ISO 8601 writes in four digits, so that
// every time written reads back as the same time.
constexpr std::int64_t kEarliestTime = -62135596800LL * 1000000;  // 0001-01-01T00:00:00Z
constexpr std::int64_t kLatestTime =
    253402300799LL * 1000000 + 999999;  // 9999-12-31T23:59:59.999999Z

bool IsControlCharacter(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

bool HasControlCharacter(std::string_view text) {
    for (char c : text) {
        if (IsControlCharacter(c))
            return true;
    }
    return false;
}

std::string_view TrimSpaces(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos)
        return {};
    const std::size_t last = text.find_last_not_of(' ');
    return text.substr(first, last - first + 1);
}

bool IsWritableTime(const DateTime& time) {
    return time.microsecondsSinceEpoch >= kEarliestTime &&
           time.microsecondsSinceEpoch <= kLatestTime;
}

}  // namespace

std::string ProjectLockFilePath(std::string_view projectPath) {
    std::string path(projectPath);
    path += kLockFileSuffix;
    return path;
}

std::optional<ProjectLock> ParseProjectLock(std::string_view text) {
    if (text.size() > kMaximumProjectLockFileSize)
        return std::nullopt;
    // Editors that save UTF-8 sometimes put a byte-order mark first.
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);

    ProjectLock lock;
    bool haveHolder = false;
    bool haveMachine = false;
    bool haveTime = false;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (line.ends_with('\r'))
            line.remove_suffix(1);  // written on Windows
        if (HasControlCharacter(line))
            return std::nullopt;
        const std::string_view content = TrimSpaces(line);
        if (content.empty() || content.front() == '#')
            continue;

        const std::size_t equals = content.find('=');
        if (equals == std::string_view::npos)
            return std::nullopt;
        const std::string_view key = TrimSpaces(content.substr(0, equals));
        const std::string_view value = TrimSpaces(content.substr(equals + 1));
        if (key == kHolderKey) {
            if (haveHolder)
                return std::nullopt;
            haveHolder = true;
            lock.holder = value;
        } else if (key == kMachineKey) {
            if (haveMachine)
                return std::nullopt;
            haveMachine = true;
            lock.machine = value;
        } else if (key == kTimeKey) {
            if (haveTime)
                return std::nullopt;
            haveTime = true;
            if (!value.empty()) {
                lock.time = DateTime::FromIso8601(value);
                if (!lock.time || !IsWritableTime(*lock.time))
                    return std::nullopt;
            }
        }
    }
    if (lock.holder.empty())
        return std::nullopt;
    return lock;
}

std::optional<std::string> FormatProjectLock(const ProjectLock& lock) {
    // Surrounding spaces would not survive a read, so they are not written.
    const std::string_view holder = TrimSpaces(lock.holder);
    const std::string_view machine = TrimSpaces(lock.machine);
    if (holder.empty() || HasControlCharacter(holder) || HasControlCharacter(machine)) {
        return std::nullopt;
    }
    if (lock.time && !IsWritableTime(*lock.time))
        return std::nullopt;

    std::string text(kHeaderLine);
    text += '\n';
    text.append(kHolderKey).append("=").append(holder).append("\n");
    if (!machine.empty())
        text.append(kMachineKey).append("=").append(machine).append("\n");
    if (lock.time)
        text.append(kTimeKey).append("=").append(lock.time->ToIso8601()).append("\n");
    return text;
}

std::optional<ProjectLock> ReadProjectLockFile(std::string_view projectPath) {
    const Platform::NativeString lockPath = Path::ToNative(ProjectLockFilePath(projectPath));
    std::string text;
    std::string message;
    if (Platform::ReadWholeFile(lockPath, text, message, kMaximumProjectLockFileSize) !=
        Platform::ReadFileStatus::Ok) {
        return std::nullopt;
    }
    return ParseProjectLock(text);
}

Status WriteProjectLockFile(std::string_view projectPath, const ProjectLock& lock) {
    const std::optional<std::string> text = FormatProjectLock(lock);
    if (!text) {
        return {StatusCode::kInvalidArgument,
                "cannot write a project lock without a holder, with control characters in its "
                "holder or machine, or with a time outside the years 1 to 9999"};
    }
    return Platform::WriteFileAtomically(Path::ToNative(ProjectLockFilePath(projectPath)), *text);
}

Status RemoveProjectLockFile(std::string_view projectPath) {
    const std::string lockPath = ProjectLockFilePath(projectPath);
    std::error_code error;
    std::filesystem::remove(std::filesystem::path(Path::ToNative(lockPath)), error);
    if (error) {
        // Windows reports its own error codes; their portable condition is an errno value.
        const std::error_condition condition = error.default_error_condition();
        if (condition.category() == std::generic_category())
            return Status::FromErrno(condition.value(), "cannot remove " + lockPath);
        return {StatusCode::kIOError, "cannot remove " + lockPath + ": " + error.message()};
    }
    return Status::Ok();
}

}  // namespace Tessel
