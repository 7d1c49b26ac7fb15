#include <tessel/providers/cards/AVCHDUtils.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include <tessel/foundation/Directory.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/platform/AtomicFile.h>

namespace Tessel::AVCHDUtils {

namespace {

constexpr std::u16string_view kLayoutRoot = u"BDMV";
constexpr std::u16string_view kStreamFolder = u"STREAM";
constexpr std::u16string_view kClipInfoFolder = u"CLIPINF";
constexpr std::u16string_view kPlaylistFolder = u"PLAYLIST";
constexpr std::u16string_view kShortPlaylistExtension = u".MPL";
constexpr std::u16string_view kPlaylistExtension = u".mpls";
constexpr std::u16string_view kShortStreamExtension = u".MTS";
constexpr std::u16string_view kStreamExtension = u".m2ts";
// '#' stands for one decimal digit; every other character is itself.
constexpr std::u16string_view kStreamNamePattern = u"#####.";
constexpr std::array<std::u16string_view, 4> kStreamNameExtensions = {u"MTS", u"mts", u"M2TS",
                                                                      u"m2ts"};
constexpr std::size_t kShortestStreamName = 9;
constexpr std::size_t kClipNameLength = 5;

// The playlist's fixed places (see AVCHDUtils.h).
constexpr std::size_t kShortestPlaylist = 20;  // a file must be longer
constexpr std::size_t kPlayListAddressOffset = 8;
constexpr std::size_t kFirstPlayItemOffset = 10;  // from the PlayList's start
constexpr std::size_t kPlayItemCountOffset = 6;
constexpr std::size_t kClipNameOffset = 2;     // in a PlayItem
constexpr std::size_t kConnectionOffset = 12;  // in a PlayItem

std::uint32_t BigEndian(std::span<const std::uint8_t> bytes, std::size_t offset, int count) {
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i)
        value = value << 8 | bytes[offset + static_cast<std::size_t>(i)];
    return value;
}

bool StartsWithText(std::span<const std::uint8_t> bytes, std::size_t offset,
                    std::string_view text) {
    return offset + text.size() <= bytes.size() &&
           std::equal(text.begin(), text.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                      [](char c, std::uint8_t b) { return static_cast<std::uint8_t>(c) == b; });
}

bool IsDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

std::u16string Upper(std::u16string_view text) {
    std::u16string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), UpperCaseCodeUnit);
    return upper;
}

std::u16string Leaf(std::u16string_view path) {
    return Path::GetFilePart(path);
}

// A file name without its extension (up to its last dot).
std::u16string Title(std::u16string_view path) {
    std::u16string leaf = Leaf(path);
    if (const std::size_t dot = leaf.rfind(u'.'); dot != std::u16string::npos)
        leaf.resize(dot);
    return leaf;
}

bool IsClipName(std::u16string_view name) {
    return name.size() == kClipNameLength && std::all_of(name.begin(), name.end(), IsDigit);
}

std::span<const std::uint8_t> AsBytes(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// Collects the clip names of the PlayItems that begin a shot.
class ShotHeadClipFinder final : public PlayItemVisitor {
public:
    explicit ShotHeadClipFinder(std::vector<std::u16string>* names) : mNames(names) {}
    bool Visit(std::span<const std::uint8_t> item) override {
        if (PlayItemConnection(item) != kSeamlessConnection) {
            if (std::u16string name = PlayItemClipName(item); !name.empty())
                mNames->push_back(std::move(name));
        }
        return true;
    }

private:
    std::vector<std::u16string>* mNames;
};

// Collects the clip names of the shot that holds the target clip, from its head on; the walk
// stops at the next shot head once the target has been met.
class PlayItemClipFinder final : public PlayItemVisitor {
public:
    PlayItemClipFinder(std::u16string_view target, bool* found, std::vector<std::u16string>* names)
        : mTarget(target), mFound(found), mNames(names) {}
    bool Visit(std::span<const std::uint8_t> item) override {
        if (PlayItemConnection(item) != kSeamlessConnection) {
            if (*mFound)
                return false;
            mNames->clear();
        }
        std::u16string name = PlayItemClipName(item);
        if (name.empty())
            return true;
        *mFound = *mFound || name.compare(0, kClipNameLength, mTarget) == 0;
        mNames->push_back(std::move(name));
        return true;
    }

private:
    std::u16string mTarget;
    bool* mFound;
    std::vector<std::u16string>* mNames;
};

std::u16string FormatClipNumber(int number) {
    char text[16];
    std::snprintf(text, sizeof text, "%05d", number);
    return Utf8ToUtf16(text);
}

}  // namespace

PlayItemVisitor::~PlayItemVisitor() = default;

