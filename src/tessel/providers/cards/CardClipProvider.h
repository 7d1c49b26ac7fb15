// The common shape of the card providers that fold a card's files into clips, one item each
// (XDCAM EX, XAVC, Canon XF and XF-HEVC), and the folder walks they share.
//
// Recognition (CanProvideFor): the format's card test on a folder: 100 for a clean card root,
// 40 when foreign entries lie beside the card's structure, 0 when the folder is no card root.
// Listing (GetContent of a card root): one item per clip, keyed by its (first) essence file,
// which is also its Path; Name is the clip's name; ExtraPath lists the clip's files, its own
// item path first (a thumbnail request carries the first entry). Every entry of the card that
// is neither structure nor a clip's file is listed as itself (a folder as a folder item), so
// nothing on the card is out of reach. Metadata columns come from the clip's essence through
// exempi and, for what that leaves out, from the clip's own metadata files, which each format
// reads in its own way.
// Thumbnails are small by contract (GetMaximumThumbnailHeight caps them at 16 pixels): a clip
// shows the picture its card keeps of it, or, without one, the camera-card picture (image
// resource 10000); a file beside the clips is drawn from itself when it is an image.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <tessel/foundation/Directory.h>
#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>
#include <tessel/providers/cards/CardFieldLists.h>

namespace Tessel {

class TESSEL_API CardClipProvider : public CardColumnsProvider {
public:
    // One clip of a listing.
    struct Clip {
        std::u16string name;
        std::u16string itemPath;            // its essence (the first piece of a spanned one)
        std::vector<std::u16string> files;  // its files in listing order
        std::vector<std::u16string> metadataFiles;  // its own metadata files, piece by piece
    };
    // An entry of the card listed as itself.
    struct Entry {
        std::u16string path;
        bool folder = false;
    };
    struct Listing {
        std::vector<Clip> clips;
        std::vector<Entry> others;
    };

    SDKContentMap GetContent(const std::string& path, const any_regular_t& state,
                             const SDKFieldSet& fields, ProviderRequest* request) override;
    int CanProvideFor(const std::string& path, const any_regular_t& state,
                      DirectoryContents& contents, const AbortPredicate& abort) override;
    std::uint32_t GetMaximumThumbnailHeight(std::uint32_t requestedHeight) override;
    PelPixHandle GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                              const any_regular_t& state, std::uint32_t width, std::uint32_t height,
                              ProviderRequest* request) override;
    bool ShouldCheckFilter() override;
    bool IsSelectable() override;

protected:
    // True when CONTENTS is a card root of the format; EXTRA tells whether foreign entries lie
    // beside its structure.
    virtual bool CardTest(DirectoryContents& contents, bool& extra,
                          const AbortPredicate& abort) = 0;
    // The clips and other entries of the card whose root is ROOT (no trailing separator).
    virtual Listing ListCard(const std::u16string& root, const AbortPredicate& abort) = 0;
    // The values of the wanted metadata fields that the essence's XMP leaves out, from the
    // clip's own metadata files.
    virtual void FillClipValues(SDKPropertyMap& record, const SDKFieldSet& fields,
                                const Clip& clip) = 0;
    // The picture the card keeps of the clip whose essence is ESSENCE; empty when none.
    virtual std::u16string ClipPicture(const std::u16string& essence);
};

// Folder walks of the card providers. Walks are in walk order (NTFS order on every platform);
// hidden entries are left out everywhere.
namespace CardWalk {

std::u16string Leaf(const std::u16string& path);
std::u16string Upper(std::u16string_view text);
bool HasExtension(const std::u16string& path, std::u16string_view lowerExtension);

struct FolderEntries {
    std::vector<std::u16string> files;
    std::vector<Directory> folders;
};

// The visible files and sub-folders of FOLDER.
FolderEntries ReadFolder(const std::u16string& folder, const AbortPredicate& abort);
// The visible entries of a ranking pass's folder when it holds a folder named one of TOPS
// (whatever its letter case); std::nullopt, the lists neither copied nor examined further, when
// it holds none, as most folders do.
std::optional<FolderEntries> ReadCardRoot(DirectoryContents& contents,
                                          std::initializer_list<std::u16string_view> tops,
                                          const AbortPredicate& abort);
// Files and folders as one list in walk order.
std::vector<CardClipProvider::Entry> InWalkOrder(const FolderEntries& entries);

// The entry of ENTRIES named NAME, found as an existence test finds it, whatever its letter
// case; empty when none. For the top folder of a card layout.
std::u16string FindFolder(const FolderEntries& entries, std::u16string_view name);

// A row of a layout's table: a required name sets bit BIT; a tolerated one has kTolerated.
struct LayoutName {
    std::u16string_view name;
    int bit;
};
inline constexpr int kTolerated = -1;

// Tests ENTRIES (leaves compared exactly) against TABLE: true when every required bit of the
// table is set. EXTRA is raised by any entry the table does not name, wherever it comes.
bool TestLayout(const FolderEntries& entries, std::span<const LayoutName> table, bool& extra);
// True when TABLE names LEAF.
bool InLayout(std::span<const LayoutName> table, const std::u16string& leaf);

// Adds each entry of ENTRIES whose leaf IS_STRUCTURE does not claim to OTHERS, in walk order.
void AddOthers(const FolderEntries& entries, std::vector<CardClipProvider::Entry>& others,
               const std::function<bool(const std::u16string& leaf)>& isStructure);

}  // namespace CardWalk

}  // namespace Tessel
