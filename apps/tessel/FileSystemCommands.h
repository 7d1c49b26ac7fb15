// The tool's commands for the file-system lists: volumes, network volumes, cloud-sync
// folders, the favorites, and watching a location for changes.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Tessel::Tool {

struct FileSystemOptions {
    bool json = false;
    // favorites: "list", "add" or "remove", and the folders to add or remove
    std::string favoritesAction = "list";
    std::vector<std::string> paths;
    // watch: the location, and how many changes to print before stopping (0: until Ctrl-C)
    std::string path;
    int count = 0;
};

// The lists "volumes:", "networkvolumes:" and "cloudsync:" through their providers: the
// default columns for people, every column as JSON.
int RunVolumes(const FileSystemOptions& options, std::ostream& out, std::ostream& err);
int RunNetworkVolumes(const FileSystemOptions& options, std::ostream& out, std::ostream& err);
int RunCloud(const FileSystemOptions& options, std::ostream& out, std::ostream& err);

// Lists, adds or removes favorites and prints the list that results. A stored list that
// could not be read is reported as a warning saying where its text was kept. Adding refuses
// every path when one is not an existing folder; removing a path that is no favorite only
// warns. Exit status 1 when the list cannot be saved.
int RunFavorites(const FileSystemOptions& options, std::ostream& out, std::ostream& err);

// Watches a location through its best provider (a folder without one is watched directly)
// and prints one line per change message: "DIR: entry, entry", "DIR: many changes",
// "DIR: gone", "volumes: changed". Ends with status 0 on Ctrl-C or after the asked number of
// changes, since stopping is the normal end of a watch; with 1 when the folder went away or
// the location cannot be watched.
int RunWatch(const FileSystemOptions& options, std::ostream& out, std::ostream& err);

}  // namespace Tessel::Tool
