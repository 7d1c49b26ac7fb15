// An interned, immutable string: copies are a pointer, equality is pointer equality.
// Station names and other identifiers that are compared often use it.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API ImmutableString {
public:
    ImmutableString();  // the empty string
    explicit ImmutableString(std::string_view text);
    ImmutableString(const char* text) : ImmutableString(std::string_view(text)) {}

    const std::string& str() const { return *mText; }
    const char* c_str() const { return mText->c_str(); }
    bool empty() const { return mText->empty(); }

    friend bool operator==(const ImmutableString& a, const ImmutableString& b) {
        return a.mText == b.mText;
    }
    friend bool operator!=(const ImmutableString& a, const ImmutableString& b) {
        return a.mText != b.mText;
    }
    // Ordered by text, so maps keyed by it iterate alphabetically.
    friend bool operator<(const ImmutableString& a, const ImmutableString& b) {
        return a.mText != b.mText && *a.mText < *b.mText;
    }
    std::size_t Hash() const { return std::hash<const void*>()(mText); }

private:
    const std::string* mText;
};

}  // namespace Tessel

template <>
struct std::hash<Tessel::ImmutableString> {
    std::size_t operator()(const Tessel::ImmutableString& s) const { return s.Hash(); }
};
