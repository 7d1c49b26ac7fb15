// Feeds arbitrary bytes to the project lock reader, as the text of a lock file. Besides
// memory and UB faults it checks what the directory listing relies on: an accepted lock has a
// holder without control characters, writes back as text, and that text reads back as the
// same lock. The bytes also go, split in three, to the writer as holder, machine and time.
// Nothing here touches the file system.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include <tessel/providers/filesystem/ProjectLockFile.h>

namespace {

void Check(bool condition) {
    if (!condition)
        std::abort();
}

bool HasControlCharacter(std::string_view text) {
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F)
            return true;
    }
    return false;
}

void CheckRoundTrip(const Tessel::ProjectLock& lock) {
    const std::optional<std::string> text = Tessel::FormatProjectLock(lock);
    Check(text.has_value());
    Check(Tessel::ParseProjectLock(*text) == lock);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);

    if (const auto lock = Tessel::ParseProjectLock(bytes)) {
        Check(!lock->holder.empty() && !HasControlCharacter(lock->holder));
        Check(!HasControlCharacter(lock->machine));
        Check(lock->holder.front() != ' ' && lock->holder.back() != ' ');
        CheckRoundTrip(*lock);
    }

    // Whatever the writer accepts must read back, with surrounding spaces gone.
    const std::size_t third = size / 3;
    Tessel::ProjectLock lock{std::string(bytes.substr(0, third)),
                             std::string(bytes.substr(third, third)), std::nullopt};
    const std::string_view rest = bytes.substr(2 * third);
    if (rest.size() >= sizeof(std::int64_t)) {
        std::int64_t microseconds = 0;
        std::memcpy(&microseconds, rest.data(), sizeof microseconds);
        lock.time = Tessel::DateTime{microseconds};
    }
    if (const auto text = Tessel::FormatProjectLock(lock)) {
        if (text->size() <= Tessel::kMaximumProjectLockFileSize) {
            const auto read = Tessel::ParseProjectLock(*text);
            Check(read.has_value() && read->time == lock.time);
            Check(!read->holder.empty() && lock.holder.find(read->holder) != std::string::npos);
            Check(lock.machine.find(read->machine) != std::string::npos);
        }
    }
    return 0;
}
