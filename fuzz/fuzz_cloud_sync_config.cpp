// Feeds arbitrary bytes to the two parsers of cloud clients' files: Dropbox's info.json
// (JSON, through nlohmann) and the onedrive client's configuration (key = "value" lines).
// Besides memory and UB faults it checks what the lookups rely on: a sync_dir value is one
// line with no surrounding blanks, and a Dropbox folder comes from a string the text holds.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include <tessel/providers/filesystem/ProviderCloudSync.h>

namespace {

void Check(bool condition) {
    if (!condition)
        std::abort();
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);

    const Tessel::DropboxFolders folders = Tessel::ParseDropboxInfo(text);
    Check(folders.personal.size() <= size);
    Check(folders.business.size() <= size);

    const std::optional<std::string> syncDir = Tessel::ParseOneDriveSyncDir(text);
    if (syncDir) {
        Check(syncDir->size() <= size);
        Check(syncDir->find('\n') == std::string::npos);
        Check(text.find("sync_dir") != std::string_view::npos);
        // Quotes are removed only in pairs, so a value that kept its blanks had quotes.
        if (!syncDir->empty() && (IsBlank(syncDir->front()) || IsBlank(syncDir->back()))) {
            Check(text.find('"') != std::string_view::npos);
        }
    }
    return 0;
}
