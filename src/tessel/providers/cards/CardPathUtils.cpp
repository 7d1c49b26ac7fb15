#include <tessel/providers/cards/CardPathUtils.h>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>

namespace Tessel {

DirVisitor::~DirVisitor() = default;

}  // namespace Tessel

namespace Tessel::CardPathUtils {

namespace {

void Append(std::u16string& path, std::u16string_view component) {
    const bool endsWithSeparator = !path.empty() && path.back() == Path::kSeparator;
    const bool startsWithSeparator = !component.empty() && component.front() == Path::kSeparator;
    if (endsWithSeparator && startsWithSeparator)
        component.remove_prefix(1);
    else if (!endsWithSeparator && !startsWithSeparator)
        path.push_back(Path::kSeparator);
    path.append(component);
}

// A folder that stands for a whole volume: its siblings are the other volumes.
bool IsDriveRoot(const Directory& folder, const Directory& parent,
                 const Platform::MountTableFiles& files) {
    if (!parent.Exists())
        return true;
#if defined(_WIN32)
    (void)folder;
    (void)files;
    return false;
#else
    return Platform::IsMountPoint(Path::ToNative(folder.GetFullPath()), files);
#endif
}

}  // namespace

std::u16string JoinPath(std::u16string_view first, std::u16string_view second) {
    std::u16string path(first);
    Append(path, second);
    return path;
}

std::u16string JoinPath(std::u16string_view first, std::u16string_view second,
                        std::u16string_view third) {
    std::u16string path = JoinPath(first, second);
    Append(path, third);
    return path;
}

std::u16string JoinPath(std::u16string_view first, std::u16string_view second,
                        std::u16string_view third, std::u16string_view fourth) {
    std::u16string path = JoinPath(first, second, third);
    Append(path, fourth);
    return path;
}

void VisitSiblingDirectories(const std::string& folderPath, DirVisitor& visitor,
                             const Platform::MountTableFiles& files) {
    if (folderPath.empty())
        return;
    const Directory folder(Utf8ToUtf16(folderPath));
    const Directory parent = folder.GetParent();
    if (!IsDriveRoot(folder, parent, files)) {
        for (const Directory& sibling : parent.GetSubDirectories()) {
            if (sibling == folder || !sibling.Exists())
                continue;
            if (!visitor.Visit(sibling))
                return;
        }
        return;
    }
    const std::u16string ownRoot = Path::AddTrailingSeparator(folder.GetFullPath());
    Platform::ForEachMountedDriveRoot(
        Path::ToNative(ownRoot),
        [&](const Platform::NativeString& root) {
            return visitor.Visit(Directory(Path::ToLongPath(Path::FromNative(root))));
        },
        files);
}

}  // namespace Tessel::CardPathUtils
