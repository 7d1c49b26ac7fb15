// AVCHD media (consumer and prosumer camcorders, and folders written in the same BDMV layout):
// the binary playlists that tell which stream files make up each recording, and the names of
// the layout. Under the layout root BDMV/:
//   index.bdmv (INDEX.BDM), MovieObject.bdmv (MOVIEOBJ.BDM)   the disc's tables
//   PLAYLIST/00000.mpls (00000.MPL)    playlists: PlayItems naming clips in playing order
//   CLIPINF/00000.clpi (00000.CPI)     each clip's information
//   STREAM/00000.m2ts (00000.MTS)      each clip's transport stream; 00000.xmp once a tool
//                                      annotated it
//   BACKUP/                            the camera's copies of the tables and playlists
// A camera splits a long recording (a shot) into several clips; the PlayItem of each later
// piece has connection condition 6, a seamless continuation of the item before it.
//
// A playlist (big-endian) starts with "MPLS" and the version "0100"; at offset 8 is the
// address P of the PlayList: its length L, two reserved bytes, the number of PlayItems N, the
// number of sub-paths, then the PlayItems. A PlayItem starts with the 16-bit length of what
// follows, the clip's five-digit name and codec ("M2TS"), and holds its connection condition in
// the low four bits of its 13th byte. A file is walked only when it is longer than 20 bytes,
// P + 10 and P + L + 4 lie within it and N is not 0. A PlayItem is visited only when the one
// after it would start before the file's last byte, so the last PlayItem of a file that ends
// right after it is never visited. A PlayItem too short to hold its name and connection
// condition names no clip and begins a shot. Any other version (a Blu-ray disc's "0200" or "0300")
// yields no PlayItems: those discs are not camera media.
//
// Fixed names are found as Windows finds them, in any letter case ("INDEX.BDM" answers
// "index.bdm"), the name as written tried first; the answer is the name on disk.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <tessel/platform/Export.h>

namespace Tessel::AVCHDUtils {

// A stream file's name (no folder): at least 9 characters, five digits, ".", then exactly
// "MTS", "mts", "M2TS" or "m2ts".
TESSEL_API bool IsStreamFileName(std::u16string_view name);

// A clip's stream file (".mts", ".m2ts" in STREAM) or clip information (".cpi", ".clpi" in
// CLIPINF), any letter case, named by five digits, whose folder is not a top-level one and
// sits in a "BDMV" folder that also holds "PLAYLIST" and the clip's other folder.
TESSEL_API bool IsAVCHDClipFile(const std::u16string& path);

// Offered the PlayItems of a playlist in order, from the start of each.
class TESSEL_API PlayItemVisitor {
public:
    // ITEM: the PlayItem's bytes from its length field to its end (at least the length field).
    // True goes on with the next PlayItem, false stops the walk.
    virtual bool Visit(std::span<const std::uint8_t> item) = 0;
    virtual ~PlayItemVisitor();
};

// The clip a PlayItem names: its five digits, or empty when those bytes are not five digits.
TESSEL_API std::u16string PlayItemClipName(std::span<const std::uint8_t> item);
// A PlayItem's connection condition: 6 continues the shot of the item before it; -1 when the
// item is too short to hold one.
TESSEL_API int PlayItemConnection(std::span<const std::uint8_t> item);
inline constexpr int kSeamlessConnection = 6;

// Reads the playlist at PLAYLIST_PATH (a regular file) and offers VISITOR its PlayItems.
TESSEL_API void VisitPlayItems(const std::u16string& playlistPath, PlayItemVisitor& visitor);
// The same for a playlist's bytes held in memory.
TESSEL_API void VisitPlayItemsInBytes(std::span<const std::uint8_t> bytes,
                                      PlayItemVisitor& visitor);

// The clip names of the shot heads of a playlist (PlayItems that do not continue a shot), and
// the names of the shot that holds TARGET (its PlayItems from the head on), in playing order.
TESSEL_API std::vector<std::u16string> ShotHeadNames(std::span<const std::uint8_t> bytes);
TESSEL_API std::vector<std::u16string> ShotNames(std::span<const std::uint8_t> bytes,
                                                 std::u16string_view target);

// Appends the stream files of the shot heads of the playlist at PLAYLIST_PATH: for each head
// N, N.MTS or else N.m2ts in the STREAM folder beside the playlist's folder, when it exists.
TESSEL_API void GetShotHeadClips(const std::u16string& playlistPath,
                                 std::vector<std::u16string>& streamPaths);

// Appends the stream files of every clip of the shot that holds the clip file STREAM_PATH, in
// playing order (the head first), found in the clip file's own folder. The playlists are
// searched from the one numbered like the clip down to 00000 (".MPL", else ".mpls"), and the
// first that names the clip answers.
TESSEL_API void GetShotClips(const std::u16string& streamPath,
                             std::vector<std::u16string>& streamPaths);

// One folder's entries, read on first use and never again, answering existence tests of names
// as Windows does. For one thread.
class FolderIndex {
public:
    FolderIndex() = default;
    explicit FolderIndex(std::u16string folder);

