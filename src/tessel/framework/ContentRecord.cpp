#include <tessel/framework/ContentRecord.h>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/foundation/Unicode.h>

namespace Tessel {

namespace {
UTF8String ToUTF8String(const char* text) {
    UTF8String out;
    for (const char* p = text; *p; ++p)
        out.push_back(static_cast<std::uint8_t>(*p));
    return out;
}
}  // namespace

#define TESSEL_FIELD(Name, Text)                   \
    const std::u16string k##Name##Field = u##Text; \
    const char* const kSDK##Name##Field = Text;

TESSEL_FIELD(Name, "Name")
TESSEL_FIELD(Path, "Path")
TESSEL_FIELD(ExtraPath, "ExtraPath")
TESSEL_FIELD(DirectoryFlag, "Directory")
TESSEL_FIELD(CreationDate, "CreationDate")
TESSEL_FIELD(Bundle, "Bundle")
TESSEL_FIELD(State, "State")
#undef TESSEL_FIELD

#define TESSEL_LIST_PATH(Name, Text)                             \
    const std::u16string k##Name##ListPath = u##Text;            \
    const UTF8String k##Name##ListPathUTF8 = ToUTF8String(Text); \
    const char* const kSDK##Name##ListPath = Text;

TESSEL_LIST_PATH(Volume, "volumes:")
TESSEL_LIST_PATH(NetworkVolume, "networkvolumes:")
TESSEL_LIST_PATH(Favorites, "favorites:")
TESSEL_LIST_PATH(CloudSync, "cloudsync:")
TESSEL_LIST_PATH(FRServer, "frservers:")
TESSEL_LIST_PATH(Framecast, "framecast:")
#undef TESSEL_LIST_PATH

const char* const kProviderIDPrefix = "io.tessel.provider.";
const std::string kProviderDirectoryID =
    std::string("io.tessel.provider.") + "WinProviderDirectory";

std::u16string GetThumbnailExtraPath(const PropertyMap& record) {
    auto it = record.find(kExtraPathField);
    if (it == record.end())
        return {};
    const any_regular_t& value = it->second;
    if (const auto* wide = value.get_if<std::u16string>())
        return *wide;
    if (const auto* narrow = value.get_if<std::string>())
        return Utf8ToUtf16(*narrow);
    if (const auto* list = value.get_if<any_regular_t::array_t>()) {
        if (list->empty())
            return {};
        const any_regular_t& first = list->front();
        if (const auto* wide = first.get_if<std::u16string>())
            return *wide;
        if (const auto* narrow = first.get_if<std::string>())
            return Utf8ToUtf16(*narrow);
    }
    return {};
}

}  // namespace Tessel
