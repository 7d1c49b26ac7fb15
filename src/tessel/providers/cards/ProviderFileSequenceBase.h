// Clips recorded as a folder of one file per frame (DPX scans, CinemaDNG, ARRIRAW, Canon RAW):
// the folder is the clip, and it is listed as one item, its first frame file. The subclasses
// differ only in the frame files they recognise, their names and pictures, and the files and
// fields they add to the item.
//
// Recognition (CanProvideFor): a folder with at least one frame file among its own files (not
// in sub-folders) scores 100, whatever else lies beside it; 0 otherwise. The test reads the
// names of the ranking pass's shared listing in place, stopping at the first frame file, so a
// folder of a hundred thousand frames costs one read of the folder for every provider
// together.
//
// Listing (GetContent of the folder): the folder is read once, unsorted, hidden files left
// out by what the read says of them (no question per file). The item is the first frame file
// in the order of a walk (NTFS order on every platform: upper-cased code units, ordinal),
// found without sorting the rest, so 0001.dpx stands for 0001.dpx ... 0240.dpx whatever the
// digits of the others. Its key and Path are the frame file's path, Name its file name;
// metadata fields come from the frame through exempi: its XMP sidecar (its name with ".xmp",
// found in the listing whatever its letter case), else the XMP the frame holds (a DNG's); the
// subclass then adds its own (AddItemFields), reading the same listing. Nothing
// else of the folder is listed.
//
// Thumbnails are the provider's picture, no higher than 16 pixels.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <tessel/framework/Provider.h>
#include <tessel/metadata/XMPFields.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API ProviderFileSequenceBase : public Provider {
public:
    SDKContentMap GetContent(const std::string& path, const any_regular_t& state,
                             const SDKFieldSet& fields, ProviderRequest* request) override;
    SDKFieldSet GetFieldList() override;
    std::vector<std::string> GetDefaultFieldList() override;
    std::map<std::u16string, std::u16string> GetFieldLabelList() override;
    int CanProvideFor(const std::string& path, const any_regular_t& state,
                      DirectoryContents& contents, const AbortPredicate& abort) override;
    std::uint32_t GetMaximumThumbnailHeight(std::uint32_t requestedHeight) override;
    bool ShouldCheckFilter() override;
    bool IsSelectable() override;

    // True when the folder of CONTENTS holds a frame file. EXTRA_CONTENTS (whether foreign
    // files lie beside the frames, which would lower the score to 40) is cleared; no provider
    // of frame folders sets it, since scans and cameras put their own files beside frames.
    virtual bool IsSequenceFolder(const std::u16string& folder, bool& extraContents,
                                  DirectoryContents& contents, const AbortPredicate& abort);
    // The first frame file of FILES (a folder's files, in any order) in the order of a walk
    // (NTFS order): its full path appended to PATHS and its file name to NAMES; nothing when
    // there is none.
    virtual void GetFirstFrameFile(const std::vector<std::u16string>& files,
                                   std::vector<std::u16string>& paths,
                                   std::vector<std::u16string>& names);
    // The subclass's test of a file name (no folder): its extension.
    virtual bool IsFrameFile(std::u16string_view name) const = 0;
    // The subclass's fields of the item whose frame file is ITEM_PATH: FILES is the folder's
    // files as the listing read them (full paths, hidden files left out, in the order of the
    // read: not sorted), FIELDS the fields asked for, METADATA_FIELDS the metadata fields
    // among them. ExtraPath is added only when asked for: a CinemaDNG clip lists every frame
    // there. Paths listed there are put in walk order (NTFS order).
    virtual void AddItemFields(SDKPropertyMap& record, const std::u16string& itemPath,
                               const std::vector<std::u16string>& files, const SDKFieldSet& fields,
                               const XMPFieldSet& metadataFields) = 0;

protected:
    // The folder's own files whose names hold the item's title followed by a dot and any of
    // EXTENSIONS (letter case aside), the item's sidecars: "0001.xmp" for "0001.dpx". In walk
    // order (NTFS order); none when EXTENSIONS is empty.
    static std::vector<std::u16string> FindSidecars(
        const std::u16string& itemPath, const std::vector<std::u16string>& files,
        std::initializer_list<std::u16string_view> extensions);
    // Sets FIELD to VALUE when it was asked for, VALUE is not empty and nothing (the XMP a
    // user wrote) set it before.
    static void SetIfAbsent(SDKPropertyMap& record, const SDKFieldSet& fields, const char* field,
                            const std::string& value);
    // PATHS as the value of ExtraPath, when FIELDS asks for it.
    static void SetExtraPath(SDKPropertyMap& record, const SDKFieldSet& fields,
                             const std::vector<std::u16string>& paths);
};

}  // namespace Tessel