    const std::u16string& GetPath() const { return mFolder; }
    // The path of the file (or folder) NAME in the folder: the exact name first, then any
    // letter case; std::nullopt when there is none.
    std::optional<std::u16string> FindFile(std::u16string_view name);
    std::optional<std::u16string> FindFolder(std::u16string_view name);
    // The first of NAME + each of EXTENSIONS (with their dots) that exists as a file.
    std::optional<std::u16string> FindFirstFile(
        std::u16string_view name, std::initializer_list<std::u16string_view> extensions);
    // The files, hidden ones left out, in walk order.
    const std::vector<std::u16string>& VisibleFiles();

private:
    struct Names {
        std::vector<std::u16string> paths;
        std::unordered_map<std::u16string, std::size_t> exact;   // leaf -> position
        std::unordered_map<std::u16string, std::size_t> folded;  // upper-cased leaf -> first
        std::optional<std::u16string> Find(std::u16string_view name) const;
        void Add(std::u16string path);
    };
    void Read();

    std::u16string mFolder;
    bool mRead = false;
    Names mFiles;
    Names mFolders;
    std::vector<std::u16string> mVisibleFiles;
};

// A layout root (BDMV) and its folders as one listing reads them: each folder read once, each
// playlist read once however many times it is searched.
class Layout {
public:
    explicit Layout(const std::u16string& root);

    const std::u16string& GetRoot() const { return mRoot.GetPath(); }
    FolderIndex& Root() { return mRoot; }
    FolderIndex& Stream();
    FolderIndex& ClipInfo();
    FolderIndex& Playlists();
    bool HasFolder(std::u16string_view name);
    // The bytes of a playlist, read once (empty when it cannot be read).
    const std::string& PlaylistBytes(const std::u16string& path);

    // GetShotHeadClips for a playlist of this layout.
    void ShotHeadClips(const std::u16string& playlistPath, std::vector<std::u16string>& out);
    // GetShotClips for the clip TITLE, its stream files looked for in OWN_FOLDER.
    void ShotClips(std::u16string_view title, FolderIndex& ownFolder,
                   std::vector<std::u16string>& out);

private:
    FolderIndex& Sub(std::unique_ptr<FolderIndex>& index, std::u16string_view name);

    FolderIndex mRoot;
    std::unique_ptr<FolderIndex> mStream, mClipInfo, mPlaylists;
    std::map<std::u16string, std::string> mPlaylistBytes;
};

// The largest playlist or clip information file that is read (a playlist of 65535 PlayItems
// with their stream tables stays well below it).
inline constexpr std::uint64_t kLargestCardFile = 16 * 1024 * 1024;

// The whole of a regular file at PATH, at most kLargestCardFile bytes; empty when it cannot be
// read.
std::string ReadCardFile(const std::u16string& path);

}  // namespace Tessel::AVCHDUtils
