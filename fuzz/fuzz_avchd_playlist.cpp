// Feeds arbitrary bytes to the AVCHD playlist readers as the content of a card's .MPL file: the
// PlayItem walk with both of its finders, and the reader of marks and extension data with the
// values of every shot it finds. Besides memory and UB faults it checks that the finders only
// ever name clips by five digits, that the shot of a clip holds that clip, and that the walk
// the metadata reader makes agrees with the finders'.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include <tessel/providers/cards/AVCHDMetadata.h>
#include <tessel/providers/cards/AVCHDUtils.h>

namespace U = Tessel::AVCHDUtils;

namespace {

bool IsClipName(const std::u16string& name) {
    return name.size() == 5 &&
           std::all_of(name.begin(), name.end(), [](char16_t c) { return c >= u'0' && c <= u'9'; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> bytes(data, size);
    const std::vector<std::u16string> heads = U::ShotHeadNames(bytes);
    if (!std::all_of(heads.begin(), heads.end(), IsClipName))
        std::abort();
    const std::u16string target = heads.empty() ? u"00001" : heads.back();
    const std::vector<std::u16string> shot = U::ShotNames(bytes, target);
    if (!std::all_of(shot.begin(), shot.end(), IsClipName) ||
        (!shot.empty() && std::find(shot.begin(), shot.end(), target) == shot.end()) ||
        (!heads.empty() && shot.empty()))
        std::abort();  // a head's shot holds at least the head

    Tessel::AVCHDPlaylistInfo info;
    Tessel::ReadAVCHDPlaylistInfo(bytes, info);
    std::size_t named = 0;
    for (std::size_t i = 0; i < info.items.size(); ++i) {
        const auto& item = info.items[i];
        if (item.connection != U::kSeamlessConnection && !item.clip.empty()) {
            ++named;
            (void)Tessel::AVCHDShotValues(&info, i, nullptr);
        }
    }
    if (named != heads.size())
        std::abort();  // the metadata reader visits the PlayItems the finders visit
    (void)Tessel::AVCHDShotValues(&info, info.items.size(), nullptr);
    return 0;
}
