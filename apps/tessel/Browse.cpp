#include "Browse.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>

#include <nlohmann/json.hpp>

#include <tessel/foundation/Directory.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/Provider.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/platform/Terminal.h>

#include "Commands.h"
#include "Format.h"
#include "Interrupt.h"
#include "Requests.h"

#ifndef TESSEL_SAMPLES_DIR
#define TESSEL_SAMPLES_DIR "samples"
#endif

namespace Tessel::Tool {

namespace {

using Json = nlohmann::ordered_json;

// How deep a walk goes unless --depth says otherwise: folders eight levels, list paths
// (volumes:, favorites:) only the list itself, since their entries are whole volumes.
constexpr int kFolderDepth = 8;

// The folder provider's size column.
const std::u16string kSizeField = u"26";

// Names as a terminal may show them: control characters quoted, never sent as they are.
std::string Display(const std::u16string& text) {
    return QuoteControlCharacters(Utf16ToDisplayUtf8(text));
}

std::string JsonText(const std::u16string& text) {
    return Utf16ToDisplayUtf8(text);
}

bool IsListPath(const std::u16string& path) {
    return !path.empty() && path.back() == u':' && path.find(u'/') == std::u16string::npos &&
           path.find(u'\\') == std::u16string::npos && path.size() > 2;
}

// "Browsing... 12 folders, 345 items" on standard error, once a walk has taken a second,
// when standard error is a terminal; cleared before the walk's result is printed.
class WalkProgress {
public:
    WalkProgress() : mActive(Platform::StandardErrorIsTerminal()) {}
    ~WalkProgress() { Clear(); }
    WalkProgress(const WalkProgress&) = delete;
    WalkProgress& operator=(const WalkProgress&) = delete;

