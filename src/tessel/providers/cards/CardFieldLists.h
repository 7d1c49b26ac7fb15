// The columns the camera-card providers offer: the clip name and one fixed list of metadata
// fields, labelled by their bits in the XMP field table (XMPFields.h). Internal to the
// providers.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <tessel/framework/ContentRecord.h>
#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>

namespace Tessel::CardFieldLists {

SDKFieldSet FieldList();
// "Name", "CreateDate", "ModifyDate", "duration", "good", "startTimecode", "videoFrameRate".
std::vector<std::string> DefaultFieldList();
std::map<std::u16string, std::u16string> FieldLabelList();

// The same with "ExtraPath", for providers that add an item's related files only when they are
// asked for (a clip of a hundred thousand frames lists them all), so that they can be.
SDKFieldSet FieldListWithRelatedFiles();
std::map<std::u16string, std::u16string> FieldLabelListWithRelatedFiles();

// The record of an entry a card listing shows as itself, a file or folder beside the card's
// structure: its name and path when they are asked for, and the folder flag.
void FillEntryRecord(SDKPropertyMap& record, const std::u16string& path, bool folder,
                     const SDKFieldSet& fields);

}  // namespace Tessel::CardFieldLists

namespace Tessel {

// A card provider that offers the columns above.
class TESSEL_API CardColumnsProvider : public Provider {
public:
    SDKFieldSet GetFieldList() override;
    std::vector<std::string> GetDefaultFieldList() override;
    std::map<std::u16string, std::u16string> GetFieldLabelList() override;
};

}  // namespace Tessel
