#include "Browse.h"

#include <cstdlib>
#include <filesystem>
#include <set>

#include <tessel/foundation/Directory.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>

#include "Commands.h"
#include "Format.h"
#include "Interrupt.h"
#include "Requests.h"

#ifndef TESSEL_SAMPLES_DIR
#define TESSEL_SAMPLES_DIR "samples"
#endif

namespace Tessel::Tool {

namespace {

// Names as a terminal may show them: control characters quoted, never sent as they are.
std::string Display(const std::u16string& text) {
    return QuoteControlCharacters(Utf16ToUtf8(ToDisplayUtf16(text)));
}

struct BrowseState {
    std::ostream& out;
    std::ostream& err;
    int maxDepth;
    std::set<std::filesystem::path> visited;  // real paths, so link loops end
    std::size_t folders = 0;
    std::size_t items = 0;
    std::size_t unreadable = 0;
    bool interrupted = false;
};

// An empty folder is shown as such; one that cannot be read is reported with the reason.
void ReportIfUnreadable(BrowseState& state, const std::u16string& path) {
    if (Status why = CheckFolderReadable(path); !why.IsOk()) {
        ++state.unreadable;
        state.err << "tessel: " << ToDisplayUtf8(why.Message()) << "\n";
    }
}

std::string ProviderSummary(const GetProviderListMessage& answer) {
    std::string text;
    for (std::size_t i = 0; i < answer.providers.size(); ++i) {
        if (!text.empty())
            text += ", ";
        text +=
            Display(answer.providers[i]->GetUIString()) + " " + std::to_string(answer.scores.at(i));
    }
    return text;
}

void Visit(BrowseState& state, const std::u16string& path, const std::string& label, int depth) {
    if (state.interrupted || InterruptRequested()) {
        state.interrupted = true;
        return;
    }
    const std::string indent(static_cast<std::size_t>(depth) * 2, ' ');
    std::error_code ec;
    auto real = std::filesystem::canonical(std::filesystem::path(Utf16ToUtf8(path)), ec);
    if (!ec && !state.visited.insert(real).second) {
        state.out << indent << label << "/  (already shown)\n";
        return;
    }
    ++state.folders;
    std::optional<GetProviderListMessage> ranked = RunProviderList(path);
    if (ranked && ranked->result == kResultAborted) {
        state.interrupted = true;
        return;
    }
    if (!ranked || ranked->providers.empty()) {
        state.out << indent << label << "/  (nothing can show this folder)\n";
        ReportIfUnreadable(state, path);
        if (depth >= state.maxDepth)
            return;
        for (const Directory& sub : Directory(path).GetSubDirectories()) {
            Visit(state, sub.GetFullPath(), Display(Path::LeafDisplayString(sub.GetFullPath())),
                  depth + 1);
        }
        return;
    }
    state.out << indent << label << "/  [" << ProviderSummary(*ranked) << "]\n";
    ProviderWrapper* best = ranked->providers.front();
    const bool plainFolder = Utf16ToUtf8(best->GetIdentification()) == kProviderDirectoryID;
    std::optional<GetContentMessage> listing =
        RunContent(*best, path, {kNameField, kPathField, kDirectoryFlagField});
    if (!listing || listing->result == kResultAborted) {
        state.interrupted = true;
        return;
    }
    if (listing->content.empty())
        ReportIfUnreadable(state, path);
    for (const auto& [key, record] : listing->content) {
        std::string name;
        if (auto it = record.find(kNameField); it != record.end())
            name = QuoteControlCharacters(ValueToText(it->second));
        if (name.empty())
            name = Display(Path::LeafDisplayString(key));
        bool isFolder = false;
        if (auto it = record.find(kDirectoryFlagField); it != record.end()) {
            // A flag, or the folder provider's "D" column (empty for files).
            if (const auto* flag = it->second.get_if<bool>()) {
                isFolder = *flag;
            } else if (const auto* text = it->second.get_if<std::u16string>()) {
                isFolder = !text->empty();
            } else if (const auto* narrow = it->second.get_if<std::string>()) {
                isFolder = !narrow->empty();
            }
        }
        // Folders of the plain directory provider are ranked again: a card inside one is
        // then shown by its own provider. Items of any other provider are that provider's.
        if (plainFolder && isFolder && depth < state.maxDepth) {
            Visit(state, key, name, depth + 1);
        } else {
            ++state.items;
            state.out << indent << "  " << name << (isFolder ? "/" : "") << "\n";
        }
    }
}

}  // namespace

std::string DefaultSamplesFolder() {
    if (const char* env = std::getenv("TESSEL_SAMPLES"); env && *env)
        return env;
    return TESSEL_SAMPLES_DIR;
}

int RunBrowse(const CommandOptions& options, std::ostream& out, std::ostream& err) {
    const std::string root = options.path.empty() ? DefaultSamplesFolder() : options.path;
    const std::u16string path = NormalizeLocation(root);
    if (!Path::DirectoryExists(path)) {
        err << "tessel: " << Display(path) << ": no such folder\n";
        return 1;
    }
    BrowseState state{out, err, options.depth};
    Visit(state, path, Display(path), 0);
    if (state.interrupted) {
        err << "tessel: interrupted\n";
        return 3;
    }
    out << "\n"
        << state.folders << (state.folders == 1 ? " folder, " : " folders, ") << state.items
        << (state.items == 1 ? " item\n" : " items\n");
    if (ProviderHost::GetAllProviders().empty()) {
        err << "tessel: no providers are registered yet, so nothing can show these folders\n";
    }
    return state.unreadable == 0 ? 0 : 1;
}

}  // namespace Tessel::Tool
