// The tool's commands, on the library's public API.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <tessel/framework/ContentRecord.h>
#include <tessel/platform/Status.h>

namespace Tessel {
class ProviderWrapper;
}

namespace Tessel::Tool {

struct CommandOptions {
    std::string path;
    bool all = false;
    bool json = false;
    bool mediaOnly = false;
    std::string provider;
    std::optional<std::string> fields;  // --fields as given; none: the default columns
    bool longListing = false;           // kind, size, date and name
    bool humanSizes = false;
    std::string sortBy;  // "name", "date", "size", or empty: the provider's order
    bool reverse = false;
    int depth = -1;  // browse: -1 is the default depth of the location
    // thumb
    std::vector<std::string> paths;
    std::string extraPath;
    std::string size = "256x144";
    std::string output;
    bool imageOnly = false;
};

int RunProviders(const CommandOptions& options, std::ostream& out, std::ostream& err);
int RunList(const CommandOptions& options, std::ostream& out, std::ostream& err);
int RunDefault(const CommandOptions& options, std::ostream& out, std::ostream& err);
int RunInfo(const CommandOptions& options, std::ostream& out, std::ostream& err);
int RunBrowse(const CommandOptions& options, std::ostream& out, std::ostream& err);

// Explains why nothing can show PATH; returns the exit status for it (1).
int ReportNoProvider(const std::u16string& path, std::ostream& err);
// Says the command was interrupted; returns the exit status for it (3).
int ReportInterrupted(std::ostream& err);
// The provider named by ID, or else the best one for PATH. Null, with STATUS set and the
// reason printed, when there is none.
ProviderWrapper* ChooseProvider(const std::u16string& path, const std::string& id,
                                std::ostream& err, int& status);

// How the tool turns a PATH argument into a location: list paths ("volumes:"), scheme
// paths ("CLSource://...") and Windows long paths pass unchanged; everything else is made
// absolute and loses trailing separators (a root keeps its own).
std::u16string NormalizeLocation(const std::string& argument);

// Ok when PATH is a folder that can be read (or no file-system folder at all); else why it
// cannot be ("cannot read /x: Permission denied"). Asked when a listing came back empty.
Status CheckFolderReadable(const std::u16string& path);

// How a listing is printed.
struct ListingStyle {
    bool json = false;
    bool longListing = false;  // kind, size, date and name, in place of the fields
    bool humanSizes = false;
    std::string sortBy;  // "name", "date", "size", or empty: the order of the answer
    bool reverse = false;
};

// The fields a long listing shows or a listing is sorted by, those of them that the provider
// has: its size, date and folder flag.
std::vector<std::u16string> ListingStyleFields(const ListingStyle& style,
                                               const FieldSet& providerFields);

// Prints a content answer for people or as JSON; an empty answer for a folder that cannot
// be read is reported as an error instead. Returns the exit status for it.
int PrintListing(const std::u16string& path, const std::u16string& providerID, ResultCode code,
                 const ContentMap& content, const std::vector<std::u16string>& fields,
                 const std::map<std::u16string, std::u16string>& labels, const ListingStyle& style,
                 std::ostream& out, std::ostream& err);

// An item as a host lists it, with the provider and the container that list it.
struct ListedItem {
    ProviderWrapper* wrapper = nullptr;
    std::u16string container;
    std::vector<std::u16string> fields;  // every field the item has, the provider's in column order
    std::u16string key;
    PropertyMap record;
};

// Finds PATH among the items of the folder above it, as a host lists that folder: the
// nearest folder up to four levels above that a provider other than the plain folder one
// claims (a card, which folds its files into clips) when its listing holds PATH, else PATH's
// own folder. ID names the provider to ask instead. Null, with STATUS set and the reason
// printed, when no listing holds PATH.
std::optional<ListedItem> FindListedItem(const std::u16string& path, const std::string& id,
                                         std::ostream& err, int& status);

// The second path a thumbnail request for the item carries: its ExtraPath, or the first of
// its related files when that is a list (the top clip of a shot).
std::u16string ItemExtraPath(const PropertyMap& record);
// Where an item of a listing is: its "Path" field when it has one, else its key. Most providers key
// their items by path; some key them by name (AVCHD by the shot's stream file name) and give the
// path in the field.
std::u16string ItemPath(const std::u16string& key, const PropertyMap& record);

// What an item is, in a word: "folder", "volume" (an entry of a volume list), "file" (an
// entry of the folder provider), or "item" (anything another provider shows, such as a clip).
std::string ItemKind(const std::u16string& providerID, const PropertyMap& record);

}  // namespace Tessel::Tool
