#include "dataformats/Json.h"
#include "dataformats/Ref.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

using namespace qel::dataformats::data;
namespace json = qel::dataformats::json;
using qel::test::LogCapture;
using LogLevel = LogCapture::LogLevel;

TEST(Json, RoundTripIsCompactAndStable) {
    auto value = json::parse(" {\"b\" : [1, -2, 3.5, true, false, null, \"x\", {}, []],\n \"a\": {\"n\": 0}} \n");
    ASSERT_NE(value, nullptr);
    std::string const text = R"({"a":{"n":0},"b":[1,-2,3.5,true,false,null,"x",{},[]]})";
    EXPECT_EQ(json::stringify(value.get()), text);
    EXPECT_EQ(json::jsonStringFromValue(value.get()), text);
    auto again = json::parse(text);
    EXPECT_EQ(json::stringify(again.get()), text);

    EXPECT_EQ(json::stringify(nullptr), "null");
    EXPECT_EQ(json::jsonStringFromValue(nullptr), "null");
    auto literalNull = json::parse("null");
    ASSERT_NE(literalNull, nullptr);
    EXPECT_EQ(literalNull->kind(), Value::Kind::Null);

    auto duplicate = json::parse(R"({"k":1,"k":2})");
    EXPECT_EQ(Ref(duplicate.get())("k").asInteger(), 2);
}

TEST(Json, NumbersBecomeIntegerWhenTheyFitAndFloatOtherwise) {
    struct Case {
        char const* text;
        Value::Kind kind;
    };
    Case const cases[] = {
        {"0", Value::Kind::Integer},
        {"-9223372036854775808", Value::Kind::Integer},
        {"9223372036854775807", Value::Kind::Integer},
        {"9223372036854775808", Value::Kind::Float},
        {"18446744073709551615", Value::Kind::Float},
        {"-9223372036854775809", Value::Kind::Float},
        {"1.0", Value::Kind::Float},
        {"1e2", Value::Kind::Float},
    };
    for (auto const& c : cases) {
        auto value = json::parse(c.text);
        ASSERT_NE(value, nullptr) << c.text;
        EXPECT_EQ(value->kind(), c.kind) << c.text;
    }
    EXPECT_EQ(Ref(json::parse("-9223372036854775808").get()).asInteger(), std::numeric_limits<std::int64_t>::min());
    EXPECT_DOUBLE_EQ(Ref(json::parse("18446744073709551615").get()).asFloat(), 18446744073709551615.0);

    for (double number : {0.1, 1e-300, 3.141592653589793, 1.7976931348623157e308, -2.5e-7}) {
        Float value(number);
        auto back = json::parse(json::stringify(&value));
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(Ref(back.get()).asFloat(), number);
    }
    // JSON has no NaN or infinity; the text stays valid.
    Float notANumber(std::nan(""));
    EXPECT_EQ(json::stringify(&notANumber), "null");
}

TEST(Json, BadInputGivesNullAndOneShortWarning) {
    std::vector<std::string> const inputs{
        "",
        "   ",
        "{\"a\":",
        "[1,2",
        "\"abc",
        std::string("\0\xff\xfe{", 4),
        std::string("[\"a\0b\"]", 7),
        "{} x",
        "[1] [2]",
        "{'a':1}",
        "[1,]",
        "nul",
        "1e999",
        "\"\xff\xfe\"",
        "[\"a\x01\"]",
        "// comment\n1",
        std::string(100000, '['),
        "\"" + std::string(5000, 'x'),
    };
    for (auto const& input : inputs) {
        LogCapture log;
        EXPECT_EQ(json::parse(input), nullptr) << input.substr(0, 20);
        auto warnings = log.messages(LogLevel::Warning);
        ASSERT_EQ(warnings.size(), 1u) << input.substr(0, 20);
        EXPECT_EQ(log.messages().size(), 1u);
        EXPECT_EQ(warnings[0].rfind("JSON parse error", 0), 0u) << warnings[0];
        EXPECT_LT(warnings[0].size(), 160u) << warnings[0];
        EXPECT_EQ(warnings[0].find_first_of(std::string("\0\xff", 2)), std::string::npos) << warnings[0];
    }

    LogCapture log;
    EXPECT_EQ(json::parse(std::string_view()), nullptr);
    EXPECT_EQ(json::parse("[1,2,x]"), nullptr);
    EXPECT_EQ(log.messages(LogLevel::Warning).size(), 2u);
    EXPECT_EQ(log.count(LogLevel::Warning, "JSON parse error at byte 6: syntax error while parsing value - invalid literal"),
              1u);
}

TEST(Json, NestingIsLimited) {
    auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    auto deepest = json::parse(nested(json::MAX_DEPTH));
    ASSERT_NE(deepest, nullptr);
    EXPECT_EQ(json::stringify(deepest->copy().get()), nested(json::MAX_DEPTH));

    LogCapture log;
    EXPECT_EQ(json::parse(nested(json::MAX_DEPTH + 1)), nullptr);
    std::string objects;
    for (std::size_t i = 0; i <= json::MAX_DEPTH; ++i) {
        objects += "{\"a\":";
    }
    EXPECT_EQ(json::parse(objects + "1" + std::string(json::MAX_DEPTH + 1, '}')), nullptr);
    EXPECT_EQ(log.count(LogLevel::Warning, "JSON parse error: nested deeper than 256 levels"), 2u);
}

TEST(Json, WriterEscapesAsJsonRequires) {
    String special("q\"b\\s/n\nt\tc\x01\x1f\x7f u:\xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80");
    std::string const text = json::stringify(&special);
    EXPECT_EQ(text, "\"q\\\"b\\\\s/n\\nt\\tc\\u0001\\u001f\x7f u:\xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80\"");
    EXPECT_EQ(Ref(json::parse(text).get()).asString(), special.get());

    auto escaped = json::parse(R"("\u00fc\u20ac\ud83d\ude00\u0000")");
    EXPECT_EQ(Ref(escaped.get()).asString(), std::string("\xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80\0", 10));

    Object body;
    body.setNew("na\"me", std::make_unique<String>("v"));
    EXPECT_EQ(json::jsonStringFromValue(&body), R"({"na\"me":"v"})");
}

TEST(Json, InvalidUtf8IsReplacedNotThrown) {
    std::string const replacement = "\xef\xbf\xbd";
    String broken("a\xff" "b\xc3");
    std::string text;
    EXPECT_NO_THROW(text = json::stringify(&broken));
    EXPECT_EQ(text, "\"a" + replacement + "b" + replacement + "\"");
    EXPECT_NE(json::parse(text), nullptr);

    Blob bytes(std::string("\0\x01\xff", 3));
    EXPECT_EQ(json::stringify(&bytes), "\"\\u0000\\u0001" + replacement + "\"");
}
