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
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

// Serialises VALUE, reads it back and checks that type and value survived, and that writing
// what was read gives the same text: nothing drifts over repeated saves.
void ExpectRoundTrip(const any_regular_t& value, const std::string& label = "") {
    SCOPED_TRACE(label);
    const std::optional<std::string> json = value.ToJson();
    ASSERT_TRUE(json.has_value());
    const std::optional<any_regular_t> back = any_regular_t::FromJson(*json);
    ASSERT_TRUE(back.has_value()) << *json;
    EXPECT_EQ(back->type(), value.type()) << *json;
    EXPECT_TRUE(*back == value) << *json;
    EXPECT_EQ(back->ToJson(), json);
}

nlohmann::json Parsed(const any_regular_t& value) {
    return nlohmann::json::parse(value.ToJson().value_or("invalid"), nullptr, false);
}

// DEPTH arrays around an integer, or dictionaries around a string.
any_regular_t Nested(std::size_t depth, bool dictionaries) {
    any_regular_t value = dictionaries ? any_regular_t(u"leaf") : any_regular_t(7);
    for (std::size_t i = 0; i < depth; ++i)
        value = dictionaries ? any_regular_t(dictionary_t{{"k", std::move(value)}})
                             : any_regular_t(array_t{std::move(value)});
    return value;
}

TEST(AnyRegular, ValueSemanticsAndNormalisation) {
    // Copies are deep, and assigning a value from inside itself must not read freed memory.
    any_regular_t original = array_t{1, array_t{2, 3}};
    any_regular_t copy = original;
    copy.get_if<array_t>()->at(1).get_if<array_t>()->push_back(4);
    EXPECT_EQ(original.get_if<array_t>()->at(1).get_if<array_t>()->size(), 2u);
    any_regular_t nested = array_t{array_t{std::u16string(u"inner")}};
    nested = nested.get_if<array_t>()->front();
    nested = nested.get_if<array_t>()->front();
    any_regular_t& alias = nested;
    nested = alias;
    EXPECT_EQ(nested, any_regular_t(u"inner"));
    // Equality needs the same type, after normalisation, and value.
    EXPECT_TRUE(any_regular_t(std::uint8_t{4}) == std::int64_t{4} && any_regular_t(1.5f) == 1.5);
    // clang-format off
    const std::pair<any_regular_t, any_regular_t> different[] = {{any_regular_t(), 0}, {1, 1.0},
        {true, 1}, {"a", u"a"}, {array_t{1, "x"}, array_t{"x", 1}},
        {dictionary_t{{"a", 1}}, dictionary_t{{"a", 2}}}};
    // clang-format on
    for (const auto& [a, b] : different)
        EXPECT_TRUE(a != b && b != a) << a.type().name() << " " << b.type().name();
}

TEST(AnyRegular, ConversionsAreChecked) {
    constexpr double kInf = std::numeric_limits<double>::infinity();
    constexpr std::nullopt_t no = std::nullopt;
    // What a held value gives as an int, an int64, a uint64 (shown as a double) and a float,
    // or no where the conversion is refused. Integers drop the fraction.
    // clang-format off
    struct Case { any_regular_t value; std::optional<int> asInt; std::optional<std::int64_t> asInt64;
                  std::optional<double> asUInt64; std::optional<float> asFloat; };
    const Case cases[] = {
        {std::int64_t{-1}, -1, -1, no, -1.0f}, {kMax, no, kMax, 9223372036854775807.0, 9.223372e18f},
        {2.9, 2, 2, 2.0, 2.9f}, {-0.5, 0, 0, 0.0, -0.5f},
        {2147483648.0, no, 2147483648, 2147483648.0, 2147483648.0f},
        {-2147483649.0, no, -2147483649, no, -2147483649.0f},
        {-9223372036854775808.0, no, kMin, no, -9.223372e18f},
        {9223372036854775808.0, no, no, 9223372036854775808.0, 9.223372e18f},
        {18446744073709551616.0, no, no, no, 1.8446744e19f}, {1e300, no, no, no, no},
        {kInf, no, no, no, std::numeric_limits<float>::infinity()},
        {std::numeric_limits<double>::quiet_NaN(), no, no, no, no},  // a float NaN, unchecked
        {true, no, no, no, no}, {"7", no, no, no, no}};
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(*c.value.ToJson());
        int i = 77;
        EXPECT_EQ(c.value.cast(i), c.asInt.has_value());
        EXPECT_EQ(i, c.asInt.value_or(77)) << "a refused conversion leaves the target alone";
        EXPECT_EQ(c.value.value_or<std::int64_t>(-9), c.asInt64.value_or(-9));
        EXPECT_EQ(static_cast<double>(c.value.value_or<std::uint64_t>(0)), c.asUInt64.value_or(0));
        float f = 0;
        if (c.value.cast(f) && std::isnan(f))
            continue;
        EXPECT_FLOAT_EQ(f, c.asFloat.value_or(0));
    }
    EXPECT_FALSE(any_regular_t(1).value_or(false)) << "bool only from bool";
    EXPECT_EQ(any_regular_t(1).value_or(std::u16string(u"other")), u"other");
}

