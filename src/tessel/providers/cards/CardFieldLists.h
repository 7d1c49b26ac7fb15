// The columns the camera-card providers offer: the clip name and one fixed list of metadata
// fields, labelled by their bits in the XMP field table (XMPFields.h). Internal to the
// providers.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <tessel/framework/ContentRecord.h>

namespace Tessel::CardFieldLists {

SDKFieldSet FieldList();
// "Name", "CreateDate", "ModifyDate", "duration", "good", "startTimecode", "videoFrameRate".
std::vector<std::string> DefaultFieldList();
std::map<std::u16string, std::u16string> FieldLabelList();

}  // namespace Tessel::CardFieldLists
