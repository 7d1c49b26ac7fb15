#include "Tool.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include <CLI/CLI.hpp>

#include <tessel/Version.h>
#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Preferences.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Trace.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>

#include "Commands.h"
#include "FileSystemCommands.h"
#include "Interrupt.h"
#include "Manual.h"
#include "ThumbnailCommand.h"

namespace Tessel::Tool {

namespace {

// Shuts the host down on every way out of Run, if Run started it.
class HostSession {
public:
    HostSession() : mOwned(!ProviderHost::IsInitialized()) {
        if (mOwned)
            ProviderHost::Initialize();
        // The favorites are loaded by a task on the main thread; run it before answering.
        MainThread::RunPending();
    }
    ~HostSession() {
        if (mOwned)
            ProviderHost::Shutdown();
    }
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;

private:
    bool mOwned;
};

}  // namespace

int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    CLI::App app{"tessel: find the providers that can show a location, and list it", "tessel"};
    app.set_version_flag("--version", std::string("tessel ") + kVersionString);
    app.require_subcommand(0, 1);
    // "/media/card" is a path on every platform, never a Windows-style "/option".
    app.allow_windows_style_options(false);
    app.footer(
#if defined(_WIN32)
        "Paths: folders are made absolute, in the long-path form \\\\?\\C:\\... or\n"
        "\\\\?\\UNC\\server\\share\\...; list paths (volumes:, favorites:, ...) and scheme\n"
        "paths (CLSource://...) are passed as given.\n"
#else
        "Paths: folders are made absolute; list paths (volumes:, favorites:, ...) and scheme\n"
        "paths (CLSource://...) are passed as given.\n"
#endif
        "Exit status: 0 success, 1 no provider or nothing found, 2 usage error, 3 interrupted\n"
        "(watch ends with 0 on Ctrl-C, its normal way to stop).");