    void Update(std::size_t folders, std::size_t items) {
        if (!mActive)
            return;
        const auto now = std::chrono::steady_clock::now();
        if (now - mStart < std::chrono::seconds(1) ||
            now - mLastShown < std::chrono::milliseconds(100))
            return;
        mLastShown = now;
        mShown = true;
        std::fprintf(stderr, "\rBrowsing... %zu folders, %zu items", folders, items);
        std::fflush(stderr);
    }
    void Clear() {
        if (!mShown)
            return;
        mShown = false;
        std::fprintf(stderr, "\r%60s\r", "");
        std::fflush(stderr);
    }

private:
    bool mActive;
    bool mShown = false;
    std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point mLastShown;
};

struct BrowseState {
    std::ostream& out;
    std::ostream& err;
    int maxDepth;
    bool json;
    WalkProgress progress;
    std::set<std::filesystem::path> visited;  // real paths, so link loops end
    std::size_t folders = 0;
    std::size_t items = 0;
    std::size_t unreadable = 0;
    bool interrupted = false;
    // What the closing hint suggests: a folder that held items, and one of its items.
    std::u16string exampleFolder;
    std::u16string exampleItem;
    int exampleRank = 0;
};

// An empty folder is shown as such; one that cannot be read is reported with the reason.
void ReportIfUnreadable(BrowseState& state, const std::u16string& path) {
    if (Status why = CheckFolderReadable(path); !why.IsOk()) {
        ++state.unreadable;
        state.progress.Clear();
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

Json ProviderList(const GetProviderListMessage& answer) {
    Json list = Json::array();
    for (std::size_t i = 0; i < answer.providers.size(); ++i) {
        list.push_back({{"id", JsonText(answer.providers[i]->GetIdentification())},
                        {"name", JsonText(answer.providers[i]->GetUIString())},
                        {"score", answer.scores.at(i)}});
    }
    return list;
}

// "(file, 1,000 bytes)", "(item)": what an item is, and its size when it has one.
std::string ItemDetails(const std::string& kind, const PropertyMap& record) {
    std::string details = kind;
    if (auto it = record.find(kSizeField); it != record.end() && kind != "folder") {
        if (const auto* size = it->second.get_if<Provider::ByteSize_t>())
            details +=
                ", " + ValueToText(it->second) + (size->GetCount() == 1 ? " byte" : " bytes");
    }
    return "(" + details + ")";
}

// Shows PATH and what lies below it; fills NODE (its JSON) when the walk writes JSON.
void Visit(BrowseState& state, const std::u16string& path, const std::string& label, int depth,
           Json& node) {
    if (state.interrupted || InterruptRequested()) {
        state.interrupted = true;
        return;
    }
    state.progress.Update(state.folders, state.items);
    const std::string indent(static_cast<std::size_t>(depth) * 2, ' ');
    node["path"] = JsonText(path);
    std::error_code ec;
    auto real = std::filesystem::canonical(std::filesystem::path(Utf16ToUtf8(path)), ec);
    if (!IsListPath(path) && !ec && !state.visited.insert(real).second) {
        if (!state.json)
            state.out << indent << label << "/  (already shown)\n";
        node["already_shown"] = true;
        return;
    }
    ++state.folders;
    std::optional<GetProviderListMessage> ranked = RunProviderList(path);
    if (ranked && ranked->result == kResultAborted) {
        state.interrupted = true;
        return;
    }
    Json children = Json::array();
    if (!ranked || ranked->providers.empty()) {
        if (!state.json)
            state.out << indent << label << "/  (nothing can show this folder)\n";
        node["providers"] = Json::array();
        ReportIfUnreadable(state, path);
        if (depth < state.maxDepth && !IsListPath(path)) {
            for (const Directory& sub : Directory(path).GetSubDirectories()) {
                Json child;
                Visit(state, sub.GetFullPath(), Display(Path::LeafDisplayString(sub.GetFullPath())),
                      depth + 1, child);
                children.push_back(std::move(child));
            }
        }
        node["items"] = std::move(children);
        return;
    }
    if (!state.json)
        state.out << indent << label << (IsListPath(path) ? "" : "/") << "  ["
                  << ProviderSummary(*ranked) << "]\n";
    node["providers"] = ProviderList(*ranked);
    ProviderWrapper* best = ranked->providers.front();
    const std::u16string providerID = best->GetIdentification();
    // Folders of the plain directory provider and entries of a list are ranked again: a
    // card inside one is then shown by its own provider. Items of any other provider are
    // that provider's.
    const bool walkInto = Utf16ToUtf8(providerID) == kProviderDirectoryID || IsListPath(path);
    std::optional<GetContentMessage> listing =
        RunContent(*best, path, {kNameField, kPathField, kDirectoryFlagField, kSizeField});
    if (!listing || listing->result == kResultAborted) {
        state.interrupted = true;
        return;
    }
    if (listing->content.empty())
        ReportIfUnreadable(state, path);
    for (const auto& [key, record] : listing->content) {
        std::string plainName;
        if (auto it = record.find(kNameField); it != record.end())
            plainName = ValueToText(it->second);
        if (plainName.empty())
            plainName = JsonText(Path::LeafDisplayString(key));
        const std::string name = QuoteControlCharacters(plainName);
        const std::string kind = ItemKind(providerID, record);
        Json child;
        if (state.json) {
            child["path"] = JsonText(key);
            child["name"] = plainName;
            child["kind"] = kind;
        }
        if ((kind == "folder" || kind == "volume") && walkInto && depth < state.maxDepth) {
            Visit(state, key, name, depth + 1, child);
            children.push_back(std::move(child));
            continue;
        }
        ++state.items;
        // A provider's own item (a clip) makes the better example, then a file.
        const int rank = kind == "item" ? 3 : kind == "file" ? 2 : IsListPath(path) ? 1 : 0;
        if (rank > state.exampleRank) {
            state.exampleRank = rank;
            state.exampleFolder = path;
            state.exampleItem = ItemPath(key, record);
        }
        if (!state.json) {
            state.out << indent << "  " << name << (kind == "folder" ? "/" : "") << "  "
                      << ItemDetails(kind, record) << "\n";
            continue;
        }
        if (auto it = record.find(kSizeField); it != record.end() && kind != "folder")
            child["size"] = ValueToJson(it->second);
        children.push_back(std::move(child));
    }
    node["items"] = std::move(children);
}

// A word of the platform's shell for PATH, quoted when it needs to be.
std::string ShellWord(const std::u16string& path) {
    const std::string text = Utf16ToDisplayUtf8(path);
#if defined(_WIN32)
    // cmd and PowerShell: double quotes around what holds a space or a separator.
    if (text.find_first_of(" \t&|<>^(),;=%'`$") == std::string::npos)
        return QuoteControlCharacters(text);
    return QuoteControlCharacters("\"" + text + "\"");
#else
    if (text.find_first_of(" \t'\"\\$`!*?[]{}()<>|&;#~") == std::string::npos)
        return QuoteControlCharacters(text);
    std::string quoted = "'";
    for (char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return QuoteControlCharacters(quoted + "'");
#endif
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
    const bool list = IsListPath(path);
    if (!list && !Path::DirectoryExists(path)) {
        err << "tessel: " << Display(path)
            << (Path::FileOrDirectoryExists(path) ? " is not a folder\n" : ": no such folder\n");
        return 1;
    }
    const int depth = options.depth >= 0 ? options.depth : list ? 0 : kFolderDepth;
    BrowseState state{out, err, depth, options.json};
    Json tree;
    Visit(state, path, Display(path), 0, tree);
    state.progress.Clear();
    if (state.interrupted) {
        err << "tessel: interrupted\n";
        return 3;
    }
    if (options.json) {
        Json doc;
        doc["root"] = std::move(tree);
        doc["folders"] = state.folders;
        doc["items"] = state.items;
        out << doc.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
    } else {
        out << "\n"
            << state.folders << (state.folders == 1 ? " folder, " : " folders, ") << state.items
            << (state.items == 1 ? " item\n" : " items\n");
    }
    if (ProviderHost::GetAllProviders().empty()) {
        err << "tessel: no providers are registered yet, so nothing can show these folders\n";
    } else if (!options.json && IsListPath(state.exampleFolder)) {
        err << "hint: 'tessel browse " << ShellWord(state.exampleItem)
            << "' walks one of them; --depth 1 walks each one level down\n";
    } else if (!options.json && !state.exampleItem.empty()) {
        err << "hint: 'tessel ls " << ShellWord(state.exampleFolder)
            << " --long' lists a folder; 'tessel info " << ShellWord(state.exampleItem)
            << "' shows every field of an item; 'tessel thumb " << ShellWord(state.exampleItem)
            << " -o thumb.png' draws its picture\n";
    }
    return state.unreadable == 0 ? 0 : 1;
}

}  // namespace Tessel::Tool
