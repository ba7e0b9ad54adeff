#include "dataformats/Json.h"
#include "dataformats/Ref.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

using namespace qel::dataformats::data;
namespace json = qel::dataformats::json;

namespace {

std::unique_ptr<Value> parseOrDie(char const* text) {
    auto value = json::parse(text);
    EXPECT_NE(value, nullptr) << text;
    return value;
}

}  // namespace

TEST(Ref, MissingStepsGiveNullInsteadOfThrowing) {
    char const* const trees[] = {
        "null", "7", "\"a\"", "[]", "{}", R"({"a":null})", R"({"a":[1]})", R"({"a":{"b":{}}})",
        R"({"a":{"b":[0,1,2]}})", R"({"a":{"b":[0,1,2,3,4,5,6,"c"]}})", R"({"a":{"b":[0,1,2,3,4,5,6,[]]}})",
    };
    for (char const* text : trees) {
        auto tree = parseOrDie(text);
        Ref leaf;
        EXPECT_NO_THROW(leaf = Ref(tree.get())("a")("b")[7]("c")) << text;
        EXPECT_TRUE(leaf.isNull()) << text;
        EXPECT_EQ(leaf.get(), nullptr) << text;
        EXPECT_EQ(leaf.asString(), "") << text;
        EXPECT_EQ(leaf.asInteger(), 0) << text;
        EXPECT_EQ(leaf.getArraySize(), 0u) << text;
    }
    Ref none;
    EXPECT_TRUE(none("a")("b")[7]("c").isNull());
    EXPECT_EQ(none("a")("b")[7]("c").asString(), "");
    EXPECT_EQ(none.kind(), Value::Kind::Null);

    auto found = parseOrDie(R"({"a":{"b":[0,1,2,3,4,5,6,{"c":"deep"}]}})");
    EXPECT_EQ(Ref(found.get())("a")(std::string("b"))[7]("c").asString(), "deep");
    EXPECT_TRUE(Ref(found.get())(static_cast<char const*>(nullptr)).isNull());
}

TEST(Ref, ConversionsOfTheWrongKindGiveEmptyValues) {
    auto tree = parseOrDie(R"({"f":2.75,"i":-42,"n":null,"s":"text","t":true,"a":[1],"o":{"x":1}})");
    Ref root(tree.get());
    EXPECT_EQ(root("s").asString(), "text");
    EXPECT_EQ(root("i").asInteger(), -42);
    EXPECT_TRUE(root("t").asBoolean());
    EXPECT_DOUBLE_EQ(root("f").asFloat(), 2.75);
    EXPECT_DOUBLE_EQ(root("i").asFloat(), -42.0);

    EXPECT_EQ(root("f").asInteger(), 0);  // not truncated
    EXPECT_FALSE(root("i").asBoolean());
    EXPECT_FALSE(root("s").asBoolean());
    EXPECT_EQ(root("s").asInteger(), 0);
    EXPECT_EQ(root("t").asInteger(), 0);
    EXPECT_DOUBLE_EQ(root("s").asFloat(), 0.0);
    for (char const* name : {"f", "i", "n", "t", "a", "o"}) {
        EXPECT_EQ(root(name).asString(), "") << name;
    }
    EXPECT_TRUE(root("n").isNull());
    EXPECT_NE(root("n").get(), nullptr);
    EXPECT_FALSE(root("a").isNull());

    Blob blob(std::string("\0b", 2));
    EXPECT_EQ(Ref(blob).asString(), std::string("\0b", 2));
}

TEST(Ref, ArraysAndObjectsAreInspectedSafely) {
    auto tree = parseOrDie(R"({"list":["x","y","z"],"obj":{"b":1,"a":null,"c":[]}})");
    Ref root(tree.get());
    EXPECT_EQ(root("list").getArraySize(), 3u);
    EXPECT_EQ(root("list")[2].asString(), "z");
    EXPECT_TRUE(root("list")[3].isNull());
    EXPECT_TRUE(root("list")[ULONG_MAX].isNull());
    EXPECT_EQ(root("obj").getArraySize(), 0u);
    EXPECT_TRUE(root("obj")[0].isNull());

    EXPECT_TRUE(root("obj").hasObjectKey("a"));  // present, though its value is null
    EXPECT_TRUE(root("obj").hasObjectKey(std::string("c")));
    EXPECT_FALSE(root("obj").hasObjectKey("A"));
    EXPECT_FALSE(root("obj").hasObjectKey(nullptr));
    EXPECT_FALSE(root("list").hasObjectKey("0"));
    EXPECT_FALSE(Ref().hasObjectKey("a"));

    std::vector<std::string> keys{"kept"};
    root("obj").getObjectKeys(keys);
    EXPECT_EQ(keys, (std::vector<std::string>{"kept", "a", "b", "c"}));
    root("list").getObjectKeys(keys);
    Ref().getObjectKeys(keys);
    EXPECT_EQ(keys.size(), 4u);
}
