#include "FileSystemCommands.h"

#include <algorithm>
#include <chrono>
#include <list>

#include <nlohmann/json.hpp>

#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Preferences.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/media/DirectoryChangeMonitor.h>

#include "Commands.h"
#include "Format.h"
#include "Interrupt.h"
#include "Requests.h"

namespace Tessel::Tool {

namespace {

constexpr int kExitOk = 0;
constexpr int kExitNotFound = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 3;

std::string Display(const std::u16string& text) {
    return Utf16ToDisplayUtf8(text);
}

std::string DumpJson(const nlohmann::ordered_json& doc) {
    return doc.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

// Lists LIST_PATH through the provider that claims it.
int ListThroughProvider(const std::u16string& listPath, bool json, std::ostream& out,
                        std::ostream& err) {
    std::optional<GetProviderListMessage> providers = RunProviderList(listPath);
    if (providers && providers->result == kResultAborted) {
        err << "tessel: interrupted\n";
        return kExitInterrupted;
    }
    if (!providers || providers->providers.empty()) {
        err << "tessel: no provider can show " << Display(listPath) << "\n";
        return kExitNotFound;
    }
    ProviderWrapper& wrapper = *providers->providers.front();
    // People get the provider's default columns; programs every column, defaults first.
    std::vector<std::u16string> fields = wrapper.GetDefaultFieldList();
    if (json) {
        for (const auto& field : wrapper.GetFieldList()) {
            if (std::find(fields.begin(), fields.end(), field) == fields.end()) {
                fields.push_back(field);
            }
        }
    }
    std::optional<GetContentMessage> answer =
        RunContent(wrapper, listPath, FieldSet(fields.begin(), fields.end()));
    if (!answer) {
        err << "tessel: no provider can show " << Display(listPath) << "\n";
        return kExitNotFound;
    }
    return PrintListing(listPath, wrapper.GetIdentification(), answer->result, answer->content,
                        fields, wrapper.GetFieldLabelList(), ListingStyle{json}, out, err);
}

// The favorites' load problem as one warning line, or nothing. SAVED: whether this run
// saves the list (and with it copies the stored value aside).
void ReportFavoritesProblem(const std::optional<ProviderHost::FavoritesLoadProblem>& problem,
                            bool saved, std::ostream& err) {
    if (!problem)
        return;
    err << "tessel: warning: " << problem->message;
    if (problem->setAsidePreference.empty()) {
        err << "; the stored favorites were left as they are, and changes are not saved";
    } else if (saved) {
        err << "; the stored favorites were kept in the preference " << problem->setAsidePreference
            << " of " << Preferences::GetFilePath();
    } else {
        err << "; the stored favorites stay as they are until the list is changed, and are then "
               "kept in the preference "
            << problem->setAsidePreference << " of " << Preferences::GetFilePath();
    }
    err << "\n";
}

void PrintFavorites(const std::list<std::u16string>& favorites,
                    const std::optional<ProviderHost::FavoritesLoadProblem>& problem, bool json,
                    std::ostream& out, std::ostream& err) {
    if (json) {
        nlohmann::ordered_json doc;
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const auto& favorite : favorites)
            list.push_back(Display(favorite));
        doc["favorites"] = std::move(list);
        if (problem) {
            doc["problem"] = {{"message", problem->message},
                              {"setAsidePreference", problem->setAsidePreference}};
        }
        out << DumpJson(doc) << "\n";
        return;
    }
    for (const auto& favorite : favorites)
        out << Display(favorite) << "\n";
    if (favorites.empty())
        err << "tessel: there are no favorites\n";
}

// The favorite an argument names: the argument itself when it is one as given (a list or
// scheme path), else the argument as an absolute location, in the form favorites are kept in.
std::u16string FavoriteFromArgument(const std::string& argument,
                                    const std::list<std::u16string>& favorites) {
    std::u16string asGiven = NormalizeFavoritePath(Utf8ToUtf16(argument));
    if (std::find(favorites.begin(), favorites.end(), asGiven) != favorites.end())
        return asGiven;
    return NormalizeFavoritePath(NormalizeLocation(argument));
}

}  // namespace

int RunVolumes(const FileSystemOptions& options, std::ostream& out, std::ostream& err) {
    return ListThroughProvider(kVolumeListPath, options.json, out, err);
}

int RunNetworkVolumes(const FileSystemOptions& options, std::ostream& out, std::ostream& err) {
    return ListThroughProvider(kNetworkVolumeListPath, options.json, out, err);
}

int RunCloud(const FileSystemOptions& options, std::ostream& out, std::ostream& err) {
    return ListThroughProvider(kCloudSyncListPath, options.json, out, err);
}

int RunFavorites(const FileSystemOptions& options, std::ostream& out, std::ostream& err) {
    const std::string& action = options.favoritesAction;
    if (action == "list" && !options.paths.empty()) {
        err << "tessel: favorites list takes no paths (did you mean 'favorites add'?)\n";
        return kExitUsage;
    }
    if (action != "list" && options.paths.empty()) {
        err << "tessel: favorites " << action << " needs at least one PATH\n";
        return kExitUsage;
    }
    if (!ProviderHost::HasProvider(kFavoritesListPath, any_regular_t(), false)) {
        err << "tessel: no provider keeps the favorites\n";
        return kExitNotFound;
    }
    // Reading the list loads it first, when the host has not done so yet.
    std::list<std::u16string> favorites = ProviderHost::GetFavorites();
    const auto problem = ProviderHost::GetFavoritesLoadProblem();
    if (action == "list") {
        ReportFavoritesProblem(problem, false, err);
        PrintFavorites(favorites, problem, options.json, out, err);
        return kExitOk;
    }

    std::list<std::u16string> paths;
    for (const auto& argument : options.paths)
        paths.push_back(FavoriteFromArgument(argument, favorites));
    if (action == "add") {
        for (const auto& path : paths) {
            if (!Path::DirectoryExists(path)) {
                ReportFavoritesProblem(problem, false, err);
                err << "tessel: " << Display(path) << ": not a folder; no favorites were added\n";
                return kExitNotFound;
            }
        }
        ProviderHost::ModifyFavorites(paths, FavoriteOperation::Add);
    } else {
        for (const auto& path : paths) {
            if (std::find(favorites.begin(), favorites.end(), path) == favorites.end()) {
                err << "tessel: warning: " << Display(path) << " is not a favorite\n";
            }
        }
        ProviderHost::ModifyFavorites(paths, FavoriteOperation::Remove);
    }
    ReportFavoritesProblem(problem, true, err);
    // The host saves as it changes the list but cannot tell anyone that it failed;
    // saving again (the same text) finds out.
    if (problem && problem->setAsidePreference.empty()) {
        err << "tessel: the favorites were changed for this run only, not saved\n";
        return kExitNotFound;
    }
    if (const Status saved = Preferences::Save(); !saved.IsOk()) {
        err << "tessel: cannot save the favorites: " << saved.Message() << "\n";
        return kExitNotFound;
    }
    PrintFavorites(ProviderHost::GetFavorites(), problem, options.json, out, err);
    return kExitOk;
}

int RunWatch(const FileSystemOptions& options, std::ostream& out, std::ostream& err) {
    const std::u16string path = NormalizeLocation(options.path);
    if (path.empty()) {
        err << "tessel: an empty path names no location\n";
        return kExitNotFound;
    }
    std::optional<GetProviderListMessage> providers = RunProviderList(path);
    if (providers && providers->result == kResultAborted) {
        err << "tessel: interrupted\n";
        return kExitInterrupted;
    }

    int seen = 0;
    bool gone = false;
    const auto full = [&] { return options.count != 0 && seen >= options.count; };
    // One line a change: "PATH: created NAME", or as JSON {"path", "change", "name"}.
    const auto print = [&](const std::u16string& where, const char* change,
                           const std::u16string& name, const std::u16string& previousName) {
        if (full())
            return;
        ++seen;
        if (options.json) {
            nlohmann::ordered_json line;
            line["path"] = Display(where);
            line["change"] = change;
            if (!previousName.empty())
                line["previous_name"] = Display(previousName);
            if (!name.empty())
                line["name"] = Display(name);
            out << line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                << "\n";
        } else {
            out << QuoteControlCharacters(Display(where)) << ": " << change;
            if (!previousName.empty())
                out << " " << QuoteControlCharacters(Display(previousName)) << " ->";
            if (!name.empty())
                out << " " << QuoteControlCharacters(Display(name));
            out << "\n";
        }
        out.flush();
    };
    ScopedListener directoryListener(Messaging::Listen<MF::DirectoryChangedMessage>(
        MF::DirectoryChangeMonitor::sChangeStation, [&](const MF::DirectoryChangedMessage& m) {
            if (m.directory != path || gone)
                return;
            if (m.directoryGone) {
                gone = true;
                print(path, "gone", {}, {});
                return;
            }
            if (m.changes.empty())
                print(path, "many changes", {}, {});
            for (const MF::EntryChange& change : m.changes) {
                switch (change.kind) {
                    case MF::EntryChangeKind::Created:
                        print(path, "created", change.name, {});
                        break;
                    case MF::EntryChangeKind::Changed:
                        print(path, "changed", change.name, {});
                        break;
                    case MF::EntryChangeKind::Removed:
                        print(path, "removed", change.name, {});
                        break;
                    case MF::EntryChangeKind::Renamed:
                        print(path, "renamed", change.name, change.previousName);
                        break;
                }
            }
        }));
    ScopedListener volumeListener(Messaging::Listen<MF::VolumesChangedMessage>(
        MF::DirectoryChangeMonitor::sChangeStation,
        [&](const MF::VolumesChangedMessage&) { print(kVolumeListPath, "changed", {}, {}); }));

    // The best provider decides how its location is watched (the volume list watches the
    // mount table); a folder that no provider claims is watched directly.
    ProviderWrapper* wrapper =
        providers && !providers->providers.empty() ? providers->providers.front() : nullptr;
    if (wrapper) {
        wrapper->MonitorPath(path, any_regular_t());
    } else if (Path::DirectoryExists(path)) {
        MF::DirectoryChangeMonitor::MonitorDirectory(path, 0, 0);
    } else {
        err << "tessel: " << Display(path)
            << (Path::FileOrDirectoryExists(path) ? ": not a folder\n"
                                                  : ": no such file or folder\n");
        return kExitNotFound;
    }
    const auto stop = [&] {
        if (wrapper) {
            wrapper->StopMonitoringPath(path, any_regular_t());
        } else {
            MF::DirectoryChangeMonitor::StopMonitoringDirectory(path, 0);
        }
    };
    if (!MF::DirectoryChangeMonitor::IsMonitoring(path) &&
        !MF::DirectoryChangeMonitor::IsMonitoringVolumeChanges()) {
        stop();
        err << "tessel: " << Display(path) << " cannot be watched\n";
        return kExitNotFound;
    }

    err << "tessel: watching " << Display(path) << "; press Ctrl-C to stop\n";
    while (!InterruptRequested() && !gone && !full()) {
        MainThread::RunOne(std::chrono::milliseconds(50));
    }
    stop();
    return gone ? kExitNotFound : kExitOk;
}

}  // namespace Tessel::Tool