    std::vector<std::string> settings;
    std::string prefsFile;
    std::vector<std::string> traces;
    app.add_option("--set", settings, "Set a setting for this run (repeatable)")
        ->type_name("KEY=VALUE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--prefs", prefsFile, "Use this preferences file")->type_name("FILE");
    app.fallthrough();
    app.add_option("--trace", traces, "Trace a category to standard error (repeatable; 'all')")
        ->type_name("CATEGORY")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);

    CommandOptions options;
    auto* providers = app.add_subcommand("providers", "Rank the providers that can show PATH");
    providers->add_option("path", options.path, "Location to rank providers for");
    providers->add_flag("--all", options.all, "List every registered provider instead");
    providers->add_flag("--json", options.json, "Write JSON");

    auto* ls = app.add_subcommand("ls", "List PATH through its best (or the named) provider");
    ls->add_option("path", options.path, "Location to list")->required();
    ls->add_option("--provider", options.provider, "Provider identification to use")
        ->type_name("ID");
    ls->add_option("--fields", options.fields, "Fields to show: all, or F1,F2,...")
        ->type_name("all|F1,F2,...");
    ls->add_flag("--json", options.json, "Write JSON");
    // -h is the human-readable sizes of ls here; --help still shows the help.
    ls->set_help_flag("--help", "Print this help message and exit");
    ls->add_flag("-l,--long", options.longListing, "Show each item's kind, size, date and name");
    ls->add_flag("-h,--human-readable", options.humanSizes,
                 "With --long, sizes as 1.0K, 234M, 2.1G (powers of 1024)");
    ls->add_option("--sort", options.sortBy,
                   "Order the items by name, by date (newest first) or by size (largest first)")
        ->type_name("name|date|size")
        ->check(CLI::IsMember({"name", "date", "size"}));
    ls->add_flag("-r,--reverse", options.reverse, "Reverse the order");

    auto* info = app.add_subcommand(
        "info", "Show every field of one item, as the provider of its folder reports them");
    info->add_option("path", options.path, "Item to describe")->required();
    info->add_option("--provider", options.provider, "Provider identification to use")
        ->type_name("ID");
    info->add_flag("--json", options.json, "Write JSON");

    auto* def = app.add_subcommand("default", "The default listing of PATH (items that open)");
    def->add_option("path", options.path, "Location to list")->required();
    def->add_option("--provider", options.provider, "Provider identification to prefer")
        ->type_name("ID");
    def->add_flag("--media-only", options.mediaOnly, "Do not count project-based providers");
    def->add_flag("--json", options.json, "Write JSON");

    auto* browse =
        app.add_subcommand("browse", "Show ROOT and its folders as the providers see them");
    browse->add_option("root", options.path, "Folder to browse (default: the bundled samples)");
    browse
        ->add_option("--depth", options.depth,
                     "How many folder levels to descend (default 8; 0 for a list path)")
        ->check(CLI::Range(0, 64));
    browse->add_flag("--json", options.json, "Write JSON: the tree of folders and items");

    auto* thumb = app.add_subcommand(
        "thumb", "Write the thumbnail of PATH as PNG, from its best (or the named) provider");
    thumb->add_option("path", options.paths, "Items to make thumbnails of")->required();
    thumb
        ->add_option("--extra", options.extraPath,
                     "The item's second path (its ExtraPath field), if it has one")
        ->type_name("PATH");
    thumb->add_option("--provider", options.provider, "Provider identification to use")
        ->type_name("ID");
    thumb->add_option("--size", options.size, "Box to fit the thumbnail in (default 256x144)")
        ->type_name("WxH");
    thumb
        ->add_option("-o,--output", options.output,
                     "PNG file to write; with several items, the folder to write them to")
        ->type_name("FILE.png")
        ->required();
    thumb->add_flag("--image", options.imageOnly,
                    "Render the image file itself instead of asking the providers");

    FileSystemOptions fileSystemOptions;
    auto* volumes = app.add_subcommand("volumes", "List the mounted volumes (volumes:)");
    volumes->add_flag("--json", fileSystemOptions.json, "Write JSON");

    auto* networkVolumes =
        app.add_subcommand("network-volumes", "List the mounted network shares (networkvolumes:)");
    networkVolumes->add_flag("--json", fileSystemOptions.json, "Write JSON");

    auto* cloud = app.add_subcommand(
        "cloud", "List the folders that cloud storage clients keep in sync (cloudsync:)");
    cloud->add_flag("--json", fileSystemOptions.json, "Write JSON");

    auto* favorites =
        app.add_subcommand("favorites", "List the favorite folders, or add or remove some");
    favorites
        ->add_option("action", fileSystemOptions.favoritesAction, "list (default), add or remove")
        ->check(CLI::IsMember({"list", "add", "remove"}));
    favorites->add_option("paths", fileSystemOptions.paths, "Folders to add or remove")
        ->type_name("PATH...");
    favorites->add_flag("--json", fileSystemOptions.json, "Write JSON");

    auto* watch = app.add_subcommand(
        "watch", "Print the changes of PATH (a folder, or volumes:) as they happen, until Ctrl-C");
    watch->add_option("path", fileSystemOptions.path, "Location to watch")->required();
    watch->add_flag("--json", fileSystemOptions.json, "Write one JSON object a line");
    watch->add_option("--count", fileSystemOptions.count, "Stop after this many changes")
        ->type_name("N")
        ->check(CLI::Validator(
            [](const std::string& text) {
                return text.find_first_not_of("0123456789") == std::string::npos && !text.empty()
                           ? std::string()
                           : "expects a whole number of changes, 0 or more, not '" + text + "'";
            },
            "N"));

    // The manual page and shell completions, made from the definitions above.
    std::string generate;
    app.add_option("--generate", generate, "Write the manual page or a shell completion script")
        ->check(CLI::IsMember({"man", "bash-completion", "zsh-completion"}))
        ->group("");

    try {
        std::vector<std::string> reversed(args.rbegin(), args.rend());
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        out << app.help();
        return 0;
    } catch (const CLI::CallForVersion&) {
        out << "tessel " << kVersionString << "\n";
        return 0;
    } catch (const CLI::ParseError& e) {
        err << "tessel: " << e.what() << "\n";
        err << "Run 'tessel --help' for usage.\n";
        return 2;
    }

    if (generate == "man")
        out << ManPage(app, kVersionString);
    else if (generate == "bash-completion")
        out << BashCompletion(app);
    else if (generate == "zsh-completion")
        out << ZshCompletion(app);
    if (!generate.empty())
        return 0;

    for (const auto& assignment : settings) {
        if (!Settings::SetFromAssignment(assignment)) {
            err << "tessel: --set expects KEY=VALUE, not '" << assignment << "'\n";
            return 2;
        }
        // The library's own keys are known; a misspelt one would be ignored without a word.
        const std::string key = assignment.substr(0, assignment.find('='));
        if (key.starts_with("Tessel.") && !Settings::IsDeclaredKey(key))
            err << "tessel: warning: no setting is called '" << key << "'; nothing reads it\n";
    }
    const std::vector<std::string> categories = Trace::DeclaredCategories();
    for (const auto& category : traces) {
        Trace::Enable(category);
        if (category == "all" ||
            std::find(categories.begin(), categories.end(), category) != categories.end())
            continue;
        err << "tessel: warning: no trace category is called '" << category
            << "'; the categories are:";
        for (const auto& known : categories)
            err << " " << known;
        err << " (or all)\n";
    }
    if (!prefsFile.empty()) {
        // A folder or a device named by mistake must not be read, moved or replaced.
        if (const Status usable = Preferences::CheckFile(prefsFile); !usable.IsOk()) {
            err << "tessel: --prefs: " << usable.Message() << "\n";
            return 2;
        }
        Preferences::UseFile(prefsFile);
    }
    if (!prefsFile.empty() || !ProviderHost::IsInitialized()) {
        if (const Status loaded = Preferences::Load(); !loaded.IsOk())
            err << "tessel: warning: " << loaded.Message() << "\n";
    }

    if (app.get_subcommands().empty()) {
        out << app.help();
        return 2;
    }
    // Rendering an image file by itself asks no provider, so it starts no host.
    if (thumb->parsed() && options.imageOnly)
        return RunThumbnail(options, out, err);
    HostSession session;
    if (providers->parsed()) {
        if (!options.all && providers->count("path") == 0) {
            err << "tessel: providers needs a PATH, or --all\n";
            return 2;
        }
        return RunProviders(options, out, err);
    }
    if (ls->parsed())
        return RunList(options, out, err);
    if (info->parsed())
        return RunInfo(options, out, err);
    if (def->parsed())
        return RunDefault(options, out, err);
    if (browse->parsed())
        return RunBrowse(options, out, err);
    if (thumb->parsed())
        return RunThumbnail(options, out, err);
    if (volumes->parsed())
        return RunVolumes(fileSystemOptions, out, err);
    if (networkVolumes->parsed())
        return RunNetworkVolumes(fileSystemOptions, out, err);
    if (cloud->parsed())
        return RunCloud(fileSystemOptions, out, err);
    if (favorites->parsed())
        return RunFavorites(fileSystemOptions, out, err);
    if (watch->parsed())
        return RunWatch(fileSystemOptions, out, err);
    return 2;
}

}  // namespace Tessel::Tool
