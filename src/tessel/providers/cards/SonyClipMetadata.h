// The non-real-time metadata Sony cameras and decks write beside each clip: a
// "NonRealTimeMeta" document named after the clip, <clip>M01.XML (XDCAM discs in either
// layout, XAVC cards). Editing tools keep their changes to it in the XMP form, <clip>M01.XMP,
// beside it. The XDCAM and XAVC providers read it through ReadSonyClipMetadata, which parses it
// with the card XML helpers (XMLUtils.h) and reads, by element and attribute name only:
//   NonRealTimeMeta lastUpdate
//   Duration value                       in frames of the video
//   LtcChangeTable tcFps, halfStep       and the first LtcChange's value, the start timecode
//   CreationDate value
//   VideoFormat / VideoFrame videoCodec, formatFps
//   VideoFormat / VideoLayout pixel, numOfVerticalLine, aspectRatio
//   AudioFormat numOfChannel
//   Device manufacturer, modelName, serialNo
// A missing element leaves its fields at their defaults.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tessel/framework/ContentRecord.h>
#include <tessel/platform/Export.h>

namespace Tessel {

struct TESSEL_API SonyClipMetadata {
    std::u16string lastUpdate;    // as written ("2008-05-12T10:49:30+09:00")
    std::uint32_t duration = 0;   // frames
    std::u16string creationDate;  // as written
    std::u16string videoCodec;    // "MPEG2HD422_50_LONGGOP"
    std::u16string formatFps;     // "59.94i", "25p"
    std::uint32_t width = 0;      // pixels of a line
    std::uint32_t height = 0;     // lines
    std::u16string aspectRatio;   // "16:9"
    std::uint32_t audioChannels = 0;
    std::u16string manufacturer;
    std::u16string modelName;
    std::u16string serialNumber;
    // The first time code of the clip: four BCD bytes, frames first ("00000001" is 01:00:00:00),
    // the frames byte carrying the drop-frame flag (0x40).
    std::u16string startTimecode;
    std::u16string xmlPath;  // the file read
};

// <clip>M01.XML and <clip>M01.XMP in FOLDER, the two forms of a clip's metadata.
TESSEL_API std::u16string SonyClipMetadataPath(const std::u16string& folder,
                                               const std::u16string& clipName);
TESSEL_API std::u16string SonyClipMetadataXMPPath(const std::u16string& folder,
                                                  const std::u16string& clipName);
// The name of the clip a metadata file belongs to ("C0001M01.XML" -> "C0001"); empty when
// LEAF does not end in M01.XML.
TESSEL_API std::u16string SonyClipNameOfMetadata(const std::u16string& leaf);

// Reads a clip's M01.XML; false when it cannot be parsed or its document element is no
// NonRealTimeMeta (the clip then has no metadata of its own).
TESSEL_API bool ReadSonyClipMetadata(const std::u16string& xmlPath, SonyClipMetadata& metadata);
// The same for bytes held in memory (XMLPATH only names them).
TESSEL_API bool ReadSonyClipMetadataFromBytes(const std::string& bytes,
                                              const std::u16string& xmlPath,
                                              SonyClipMetadata& metadata);

// The start timecode as the camera shows it: "HH:MM:SS:FF", or "HH:MM:SS;FF" when the flag
// says drop frame and the clip's rate has drop frame (29.97, 59.94). Empty when there is none
// or the value is not four BCD bytes.
TESSEL_API std::string SonyDisplayStartTimecode(const SonyClipMetadata& metadata);

// Fills the wanted fields of a clip's record that its essence's XMP leaves out from the
// metadata of its PIECES (one for a clip, several for a take recorded over several clips): the
// start timecode always, as the camera wrote it (of the first piece); the duration, the pieces'
// durations added, always for a take (the essence knows only its own piece) and else when
// absent; the frame rate, frame size, codec, creation date and device when absent.
TESSEL_API void FillSonyClipValues(SDKPropertyMap& record, const SDKFieldSet& fields,
                                   const std::vector<SonyClipMetadata>& pieces);

}  // namespace Tessel