bool IsStreamFileName(std::u16string_view name) {
    if (name.size() < kShortestStreamName)
        return false;
    for (std::size_t i = 0; i < kStreamNamePattern.size(); ++i) {
        const bool matches =
            kStreamNamePattern[i] == u'#' ? IsDigit(name[i]) : name[i] == kStreamNamePattern[i];
        if (!matches)
            return false;
    }
    const std::u16string_view extension = name.substr(kStreamNamePattern.size());
    return std::find(kStreamNameExtensions.begin(), kStreamNameExtensions.end(), extension) !=
           kStreamNameExtensions.end();
}

bool IsAVCHDClipFile(const std::u16string& path) {
    if (!IsClipName(Title(path)))
        return false;
    const std::u16string extension = Path::GetExtensionLower(std::u16string_view(path));
    std::u16string_view expected, sibling;
    if (extension == u".mts" || extension == u".m2ts") {
        expected = kStreamFolder, sibling = kClipInfoFolder;
    } else if (extension == u".cpi" || extension == u".clpi") {
        expected = kClipInfoFolder, sibling = kStreamFolder;
    } else {
        return false;
    }
    const std::u16string folder = Path::GetParent(std::u16string_view(path));
    const std::u16string root = Path::GetParent(std::u16string_view(folder));
    if (root.empty() || Path::IsRoot(folder) || !EqualsIgnoringCase(Leaf(folder), expected) ||
        !EqualsIgnoringCase(Leaf(root), kLayoutRoot))
        return false;
    FolderIndex layout(root);
    return layout.FindFolder(kPlaylistFolder) && layout.FindFolder(sibling);
}

std::u16string PlayItemClipName(std::span<const std::uint8_t> item) {
    if (item.size() < kClipNameOffset + kClipNameLength)
        return {};
    std::u16string name;
    for (std::size_t i = 0; i < kClipNameLength; ++i)
        name.push_back(static_cast<char16_t>(item[kClipNameOffset + i]));
    return IsClipName(name) ? name : std::u16string();
}

int PlayItemConnection(std::span<const std::uint8_t> item) {
    return item.size() > kConnectionOffset ? item[kConnectionOffset] & 0x0F : -1;
}

void VisitPlayItemsInBytes(std::span<const std::uint8_t> bytes, PlayItemVisitor& visitor) {
    const std::uint64_t size = bytes.size();
    if (size <= kShortestPlaylist || !StartsWithText(bytes, 0, "MPLS") ||
        !StartsWithText(bytes, 4, "0100"))
        return;
    const std::uint64_t start = BigEndian(bytes, kPlayListAddressOffset, 4);
    if (start + kFirstPlayItemOffset > size)
        return;
    const std::uint64_t length = BigEndian(bytes, start, 4);
    const std::uint32_t count = BigEndian(bytes, start + kPlayItemCountOffset, 2);
    if (count == 0 || length + 4 + start > size)
        return;
    std::uint64_t current = start + kFirstPlayItemOffset;
    for (std::uint32_t i = 0; i < count && current + 2 <= size; ++i) {
        const std::uint64_t next = current + 2 + BigEndian(bytes, current, 2);
        // The next PlayItem must start before the file's last byte.
        if (next >= size - 1)
            return;
        const std::span<const std::uint8_t> item = bytes.subspan(current, next - current);
        if (!visitor.Visit(item))
            return;
        current = next;
    }
}

void VisitPlayItems(const std::u16string& playlistPath, PlayItemVisitor& visitor) {
    const std::string bytes = ReadCardFile(playlistPath);
    VisitPlayItemsInBytes(AsBytes(bytes), visitor);
}

std::vector<std::u16string> ShotHeadNames(std::span<const std::uint8_t> bytes) {
    std::vector<std::u16string> names;
    ShotHeadClipFinder finder(&names);
    VisitPlayItemsInBytes(bytes, finder);
    return names;
}

std::vector<std::u16string> ShotNames(std::span<const std::uint8_t> bytes,
                                      std::u16string_view target) {
    std::vector<std::u16string> names;
    bool found = false;
    PlayItemClipFinder finder(target, &found, &names);
    VisitPlayItemsInBytes(bytes, finder);
    if (!found)
        names.clear();
    return names;
}

void GetShotHeadClips(const std::u16string& playlistPath,
                      std::vector<std::u16string>& streamPaths) {
    const std::u16string folder = Path::GetParent(std::u16string_view(playlistPath));
    Layout layout(Path::GetParent(std::u16string_view(folder)));
    layout.ShotHeadClips(playlistPath, streamPaths);
}

void GetShotClips(const std::u16string& streamPath, std::vector<std::u16string>& streamPaths) {
    if (!IsAVCHDClipFile(streamPath))
        return;
    const std::u16string folder = Path::GetParent(std::u16string_view(streamPath));
    Layout layout(Path::GetParent(std::u16string_view(folder)));
    FolderIndex own(folder);
    layout.ShotClips(Title(streamPath), own, streamPaths);
}

