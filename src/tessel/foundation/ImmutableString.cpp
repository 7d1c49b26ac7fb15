#include <tessel/foundation/ImmutableString.h>

#include <mutex>
#include <unordered_set>

namespace Tessel {

namespace {

// Interned texts live for the life of the process, so the pointers stay valid.
struct InternTable {
    std::mutex mutex;
    std::unordered_set<std::string> texts;
};

InternTable& Table() {
    static auto* table = new InternTable();  // never destroyed: strings may outlive statics
    return *table;
}

const std::string* Intern(std::string_view text) {
    InternTable& table = Table();
    std::lock_guard lock(table.mutex);
    return &*table.texts.emplace(text).first;
}

}  // namespace

ImmutableString::ImmutableString() : mText(Intern({})) {}

ImmutableString::ImmutableString(std::string_view text) : mText(Intern(text)) {}

}  // namespace Tessel
