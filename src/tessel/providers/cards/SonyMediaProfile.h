// The media profile Sony cards and discs keep of their material, MEDIAPRO.XML: a
// "MediaProfile" document whose "Contents" hold one "Material" per clip, and on XDCAM EX cards
// one per take recorded over several clips. ReadSonyMediaProfile parses it with the card XML
// helpers (XMLUtils.h) and reads, by element and attribute name only:
//   MediaProfile / Contents / Material (every one)   uri, dur, title
//   Material / Component (every one)                 uri
// A uri is relative to the folder of MEDIAPRO.XML, written "./CLPR/431_0012_01/431_0012_01.SMI"
// for a clip and "./TAKR/431_0012/431_0012.SMI" for a take, whose Components are its clips.
// A missing element or attribute leaves its field empty.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tessel/platform/Export.h>

namespace Tessel {

struct TESSEL_API SonyMediaMaterial {
    std::u16string uri;
    std::uint32_t duration = 0;  // frames
    std::u16string title;
    std::vector<std::u16string> components;  // the Components' uris, in document order
};

struct TESSEL_API SonyMediaProfile {
    std::vector<SonyMediaMaterial> materials;
};

// Reads MEDIAPRO.XML; false when it cannot be parsed or its document element is no
// MediaProfile (the profile is then empty).
TESSEL_API bool ReadSonyMediaProfile(const std::u16string& path, SonyMediaProfile& profile);
// The same for bytes held in memory (PATH only names them).
TESSEL_API bool ReadSonyMediaProfileFromBytes(const std::string& bytes, const std::u16string& path,
                                              SonyMediaProfile& profile);

// The folder names of a material's uri, without the leading "." and the file:
// "./TAKR/431_0012/431_0012.SMI" gives {"TAKR", "431_0012"}. Either separator is accepted.
TESSEL_API std::vector<std::u16string> SonyMediaFolders(const std::u16string& uri);

}  // namespace Tessel
