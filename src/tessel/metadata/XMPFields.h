// The metadata fields a media browser shows for clips and media files: one fixed table of 79
// fields (field name, localized column title, XMP namespace), indexed by a field's bit number
// in a 79-bit field set. Card providers label their columns by these indices, and every
// provider that reads XMP asks for values by this set (see XMPValues.h).
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <tessel/framework/ContentRecord.h>
#include <tessel/platform/Export.h>

namespace Tessel {

inline constexpr std::size_t kXMPFieldCount = 79;

// How a field's XMP value becomes the value shown for it.
enum class XMPValueForm : std::uint8_t {
    Record,     // not read from XMP: the provider fills it (Name, Path, ExtraPath)
    Text,       // a simple value, the x-default of a language alternative, or a list ("a; b")
    Date,       // an XMP date, shown as written ("2011-05-20 14:03:09"), without zone conversion
    Boolean,    // "True" / "False", stored as a bool
    Timecode,   // an xmpDM Timecode: its time value, drop-frame written "HH:MM:SS;FF"
    Duration,   // an xmpDM Time (value x scale), as a timecode at the media's frame rate
    FrameRate,  // card rates as written ("59.94i"), others as frames per second ("23.976")
    FrameSize,  // an stDim Dimensions structure, "1920 x 1080"
};

struct XMPCrossReferenceEntry {
    const char* name;       // the field name that providers and hosts ask for
    const char* title;      // the column title: "$$$/key=English text"
    const char* nameSpace;  // XMP namespace URI; empty for the fields providers fill themselves
    XMPValueForm form;
};

// The table, in bit order. Bits are part of the providers' contract (column label lists name
// them by number), so entries are never reordered.
TESSEL_API extern const std::array<XMPCrossReferenceEntry, kXMPFieldCount> kXMPCrossReference;

using XMPFieldSet = std::bitset<kXMPFieldCount>;

// The bits of the requested field names; names outside the table are ignored.
TESSEL_API XMPFieldSet ParseFields(const SDKFieldSet& fields);

// The bit of one field name (exact spelling), or std::nullopt.
TESSEL_API std::optional<std::size_t> FindXMPField(std::string_view name);

// The names of all 79 fields, as a provider's field list.
TESSEL_API SDKFieldSet GetXMPFieldNames();

// The localized column title of the field at INDEX (empty for an index outside the table).
TESSEL_API std::u16string GetXMPFieldTitle(std::size_t index);

// The fields whose values come from XMP (every field except those providers fill themselves).
TESSEL_API XMPFieldSet XMPBackedFields();

}  // namespace Tessel
