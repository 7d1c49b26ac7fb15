#include <tessel/framework/DirectoryContents.h>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/PathStyle.h>

namespace Tessel {

namespace {
// The collaboration server's production list is a virtual path that must never touch disk.
constexpr std::u16string_view kServerProductionsPath = u"frserver://productions";

// Only an absolute path can name a directory. List paths ("volumes:") and scheme paths are
// relative in form, and testing them would ask about a same-named entry of the current
// directory.
bool MayBeDirectory(const std::u16string& path) {
    return path != kServerProductionsPath && Path::IsAbsolute(Path::kNativePathStyle, path);
}
}  // namespace

DirectoryContents::DirectoryContents(const std::u16string& path)
    : mPathIsValid(!path.empty()), mPath(path) {
    if (mPathIsValid && MayBeDirectory(path)) {
        mIsDirectory = Path::DirectoryExists(path);
    }
}

void DirectoryContents::GatherPaths(const AbortPredicate& abort) {
    if (mGathered)
        return;
    if (mPathIsValid && mIsDirectory) {
        Directory directory(mPath);
        // A directory that cannot be read lists nothing; a provider that must tell why reads
        // it again itself.
        directory.GetContainedFileAndDirectoryPaths(mFileList, mDirectoryList, abort, -1).Ignore();
        Path::RemoveHiddenFiles(mFileList);
    }
    mGathered = true;
}

const std::vector<std::u16string>& DirectoryContents::GetFileList(const AbortPredicate& abort) {
    GatherPaths(abort);
    return mFileList;
}

const std::vector<Directory>& DirectoryContents::GetDirectoryList(const AbortPredicate& abort) {
    GatherPaths(abort);
    return mDirectoryList;
}

std::vector<std::u16string> DirectoryContents::GetPathList(const AbortPredicate& abort) {
    GatherPaths(abort);
    std::vector<std::u16string> paths = mFileList;
    paths.reserve(paths.size() + mDirectoryList.size());
    for (const Directory& d : mDirectoryList)
        paths.push_back(d.ToString());
    return paths;
}

}  // namespace Tessel
