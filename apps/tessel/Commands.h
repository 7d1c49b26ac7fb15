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

namespace Tessel::Tool {

struct CommandOptions {
    std::string path;
    bool all = false;
    bool json = false;
    bool mediaOnly = false;
    std::string provider;
    std::optional<std::string> fields;  // --fields as given; none: the default columns
    int depth = 8;
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
int RunBrowse(const CommandOptions& options, std::ostream& out, std::ostream& err);
int RunThumbnail(const CommandOptions& options, std::ostream& out, std::ostream& err);

// Reads "WxH" (each 0..16384; 0 keeps the image's own size on that side).
std::optional<std::pair<std::uint32_t, std::uint32_t>> ParseThumbnailSize(const std::string& text);

// How the tool turns a PATH argument into a location: list paths ("volumes:"), scheme
// paths ("CLSource://...") and Windows long paths pass unchanged; everything else is made
// absolute and loses trailing separators (a root keeps its own).
std::u16string NormalizeLocation(const std::string& argument);

// Ok when PATH is a folder that can be read (or no file-system folder at all); else why it
// cannot be ("cannot read /x: Permission denied"). Asked when a listing came back empty.
Status CheckFolderReadable(const std::u16string& path);

// Prints a content answer for people or as JSON; an empty answer for a folder that cannot
// be read is reported as an error instead. Returns the exit status for it.
int PrintListing(const std::u16string& path, const std::u16string& providerID, ResultCode code,
                 const ContentMap& content, const std::vector<std::u16string>& fields,
                 const std::map<std::u16string, std::u16string>& labels, bool json,
                 std::ostream& out, std::ostream& err);

}  // namespace Tessel::Tool
