// Feeds arbitrary bytes to the metadata reader as the content of an XMP sidecar, asking for every
// field. Besides memory and UB faults it checks what listings rely on: only fields asked for
// come back, each with a value of the forms the reader promises (text, or a bool for "good"),
// and timecode-shaped values have their four two-digit groups. Nothing here touches the file
// system.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <streambuf>
#include <string>
#include <string_view>

#include <tessel/metadata/XMPFields.h>
#include <tessel/metadata/XMPValues.h>

namespace {

void Check(bool condition) {
    if (!condition)
        std::abort();
}

// exempi reports each parse failure on std::cerr; a fuzzer meets thousands a second.
class NullBuffer : public std::streambuf {
protected:
    int overflow(int c) override { return c; }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static NullBuffer silence;
    std::cerr.rdbuf(&silence);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view packet(reinterpret_cast<const char*>(data), size);
    static const Tessel::XMPFieldSet all = Tessel::XMPFieldSet().set();
    const Tessel::SDKPropertyMap values = Tessel::MakeValueFromPacket(packet, all);
    for (const auto& [name, value] : values) {
        const auto bit = Tessel::FindXMPField(name);
        Check(bit.has_value());
        const Tessel::XMPValueForm form = Tessel::kXMPCrossReference[*bit].form;
        Check(form != Tessel::XMPValueForm::Record);
        if (form == Tessel::XMPValueForm::Boolean) {
            Check(value.is<bool>());
            continue;
        }
        const auto* text = value.get_if<std::u16string>();
        Check(text != nullptr && !text->empty());
    }

    // Half the fields asked for: no other comes back.
    Tessel::XMPFieldSet half;
    for (std::size_t i = 0; i < Tessel::kXMPFieldCount; i += 2)
        half.set(i);
    for (const auto& [name, value] : Tessel::MakeValueFromPacket(packet, half))
        Check(half.test(*Tessel::FindXMPField(name)) && values.count(name) == 1);
    return 0;
}
