#include <tessel/foundation/AnyRegular.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Tessel {
namespace {

using array_t = any_regular_t::array_t;
using dictionary_t = any_regular_t::dictionary_t;

// Serialises VALUE, reads it back and checks that type and value survived.
void ExpectRoundTrip(const any_regular_t& value, const std::string& label) {
    SCOPED_TRACE(label);
    const std::optional<std::string> json = value.ToJson();
    ASSERT_TRUE(json.has_value());
    const std::optional<any_regular_t> back = any_regular_t::FromJson(*json);
    ASSERT_TRUE(back.has_value()) << *json;
    EXPECT_EQ(back->type(), value.type()) << *json;
    EXPECT_TRUE(*back == value) << *json;
    // Writing what was read gives the same text: nothing drifts over repeated saves.
    EXPECT_EQ(back->ToJson(), json);
}

nlohmann::json Parsed(const any_regular_t& value) {
    return nlohmann::json::parse(value.ToJson().value_or("invalid"), nullptr, false);
}

any_regular_t NestedArrays(std::size_t depth) {
    any_regular_t value = std::int64_t{7};
    for (std::size_t i = 0; i < depth; ++i)
        value = array_t{std::move(value)};
    return value;
}

any_regular_t NestedDictionaries(std::size_t depth) {
    any_regular_t value = std::u16string(u"leaf");
    for (std::size_t i = 0; i < depth; ++i)
        value = dictionary_t{{"k", std::move(value)}};
    return value;
}

TEST(AnyRegular, ValueSemanticsAndNormalisation) {
    any_regular_t empty;
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(empty.type(), typeid(void));

    EXPECT_EQ(any_regular_t(42).type(), typeid(std::int64_t));
    EXPECT_EQ(any_regular_t(std::uint8_t{4}).type(), typeid(std::int64_t));
    EXPECT_EQ(any_regular_t(1.5f).type(), typeid(double));
    EXPECT_EQ(any_regular_t(true).type(), typeid(bool));
    EXPECT_EQ(any_regular_t("text").type(), typeid(std::string));
    EXPECT_EQ(any_regular_t(u"text").type(), typeid(std::u16string));

    // Copies are deep: changing the copy's nested array leaves the original alone.
    any_regular_t original = array_t{1, array_t{2, 3}};
    any_regular_t copy = original;
    copy.get_if<array_t>()->at(1).get_if<array_t>()->push_back(4);
    EXPECT_EQ(original.get_if<array_t>()->at(1).get_if<array_t>()->size(), 2u);
    EXPECT_FALSE(copy == original);

    // Assigning a value from inside itself must not read freed memory.
    any_regular_t nested = array_t{array_t{std::u16string(u"inner")}};
    nested = nested.get_if<array_t>()->front();
    nested = nested.get_if<array_t>()->front();
    EXPECT_TRUE(nested == any_regular_t(u"inner"));
    any_regular_t& alias = nested;
    nested = alias;
    EXPECT_TRUE(nested == any_regular_t(u"inner"));

    // Equality needs the same type and value.
    EXPECT_TRUE(any_regular_t() == any_regular_t());
    EXPECT_FALSE(any_regular_t() == any_regular_t(0));
    EXPECT_FALSE(any_regular_t(0) == any_regular_t());
    EXPECT_FALSE(any_regular_t(1) == any_regular_t(1.0));
    EXPECT_FALSE(any_regular_t(true) == any_regular_t(1));
    EXPECT_FALSE(any_regular_t("a") == any_regular_t(u"a"));
    EXPECT_TRUE(any_regular_t(array_t{1, "x"}) == any_regular_t(array_t{1, "x"}));
    EXPECT_FALSE(any_regular_t(array_t{1, "x"}) == any_regular_t(array_t{"x", 1}));
    EXPECT_TRUE(any_regular_t(dictionary_t{{"a", 1}}) == any_regular_t(dictionary_t{{"a", 1}}));
    EXPECT_FALSE(any_regular_t(dictionary_t{{"a", 1}}) == any_regular_t(dictionary_t{{"a", 2}}));
}

TEST(AnyRegular, ScalarsRoundTripWithTheirTypes) {
    ExpectRoundTrip(any_regular_t(), "empty");
    ExpectRoundTrip(true, "true");
    ExpectRoundTrip(false, "false");
    for (std::int64_t i :
         {std::int64_t{0}, std::int64_t{-1}, std::int64_t{1} << 53, (std::int64_t{1} << 53) + 1,
          std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
        ExpectRoundTrip(i, "int " + std::to_string(i));
    }
    for (double d : {0.0, 2.0, -3.0, 0.1, 1e300, -1e-300, 5e-324, 1e21, 9007199254740993.0,
                     std::numeric_limits<double>::max(), std::numeric_limits<double>::lowest()}) {
        ExpectRoundTrip(d, "double " + std::to_string(d));
    }

    // Whole doubles keep a fraction in the text, or they would come back as integers.
    EXPECT_EQ(any_regular_t(2.0).ToJson(), "2.0");
    EXPECT_EQ(any_regular_t(42).ToJson(), "42");
    EXPECT_EQ(any_regular_t().ToJson(), "null");

    std::optional<any_regular_t> negativeZero =
        any_regular_t::FromJson(*any_regular_t(-0.0).ToJson());
    ASSERT_TRUE(negativeZero && negativeZero->get_if<double>());
    EXPECT_TRUE(std::signbit(*negativeZero->get_if<double>()));

    // JSON has no NaN or infinity; they must still come back as such, not as null.
    for (double special :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity()}) {
        std::optional<any_regular_t> back =
            any_regular_t::FromJson(*any_regular_t(special).ToJson());
        ASSERT_TRUE(back && back->get_if<double>());
        const double d = *back->get_if<double>();
        if (std::isnan(special)) {
            EXPECT_TRUE(std::isnan(d));
        } else {
            EXPECT_EQ(d, special);
        }
    }

    for (DateTime time : {DateTime{0}, DateTime{1'795'250'000'123'456}, DateTime{-1},
                          DateTime{-62'135'596'800'000'000},  // 0001-01-01
                          DateTime{253'402'300'800'000'000},  // 10000-01-01: five-digit year
                          DateTime{std::numeric_limits<std::int64_t>::max()},
                          DateTime{std::numeric_limits<std::int64_t>::min()}}) {
        ExpectRoundTrip(time, "time " + std::to_string(time.microsecondsSinceEpoch));
    }
    EXPECT_EQ(Parsed(DateTime{1'000'000})["value"], "1970-01-01T00:00:01Z");
}

TEST(AnyRegular, TextOfBothKindsRoundTripsExactly) {
    const std::u16string wide[] = {
        u"",
        u"plain",
        u"Gr\u00fc\u00dfe \u65e5\u672c",
        u"\U0001F600 grin",
        std::u16string(u"nul\0inside", 10),
        std::u16string(1, char16_t(0xD800)),                 // lone high surrogate
        std::u16string(1, char16_t(0xDC00)),                 // lone low surrogate
        std::u16string(1, char16_t(0xDC80)),                 // the escape of byte 0x80
        std::u16string(u"a\xDCFF"),                          // the escape of byte 0xFF
        std::u16string{char16_t(0xDE00), char16_t(0xD83D)},  // a pair in the wrong order
        std::u16string{u'x', char16_t(0xD83D)},              // high surrogate at the end
        std::u16string{char16_t(0xFFFD), char16_t(0xFFFF)},
    };
    for (const std::u16string& text : wide) {
        ExpectRoundTrip(text, "u16 of length " + std::to_string(text.size()));
    }
    // Clean text stays a plain JSON string, so hand-written files can use ordinary strings.
    EXPECT_EQ(Parsed(std::u16string(u"\U0001F600")), "\xF0\x9F\x98\x80");
    EXPECT_TRUE(Parsed(std::u16string(1, char16_t(0xD800))).is_object());

    const std::string narrow[] = {
        "",
        "text",
        "caf\xC3\xA9",
        "\xFF\xFE",
        "a\x80"
        "b",
        "\xE6\x97",      // truncated sequence
        "\xC0\xAF",      // overlong '/'
        "\xED\xA0\x80",  // an encoded surrogate
        std::string("nul\0inside", 10),
        "{\"$type\":\"utf8\"}",
    };
    for (const std::string& text : narrow) {
        ExpectRoundTrip(text, "utf8 of length " + std::to_string(text.size()));
    }
}

TEST(AnyRegular, ContainersRoundTripIncludingAwkwardKeys) {
    const any_regular_t favourites = array_t{
        array_t{},
        array_t{array_t{array_t{}}},
        array_t{1, 2.0, "3", u"4", true, any_regular_t(), DateTime{5}},
        dictionary_t{},
        dictionary_t{{"", 1},
                     {"$type", u"not a tag here"},
                     {"value", "narrow"},
                     {"nested", dictionary_t{{"list", array_t{dictionary_t{{"x", 1.5}}}}}}},
    };
    ExpectRoundTrip(favourites, "mixed");

    // Keys that are not valid UTF-8 cannot be JSON member names; they must survive anyway.
    ExpectRoundTrip(dictionary_t{{"\xFF", 1}, {"ok", 2}, {std::string("\0", 1), 3}}, "bytes keys");

    // Plain strings inside containers stay plain.
    EXPECT_EQ(Parsed(array_t{u"a", 1}), nlohmann::json::parse(R"(["a",1])"));
}

TEST(AnyRegular, PlainJsonReadsAsDictionariesOfNativeTypes) {
    std::optional<any_regular_t> value = any_regular_t::FromJson(
        R"({"threads": 4, "ratio": 1.5, "whole": 2.0, "name": "caf\u00e9 \ud83d\ude00",
            "list": [true, null, {"deep": -1}], "empty": {}})");
    ASSERT_TRUE(value.has_value());
    const dictionary_t* dictionary = value->get_if<dictionary_t>();
    ASSERT_NE(dictionary, nullptr);
    EXPECT_TRUE(dictionary->at("threads") == any_regular_t(std::int64_t{4}));
    EXPECT_TRUE(dictionary->at("ratio") == any_regular_t(1.5));
    EXPECT_TRUE(dictionary->at("whole") == any_regular_t(2.0));
    EXPECT_TRUE(dictionary->at("name") == any_regular_t(u"caf\u00e9 \U0001F600"));
    EXPECT_TRUE(dictionary->at("list") ==
                any_regular_t(array_t{true, any_regular_t(), dictionary_t{{"deep", -1}}}));
    EXPECT_TRUE(dictionary->at("empty") == any_regular_t(dictionary_t{}));

    // Integers beyond int64 become doubles rather than wrapping around.
    EXPECT_TRUE(*any_regular_t::FromJson("9223372036854775807") ==
                any_regular_t(std::numeric_limits<std::int64_t>::max()));
    EXPECT_TRUE(*any_regular_t::FromJson("-9223372036854775808") ==
                any_regular_t(std::numeric_limits<std::int64_t>::min()));
    EXPECT_TRUE(*any_regular_t::FromJson("9223372036854775808") ==
                any_regular_t(9223372036854775808.0));
    EXPECT_TRUE(*any_regular_t::FromJson("1e2") == any_regular_t(100.0));
    EXPECT_TRUE(*any_regular_t::FromJson(" \n[ ]\t") == any_regular_t(array_t{}));
}

TEST(AnyRegular, MalformedOrUnknownTextIsRejectedWithoutThrowing) {
    const char* rejected[] = {
        "",
        "   ",
        "{",
        "[1,]",
        "nul",
        "1 2",
        "/* comment */ 1",
        "1e400",        // beyond double
        "\"\\ud800\"",  // escaped lone surrogate
        "\"\xFF\"",     // raw invalid UTF-8
        "{\"$type\":\"no.such.type\",\"value\":1}",
        "{\"$type\":5,\"value\":1}",
        "{\"$type\":\"utf8\"}",
        "{\"$type\":\"utf8\",\"value\":\"a\",\"extra\":1}",
        "{\"$type\":\"utf8\",\"value\":5}",
        "{\"$type\":\"utf8\",\"hex\":\"abc\"}",
        "{\"$type\":\"utf8\",\"hex\":\"zz\"}",
        "{\"$type\":\"utf8\",\"text\":\"a\"}",
        "{\"$type\":\"utf16\",\"units\":[65536]}",
        "{\"$type\":\"utf16\",\"units\":[-1]}",
        "{\"$type\":\"utf16\",\"units\":[1.5]}",
        "{\"$type\":\"utf16\",\"units\":\"ab\"}",
        "{\"$type\":\"datetime\",\"value\":\"yesterday\"}",
        "{\"$type\":\"datetime\",\"microseconds\":9223372036854775808}",
        "{\"$type\":\"double\",\"value\":\"NaN\"}",
        "{\"$type\":\"dictionary\",\"value\":[]}",
        "{\"$type\":\"dictionary\",\"entries\":[[\"61\",1],[\"61\",2]]}",
        "{\"$type\":\"dictionary\",\"entries\":[[\"61\"]]}",
        "{\"$type\":\"dictionary\",\"entries\":[[97,1]]}",
        "[1, {\"$type\":\"no.such.type\",\"value\":1}]",
        "{\"a\":{\"b\":{\"$type\":\"no.such.type\",\"value\":1}}}",
    };
    for (const char* text : rejected) {
        EXPECT_FALSE(any_regular_t::FromJson(text).has_value()) << text;
    }
}

TEST(AnyRegular, NestingIsBoundedInBothDirections) {
    ExpectRoundTrip(NestedArrays(256), "256 arrays");
    // Dictionaries take two JSON levels each (tag object and members).
    ExpectRoundTrip(NestedDictionaries(256), "256 dictionaries");
    EXPECT_FALSE(NestedArrays(257).ToJson().has_value());
    EXPECT_FALSE(NestedDictionaries(257).ToJson().has_value());

    const std::string tooDeep = std::string(257, '[') + std::string(257, ']');
    EXPECT_FALSE(any_regular_t::FromJson(tooDeep).has_value());
    // Hostile depth is refused before anything recursive runs.
    const std::string hostile = std::string(1'000'000, '[') + std::string(1'000'000, ']');
    EXPECT_FALSE(any_regular_t::FromJson(hostile).has_value());
    EXPECT_FALSE(any_regular_t::FromJson(std::string(1'000'000, '{')).has_value());

    // Brackets inside strings are text, not nesting.
    ExpectRoundTrip(std::u16string(100'000, u'['), "brackets in a string");
    ExpectRoundTrip(std::string(100'000, '{'), "braces in a narrow string");
}

struct Rational {
    std::int64_t numerator = 0;
    std::int64_t denominator = 1;
    friend bool operator==(const Rational&, const Rational&) = default;
};
struct NeverRegistered {
    int x = 0;
    friend bool operator==(const NeverRegistered&, const NeverRegistered&) = default;
};
struct Wrapper {
    any_regular_t inner;
    friend bool operator==(const Wrapper& a, const Wrapper& b) { return a.inner == b.inner; }
};
struct Thrower {
    friend bool operator==(const Thrower&, const Thrower&) { return true; }
};
struct ShapeA {
    friend bool operator==(const ShapeA&, const ShapeA&) { return true; }
};
struct ShapeB {
    friend bool operator==(const ShapeB&, const ShapeB&) { return true; }
};

void RegisterRational() {
    RegisterValueType(typeid(Rational),
                      {"test.rational",
                       [](const void* p) -> std::optional<std::string> {
                           const auto* r = static_cast<const Rational*>(p);
                           return nlohmann::json{{"n", r->numerator}, {"d", r->denominator}}.dump();
                       },
                       [](std::string_view text) -> std::optional<any_regular_t> {
                           auto json = nlohmann::json::parse(text, nullptr, false);
                           if (!json.is_object() || !json["n"].is_number_integer() ||
                               !json["d"].is_number_integer()) {
                               return std::nullopt;
                           }
                           return any_regular_t(Rational{json["n"].get<std::int64_t>(),
                                                         json["d"].get<std::int64_t>()});
                       }});
}

TEST(AnyRegular, RegisteredTypesRoundTripAndUnknownOnesFailCleanly) {
    RegisterRational();
    EXPECT_TRUE(IsValueTypeRegistered(typeid(Rational)));
    ExpectRoundTrip(Rational{-3, 4}, "registered");
    ExpectRoundTrip(array_t{Rational{1, 2}, dictionary_t{{"r", Rational{5, 6}}}},
                    "nested registered");
    EXPECT_EQ(Parsed(Rational{1, 2})["$type"], "test.rational");
    // A payload the codec rejects is malformed text.
    EXPECT_FALSE(any_regular_t::FromJson(R"({"$type":"test.rational","value":"half"})"));

    EXPECT_FALSE(IsValueTypeRegistered(typeid(NeverRegistered)));
    EXPECT_FALSE(any_regular_t(NeverRegistered{}).ToJson().has_value());
    EXPECT_FALSE(any_regular_t(array_t{1, NeverRegistered{}}).ToJson().has_value());
    EXPECT_FALSE(any_regular_t(dictionary_t{{"k", NeverRegistered{}}}).ToJson().has_value());

    // A codec may serialise values of its own, which re-enters the registry.
    RegisterValueType(typeid(Wrapper),
                      {"test.wrapper",
                       [](const void* p) { return static_cast<const Wrapper*>(p)->inner.ToJson(); },
                       [](std::string_view text) -> std::optional<any_regular_t> {
                           auto inner = any_regular_t::FromJson(text);
                           if (!inner)
                               return std::nullopt;
                           return any_regular_t(Wrapper{std::move(*inner)});
                       }});
    ExpectRoundTrip(Wrapper{Wrapper{Rational{7, 8}}}, "codec within codec");
    // That recursion is bounded too: a long chain of wrappers fails instead of overflowing.
    any_regular_t chain = 1;
    for (int i = 0; i < 100; ++i)
        chain = Wrapper{std::move(chain)};
    ExpectRoundTrip(chain, "100 wrappers");
    for (int i = 0; i < 5000; ++i)
        chain = Wrapper{std::move(chain)};
    EXPECT_FALSE(chain.ToJson().has_value());
    // Each wrapper is a level of its own, in both directions alike.
    ExpectRoundTrip(Wrapper{NestedDictionaries(255)}, "wrapped dictionaries");
    EXPECT_FALSE(any_regular_t(Wrapper{NestedArrays(256)}).ToJson().has_value());
    auto wrappedArrays = [](std::size_t depth) {
        return R"({"$type":"test.wrapper","value":)" + std::string(depth, '[') + "7" +
               std::string(depth, ']') + "}";
    };
    EXPECT_TRUE(any_regular_t::FromJson(wrappedArrays(255)).has_value());
    EXPECT_FALSE(any_regular_t::FromJson(wrappedArrays(256)).has_value());

    // Misbehaving codecs: invalid JSON out, exceptions out. Neither escapes.
    RegisterValueType(typeid(Thrower), {"test.thrower",
                                        [](const void*) -> std::optional<std::string> {
                                            throw std::runtime_error("codec failure");
                                        },
                                        [](std::string_view) -> std::optional<any_regular_t> {
                                            throw std::runtime_error("codec failure");
                                        }});
    EXPECT_FALSE(any_regular_t(Thrower{}).ToJson().has_value());
    EXPECT_FALSE(any_regular_t::FromJson(R"({"$type":"test.thrower","value":1})").has_value());
    RegisterValueType(
        typeid(Thrower),
        {"test.thrower", [](const void*) { return std::optional<std::string>("{oops"); }, nullptr});
    EXPECT_FALSE(any_regular_t(Thrower{}).ToJson().has_value());

    // The same name registered for another type takes the name over.
    RegisterValueType(typeid(ShapeA),
                      {"test.shape", [](const void*) { return std::optional<std::string>("1"); },
                       [](std::string_view) { return std::optional<any_regular_t>(ShapeA{}); }});
    RegisterValueType(typeid(ShapeB),
                      {"test.shape", [](const void*) { return std::optional<std::string>("2"); },
                       [](std::string_view) { return std::optional<any_regular_t>(ShapeB{}); }});
    EXPECT_FALSE(IsValueTypeRegistered(typeid(ShapeA)));
    EXPECT_FALSE(any_regular_t(ShapeA{}).ToJson().has_value());
    ExpectRoundTrip(ShapeB{}, "renamed");

    // Built-in tags cannot be taken: the text would read back as the built-in type.
    RegisterValueType(
        typeid(NeverRegistered),
        {"utf8", [](const void*) { return std::optional<std::string>("\"x\""); }, nullptr});
    EXPECT_FALSE(IsValueTypeRegistered(typeid(NeverRegistered)));
}

TEST(AnyRegular, RegistryIsSafeToUseFromManyThreads) {
    RegisterRational();
    std::atomic<bool> failed{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&failed, t] {
            for (int i = 0; i < 300; ++i) {
                const any_regular_t value = array_t{Rational{i, t + 1}, u"x", i};
                const std::optional<std::string> json = value.ToJson();
                const std::optional<any_regular_t> back =
                    json ? any_regular_t::FromJson(*json) : std::nullopt;
                if (!back || !(*back == value))
                    failed = true;
            }
        });
    }
    threads.emplace_back([] {
        for (int i = 0; i < 300; ++i)
            RegisterRational();
    });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_FALSE(failed);
}

}  // namespace
}  // namespace Tessel