std::string ReadCardFile(const std::u16string& path) {
    std::string bytes, error;
    if (Platform::ReadWholeFile(Path::ToNative(std::u16string_view(path)), bytes, error,
                                kLargestCardFile) != Platform::ReadFileStatus::Ok)
        bytes.clear();
    return bytes;
}

FolderIndex::FolderIndex(std::u16string folder) : mFolder(std::move(folder)) {}

std::optional<std::u16string> FolderIndex::Names::Find(std::u16string_view name) const {
    if (const auto found = exact.find(std::u16string(name)); found != exact.end())
        return paths[found->second];
    if (const auto found = folded.find(Upper(name)); found != folded.end())
        return paths[found->second];
    return std::nullopt;
}

void FolderIndex::Names::Add(std::u16string path) {
    const std::u16string leaf = Leaf(path);
    exact.emplace(leaf, paths.size());
    folded.emplace(Upper(leaf), paths.size());
    paths.push_back(std::move(path));
}

void FolderIndex::Read() {
    if (mRead)
        return;
    mRead = true;
    if (mFolder.empty())
        return;
    std::vector<std::u16string> files;
    std::vector<Directory> folders;
    if (!Directory(mFolder).GetContainedFileAndDirectoryPaths(files, folders, {}).IsOk())
        return;
    for (const Directory& folder : folders)
        mFolders.Add(folder.GetFullPath());
    mVisibleFiles = files;
    Path::RemoveHiddenFiles(mVisibleFiles);
    for (std::u16string& file : files)
        mFiles.Add(std::move(file));
}

std::optional<std::u16string> FolderIndex::FindFile(std::u16string_view name) {
    Read();
    return mFiles.Find(name);
}

std::optional<std::u16string> FolderIndex::FindFolder(std::u16string_view name) {
    Read();
    return mFolders.Find(name);
}

std::optional<std::u16string> FolderIndex::FindFirstFile(
    std::u16string_view name, std::initializer_list<std::u16string_view> extensions) {
    for (std::u16string_view extension : extensions) {
        if (auto found = FindFile(std::u16string(name) + std::u16string(extension)))
            return found;
    }
    return std::nullopt;
}

const std::vector<std::u16string>& FolderIndex::VisibleFiles() {
    Read();
    return mVisibleFiles;
}

Layout::Layout(const std::u16string& root) : mRoot(root) {}

FolderIndex& Layout::Sub(std::unique_ptr<FolderIndex>& index, std::u16string_view name) {
    if (!index)
        index = std::make_unique<FolderIndex>(mRoot.FindFolder(name).value_or(std::u16string()));
    return *index;
}

FolderIndex& Layout::Stream() {
    return Sub(mStream, kStreamFolder);
}

FolderIndex& Layout::ClipInfo() {
    return Sub(mClipInfo, kClipInfoFolder);
}

FolderIndex& Layout::Playlists() {
    return Sub(mPlaylists, kPlaylistFolder);
}

bool Layout::HasFolder(std::u16string_view name) {
    return mRoot.FindFolder(name).has_value();
}

const std::string& Layout::PlaylistBytes(const std::u16string& path) {
    auto found = mPlaylistBytes.find(path);
    if (found == mPlaylistBytes.end())
        found = mPlaylistBytes.emplace(path, ReadCardFile(path)).first;
    return found->second;
}

void Layout::ShotHeadClips(const std::u16string& playlistPath, std::vector<std::u16string>& out) {
    FolderIndex& stream = Stream();
    if (stream.GetPath().empty())
        return;
    for (const std::u16string& name : ShotHeadNames(AsBytes(PlaylistBytes(playlistPath)))) {
        if (auto file = stream.FindFirstFile(name, {kShortStreamExtension, kStreamExtension}))
            out.push_back(std::move(*file));
    }
}

void Layout::ShotClips(std::u16string_view title, FolderIndex& ownFolder,
                       std::vector<std::u16string>& out) {
    int number = -1;
    if (IsClipName(title))
        number = std::stoi(Utf16ToUtf8(title));
    FolderIndex& playlists = Playlists();
    for (; number >= 0; --number) {
        const std::optional<std::u16string> playlist = playlists.FindFirstFile(
            FormatClipNumber(number), {kShortPlaylistExtension, kPlaylistExtension});
        if (!playlist)
            continue;
        const std::vector<std::u16string> names =
            ShotNames(AsBytes(PlaylistBytes(*playlist)), title);
        if (names.empty())
            continue;
        for (const std::u16string& name : names) {
            if (auto file =
                    ownFolder.FindFirstFile(name, {kShortStreamExtension, kStreamExtension}))
                out.push_back(std::move(*file));
        }
        return;
    }
}

}  // namespace Tessel::AVCHDUtils
