// Reading the values of metadata fields (XMPFields.h) from media files, their XMP sidecars and
// camera cards, through exempi.
//
// Where the XMP comes from, for a media file:
//   1. for a file of a camera card (P2, XDCAM, XDCAM EX, Sony HDV: known by its folders), the
//      clip's metadata, which exempi's card handlers gather from the card's own XML and XMP
//      files, whichever of the clip's files is named;
//   2. otherwise its sidecar, when it has one: the media file's name with the extension
//      replaced by ".xmp" ("clip.mov" -> "clip.xmp"), the name that editing and cataloguing
//      tools write. "clip.mov.xmp" is not looked for. A sidecar that cannot be parsed counts
//      as none; one that parses wins over the file's own XMP, even when it says nothing;
//   3. otherwise the media file itself, through exempi's format handlers: XMP embedded in
//      JPEG, TIFF, PNG, MP4/MOV, AVI, WAV, MP3 and the other formats it knows. Files of other
//      types are not opened. (exempi does not register its AVCHD handler: AVCHD stream files
//      have values only through their sidecars, BDMV/STREAM/00000.xmp.)
//
// Values are ready for display: text as std::u16string ("good" as a bool), in the forms of
// XMPValueForm. Only fields with a value are in the map; fields providers fill themselves
// (Name, Path, ExtraPath) never are. Nothing is read when no XMP field is asked for, nothing
// throws, and unreadable or malformed input gives an empty map.
//
// Safe to call from any thread: exempi is set up once, and its calls are serialised by one
// lock. exempi 2.6 promises no thread safety for its file calls (its handlers are the XMP
// Toolkit's, registered process-wide, and a failure is reported through one error slot), and
// each call runs inside a capture of the process's standard error (StandardErrorCapture),
// which only one thread can hold. So XMP reads of a listing do not run in parallel; a listing
// opens a file only when it may hold XMP (a sidecar exists, or a handler knows its type).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <tessel/framework/ContentRecord.h>
#include <tessel/metadata/XMPFields.h>
#include <tessel/platform/Export.h>

namespace Tessel {

// The values of FIELDS for the media file at MEDIA_PATH (UTF-8, native form), its sidecar
// looked for by name as above.
TESSEL_API SDKPropertyMap MakeValue(const std::string& mediaPath, const XMPFieldSet& fields);

// The same with the sidecar given: SIDECAR_PATH when it is not empty and holds XMP, else the
// media file's own XMP (a card's file always reads its clip's). For callers that know the
// folder's names already (a listing), which saves looking for each sidecar on disk.
TESSEL_API SDKPropertyMap MakeValue(const std::string& mediaPath, const std::string& sidecarPath,
                                    const XMPFieldSet& fields);

// Reads the values of many files in turn, as a listing does, with the sidecars given as by
// MakeValue above. A sidecar asked for again right after (for the next file of the same name,
// or for itself when it is listed too) is parsed once. For one thread at a time.
class TESSEL_API XMPValueReader {
public:
    explicit XMPValueReader(const XMPFieldSet& fields);

    SDKPropertyMap Read(const std::string& mediaPath, const std::string& sidecarPath);

private:
    XMPFieldSet mFields;
    std::string mSidecar;                          // the sidecar read last
    std::optional<SDKPropertyMap> mSidecarValues;  // its values; std::nullopt when not XMP
};

// The sidecar name of a media file: its path with the extension replaced by ".xmp".
TESSEL_API std::string SidecarPathFor(std::string_view mediaPath);

// A date as the Date form shows it: "2011-05-20T14:03:09+02:00" as "2011-05-20 14:03:09", the
// clock time the device wrote, without its zone; text in another shape as written. For values
// providers read from a card's own files.
TESSEL_API std::string DisplayXMPDate(std::string_view date);

// The values of FIELDS in one serialized XMP packet (a sidecar's content).
TESSEL_API SDKPropertyMap MakeValueFromPacket(std::string_view packet, const XMPFieldSet& fields);

}  // namespace Tessel