TEST(AnyRegular, ValuesRoundTripWithTheirTypesAndTextExactly) {
    // clang-format off
    const any_regular_t values[] = {
        any_regular_t(), true, 0, -1, std::int64_t{1} << 53, (std::int64_t{1} << 53) + 1, kMax,
        kMin, 0.0, 2.0, 0.1, 1e300, -1e-300, 5e-324, 1e21, 9007199254740993.0,
        std::numeric_limits<double>::max(), std::numeric_limits<double>::lowest(),
        // From 0001-01-01 to 10000-01-01 (a five-digit year), and the extremes.
        DateTime{0}, DateTime{1'795'250'000'123'456}, DateTime{-1},
        DateTime{-62'135'596'800'000'000}, DateTime{253'402'300'800'000'000}, DateTime{kMax},
        DateTime{kMin},
        // Lone and misordered surrogates, the escapes of bytes 0x80 and 0xFF, a NUL.
        u"", u"Gr\u00fc\u00dfe \u65e5\u672c \U0001F600", std::u16string(u"nul\0inside", 10),
        std::u16string(1, char16_t(0xD800)), std::u16string(1, char16_t(0xDC00)),
        std::u16string(u"a\xDC80\xDCFF"), std::u16string{char16_t(0xDE00), char16_t(0xD83D)},
        std::u16string{u'x', char16_t(0xD83D)}, std::u16string{char16_t(0xFFFD), char16_t(0xFFFF)},
        // Invalid bytes, a cut sequence, an overlong '/', an encoded surrogate, a NUL, a tag.
        "", "caf\xC3\xA9", "\xFF\xFE", "a\x80", "\xE6\x97", "\xC0\xAF", "\xED\xA0\x80",
        std::string("nul\0inside", 10), "{\"$type\":\"utf8\"}",
        array_t{array_t{}, array_t{array_t{array_t{}}},
                array_t{1, 2.0, "3", u"4", true, any_regular_t(), DateTime{5}}, dictionary_t{},
                dictionary_t{{"", 1}, {"$type", u"not a tag here"}, {"value", "narrow"},
                             {"nested", dictionary_t{{"l", array_t{dictionary_t{}}}}}}},
        // Keys that are not valid UTF-8 cannot be JSON member names; they must survive anyway.
        dictionary_t{{"\xFF", 1}, {"ok", 2}, {std::string("\0", 1), 3}}};
    // clang-format on
    for (std::size_t i = 0; i < std::size(values); ++i)
        ExpectRoundTrip(values[i], "value " + std::to_string(i));
    // Whole doubles keep a fraction in the text, or they would come back as integers.
    EXPECT_EQ(any_regular_t(2.0).ToJson(), "2.0");
    EXPECT_EQ(Parsed(DateTime{1'000'000})["value"], "1970-01-01T00:00:01Z");
    // Clean text stays a plain JSON string, so hand-written files can use ordinary strings.
    EXPECT_EQ(Parsed(std::u16string(u"\U0001F600")), "\xF0\x9F\x98\x80");
    EXPECT_TRUE(Parsed(std::u16string(1, char16_t(0xD800))).is_object());
    // JSON has no NaN, infinity or negative zero; they must still come back as such.
    for (double special :
         {-0.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity()}) {
        std::optional<any_regular_t> back =
            any_regular_t::FromJson(*any_regular_t(special).ToJson());
        ASSERT_TRUE(back && back->get_if<double>());
        const double d = *back->get_if<double>();
        EXPECT_TRUE(std::isnan(special) ? std::isnan(d)
                                        : d == special && std::signbit(d) == std::signbit(special));
    }
}

TEST(AnyRegular, PlainJsonReadsAsNativeTypesAndMalformedTextIsRejectedWithoutThrowing) {
    // clang-format off
    EXPECT_EQ(any_regular_t::FromJson(R"({"threads": 4, "ratio": 1.5, "whole": 2.0, "empty": {},
                  "name": "caf\u00e9 \ud83d\ude00", "list": [true, null, {"deep": -1}]})"),
              any_regular_t(dictionary_t{{"threads", 4}, {"ratio", 1.5}, {"whole", 2.0},
                  {"empty", dictionary_t{}}, {"name", u"caf\u00e9 \U0001F600"},
                  {"list", array_t{true, any_regular_t(), dictionary_t{{"deep", -1}}}}}));
    // Integers beyond int64 become doubles rather than wrapping around.
    const std::pair<const char*, any_regular_t> numbers[] = {{"9223372036854775807", kMax},
        {"-9223372036854775808", kMin}, {"9223372036854775808", 9223372036854775808.0},
        {"1e2", 100.0}, {" \n[ ]\t", array_t{}}};
    for (const auto& [text, value] : numbers)
        EXPECT_EQ(any_regular_t::FromJson(text), value) << text;
    const char* rejected[] = {"", "   ", "{", "[1,]", "nul", "1 2", "/* comment */ 1", "1e400",
        "\"\\ud800\"", "\"\xFF\"", "{\"$type\":\"no.such.type\",\"value\":1}",
        "{\"$type\":5,\"value\":1}", "{\"$type\":\"utf8\"}",
        "{\"$type\":\"utf8\",\"value\":\"a\",\"extra\":1}", "{\"$type\":\"utf8\",\"value\":5}",
        "{\"$type\":\"utf8\",\"hex\":\"abc\"}", "{\"$type\":\"utf8\",\"hex\":\"zz\"}",
        "{\"$type\":\"utf8\",\"text\":\"a\"}", "{\"$type\":\"utf16\",\"units\":[65536]}",
        "{\"$type\":\"utf16\",\"units\":[-1]}", "{\"$type\":\"utf16\",\"units\":[1.5]}",
        "{\"$type\":\"utf16\",\"units\":\"ab\"}", "{\"$type\":\"datetime\",\"value\":\"yesterday\"}",
        "{\"$type\":\"datetime\",\"microseconds\":9223372036854775808}",
        "{\"$type\":\"double\",\"value\":\"NaN\"}", "{\"$type\":\"dictionary\",\"value\":[]}",
        "{\"$type\":\"dictionary\",\"entries\":[[\"61\",1],[\"61\",2]]}",
        "{\"$type\":\"dictionary\",\"entries\":[[\"61\"]]}",
        "{\"$type\":\"dictionary\",\"entries\":[[97,1]]}",
        "[1, {\"$type\":\"no.such.type\",\"value\":1}]",
        "{\"a\":{\"b\":{\"$type\":\"no.such.type\",\"value\":1}}}"};
    // clang-format on
    for (const char* text : rejected)
        EXPECT_FALSE(any_regular_t::FromJson(text).has_value()) << text;
}

