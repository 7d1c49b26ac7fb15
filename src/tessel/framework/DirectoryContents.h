// A once-read listing of one directory, shared by every provider asked about the same path
// in one ranking pass. It is read on the first provider's demand and never again: the
// first caller's abort predicate governs the only walk, and later callers see what it
// found. Not thread-safe: one pass runs on one thread.
#pragma once

#include <string>
#include <vector>

#include <tessel/foundation/Directory.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API DirectoryContents {
public:
    // Never lists the directory; it only tests whether PATH is one.
    explicit DirectoryContents(const std::u16string& path);

    bool PathIsValid() const { return mPathIsValid; }
    bool IsDirectory() const { return mIsDirectory; }
    const std::u16string& GetPath() const { return mPath; }

    // Entries other than sub-directories (hidden ones removed), in walk order.
    // The lists are the contents' own, shared by every provider of the pass, never copied.
    const std::vector<std::u16string>& GetFileList(const AbortPredicate& abort);
    // Sub-directories, hidden ones included, in walk order.
    const std::vector<Directory>& GetDirectoryList(const AbortPredicate& abort);
    // The file list followed by the sub-directories' paths.
    std::vector<std::u16string> GetPathList(const AbortPredicate& abort);

private:
    void GatherPaths(const AbortPredicate& abort);

    bool mGathered = false;
    bool mPathIsValid = false;
    bool mIsDirectory = false;
    std::u16string mPath;
    std::vector<std::u16string> mFileList;
    std::vector<Directory> mDirectoryList;
};

}  // namespace Tessel
