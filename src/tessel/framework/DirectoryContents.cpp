#include <tessel/framework/DirectoryContents.h>

#include <tessel/foundation/Path.h>

namespace Tessel {

namespace {
// The collaboration server's production list is a virtual path that must never touch disk.
constexpr std::u16string_view kServerProductionsPath = u"frserver://productions";
}  // namespace

DirectoryContents::DirectoryContents(const std::u16string& path)
    : mPathIsValid(!path.empty()), mPath(path) {
    if (mPathIsValid && path != kServerProductionsPath) {
        mIsDirectory = Path::DirectoryExists(path);
    }
}

void DirectoryContents::GatherPaths(const AbortPredicate& abort) {
    if (mGathered) return;
    if (mPathIsValid && mIsDirectory) {
        Directory directory(mPath);
        directory.GetContainedFileAndDirectoryPaths(mFileList, mDirectoryList, abort, -1);
        Path::RemoveHiddenFiles(mFileList);
    }
    mGathered = true;
}

std::vector<std::u16string> DirectoryContents::GetFileList(const AbortPredicate& abort) {
    GatherPaths(abort);
    return mFileList;
}

std::vector<Directory> DirectoryContents::GetDirectoryList(const AbortPredicate& abort) {
    GatherPaths(abort);
    return mDirectoryList;
}

std::vector<std::u16string> DirectoryContents::GetPathList(const AbortPredicate& abort) {
    GatherPaths(abort);
    std::vector<std::u16string> paths = mFileList;
    paths.reserve(paths.size() + mDirectoryList.size());
    for (const Directory& d : mDirectoryList) paths.push_back(d.ToString());
    return paths;
}

}  // namespace Tessel