TEST(AnyRegular, NestingIsBoundedInBothDirections) {
    // Dictionaries take two JSON levels each (tag object and members).
    for (bool dictionaries : {false, true}) {
        ExpectRoundTrip(Nested(256, dictionaries), "256 levels");
        EXPECT_FALSE(Nested(257, dictionaries).ToJson().has_value());
    }
    // Hostile depth is refused before anything recursive runs.
    for (std::size_t depth : {257, 1'000'000})
        EXPECT_FALSE(any_regular_t::FromJson(std::string(depth, '[') + std::string(depth, ']')));
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
struct Wrapper {
    any_regular_t inner;
    friend bool operator==(const Wrapper& a, const Wrapper& b) { return a.inner == b.inner; }
};
// Types without state of their own, to register codecs of every kind for.
template <int N>
struct Plain {
    friend bool operator==(const Plain&, const Plain&) = default;
};

void RegisterRational() {
    RegisterValueType(typeid(Rational),
                      {"test.rational",
                       [](const void* p) -> std::optional<std::string> {
                           const auto* r = static_cast<const Rational*>(p);
                           return nlohmann::json{r->numerator, r->denominator}.dump();
                       },
                       [](std::string_view text) -> std::optional<any_regular_t> {
                           auto json = nlohmann::json::parse(text, nullptr, false);
                           if (!json.is_array() || json.size() != 2 ||
                               !json[0].is_number_integer() || !json[1].is_number_integer())
                               return std::nullopt;
                           return any_regular_t(Rational{json[0], json[1]});
                       }});
}

TEST(AnyRegular, RegisteredTypesRoundTripAndUnknownOnesFailCleanly) {
    RegisterRational();
    ExpectRoundTrip(array_t{Rational{1, 2}, dictionary_t{{"r", Rational{-5, 6}}}}, "registered");
    // A payload the codec rejects is malformed text.
    EXPECT_FALSE(any_regular_t::FromJson(R"({"$type":"test.rational","value":"half"})"));
    for (const any_regular_t& unknown :
         {any_regular_t(Plain<0>{}), any_regular_t(array_t{1, Plain<0>{}}),
          any_regular_t(dictionary_t{{"k", Plain<0>{}}})})
        EXPECT_FALSE(unknown.ToJson().has_value());

    // A codec may serialise values of its own, which re-enters the registry; that recursion
    // is bounded too, each wrapper a level of its own in both directions.
    RegisterValueType(typeid(Wrapper),
                      {"test.wrapper",
                       [](const void* p) { return static_cast<const Wrapper*>(p)->inner.ToJson(); },
                       [](std::string_view text) -> std::optional<any_regular_t> {
                           auto inner = any_regular_t::FromJson(text);
                           if (!inner)
                               return std::nullopt;
                           return any_regular_t(Wrapper{std::move(*inner)});
                       }});
    any_regular_t chain = Rational{7, 8};
    for (int i = 0; i < 100; ++i)
        chain = Wrapper{std::move(chain)};
    ExpectRoundTrip(chain, "100 wrappers");
    for (int i = 0; i < 5000; ++i)
        chain = Wrapper{std::move(chain)};
    EXPECT_FALSE(chain.ToJson().has_value());
    ExpectRoundTrip(Wrapper{Nested(255, true)}, "wrapped dictionaries");
    EXPECT_FALSE(any_regular_t(Wrapper{Nested(256, false)}).ToJson().has_value());
    for (std::size_t depth : {255, 256}) {
        const std::string text = R"({"$type":"test.wrapper","value":)" + std::string(depth, '[') +
                                 "7" + std::string(depth, ']') + "}";
        EXPECT_EQ(any_regular_t::FromJson(text).has_value(), depth == 255);
    }

    // Misbehaving codecs: exceptions out, invalid JSON out. Neither escapes.
    const auto thrower = [](auto...) -> std::optional<std::string> {
        throw std::runtime_error("codec failure");
    };
    const auto read = [](std::string_view) { return std::optional<any_regular_t>(Plain<1>{}); };
    RegisterValueType(typeid(Plain<1>), {"test.thrower", thrower,
                                         [](std::string_view) -> std::optional<any_regular_t> {
                                             throw std::runtime_error("codec failure");
                                         }});
    EXPECT_FALSE(any_regular_t(Plain<1>{}).ToJson().has_value());
    EXPECT_FALSE(any_regular_t::FromJson(R"({"$type":"test.thrower","value":1})").has_value());
    const auto invalid = [](const void*) { return std::optional<std::string>("{oops"); };
    RegisterValueType(typeid(Plain<1>), {"test.thrower", invalid, read});
    EXPECT_FALSE(any_regular_t(Plain<1>{}).ToJson().has_value());
    // Built-in tags cannot be taken: the text would read back as the built-in type.
    RegisterValueType(typeid(Plain<4>), {"utf8", invalid, read});
    EXPECT_FALSE(IsValueTypeRegistered(typeid(Plain<4>)));
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
                if (!json || any_regular_t::FromJson(*json) != value)
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
