#include <tessel/providers/cards/CardFieldLists.h>

#include <array>
#include <cstddef>
#include <optional>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/metadata/XMPFields.h>

namespace Tessel::CardFieldLists {

namespace {

// The metadata fields the card providers label, by their bits in the XMP field table.
constexpr std::array<std::size_t, 24> kLabelledFields = {
    0, 4, 6, 33, 35, 7, 11, 13, 15, 16, 22, 18, 25, 26, 3, 39, 42, 1, 37, 70, 71, 69, 72, 73};

}  // namespace

SDKFieldSet FieldList() {
    SDKFieldSet fields;
    for (std::size_t bit : kLabelledFields)
        fields.insert(kXMPCrossReference[bit].name);
    return fields;
}

std::vector<std::string> DefaultFieldList() {
    return {kSDKNameField, "CreateDate",    "ModifyDate",    "duration",
            "good",        "startTimecode", "videoFrameRate"};
}

std::map<std::u16string, std::u16string> FieldLabelList() {
    std::map<std::u16string, std::u16string> labels;
    for (std::size_t bit : kLabelledFields)
        labels.emplace(Utf8ToUtf16(kXMPCrossReference[bit].name), GetXMPFieldTitle(bit));
    return labels;
}

SDKFieldSet FieldListWithRelatedFiles() {
    SDKFieldSet fields = FieldList();
    fields.insert(kSDKExtraPathField);
    return fields;
}

std::map<std::u16string, std::u16string> FieldLabelListWithRelatedFiles() {
    std::map<std::u16string, std::u16string> labels = FieldLabelList();
    if (const std::optional<std::size_t> bit = FindXMPField(kSDKExtraPathField))
        labels.emplace(Utf8ToUtf16(kSDKExtraPathField), GetXMPFieldTitle(*bit));
    return labels;
}

void FillEntryRecord(SDKPropertyMap& record, const std::u16string& path, bool folder,
                     const SDKFieldSet& fields) {
    if (fields.count(kSDKNameField))
        record[kSDKNameField] = Path::LeafDisplayString(path);
    if (fields.count(kSDKPathField))
        record[kSDKPathField] = path;
    if (folder)
        record[kSDKDirectoryFlagField] = true;
}

}  // namespace Tessel::CardFieldLists

namespace Tessel {

SDKFieldSet CardColumnsProvider::GetFieldList() {
    return CardFieldLists::FieldList();
}

std::vector<std::string> CardColumnsProvider::GetDefaultFieldList() {
    return CardFieldLists::DefaultFieldList();
}

std::map<std::u16string, std::u16string> CardColumnsProvider::GetFieldLabelList() {
    return CardFieldLists::FieldLabelList();
}

}  // namespace Tessel
