#include "dataformats/Json.h"
#include "dataformats/Value.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qel::dataformats::data;
namespace json = qel::dataformats::json;

namespace {

char const* const DOCUMENT = R"({"list":[1,2.5,"s",true,null,{"k":"v"}],"nested":{"inner":[[1],[2]]},"text":"t"})";

}  // namespace

TEST(Value, copyIsDeepAndOutlivesTheOriginal) {
    auto parsed = json::parse(DOCUMENT);
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ(json::stringify(parsed->copy().get()), DOCUMENT);

    auto original = std::make_unique<Object>();
    auto* list = static_cast<Array*>(original->setNew("list", std::make_unique<Array>()));
    list->pushNew(std::make_unique<String>("a"));
    auto* inner = static_cast<Object*>(list->pushNew(std::make_unique<Object>()));
    inner->setNew("k", std::make_unique<Integer>(1));
    original->setNew("text", std::make_unique<String>("t"));
    std::string const text = R"({"list":["a",{"k":1}],"text":"t"})";
    ASSERT_EQ(json::stringify(original.get()), text);

    auto copy = original->copy();
    inner->setNew("k", std::make_unique<String>("changed"));
    list->pushNew(std::make_unique<Null>());
    original->setNew("text", std::make_unique<Boolean>(false));
    EXPECT_EQ(json::stringify(original.get()), R"({"list":["a",{"k":"changed"},null],"text":false})");
    EXPECT_EQ(json::stringify(copy.get()), text);

    original.reset();
    EXPECT_EQ(json::stringify(copy.get()), text);
}

TEST(Value, buildersStoreReplaceAndIgnoreNull) {
    Object object;
    EXPECT_EQ(object.setNew("a", nullptr), nullptr);
    EXPECT_TRUE(object.members().empty());
    Value* first = object.setNew("a", std::make_unique<Integer>(1));
    EXPECT_EQ(object.get("a"), first);
    Value* second = object.setNew("a", std::make_unique<String>("two"));
    EXPECT_EQ(object.get("a"), second);
    EXPECT_EQ(object.members().size(), 1u);
    EXPECT_EQ(object.get("missing"), nullptr);

    Array array;
    EXPECT_EQ(array.pushNew(nullptr), nullptr);
    Value* element = array.pushNew(std::make_unique<Null>());
    ASSERT_EQ(array.elements().size(), 1u);
    EXPECT_EQ(array.elements()[0].get(), element);
}

namespace {

// Records which operation ran, with its payload, to check the dispatch of every kind.
class RecordingVisitor : public ConstVisitor {
public:
    void visitNull() override { calls.push_back("null"); }
    void visitBoolean(bool value) override { calls.push_back(std::string("boolean:") + (value ? "true" : "false")); }
    void visitInteger(std::int64_t value) override { calls.push_back("integer:" + std::to_string(value)); }
    void visitFloat(double value) override { calls.push_back("float:" + std::to_string(value)); }
    void visitString(BufferDescriptor<char const> value) override {
        calls.push_back("string:" + std::string(value.data, value.size));
    }
    void visitBlob(BufferDescriptor<char const> value) override {
        calls.push_back("blob:" + std::to_string(value.size));
    }
    void visitArray(PtrVector<Value> const& elements) override {
        calls.push_back("array:" + std::to_string(elements.size()));
    }
    void visitObject(PtrMap<std::string, Value> const& members) override {
        calls.push_back("object:" + std::to_string(members.size()));
    }

    std::vector<std::string> calls;
};

}  // namespace

TEST(Value, acceptCallsTheOperationOfItsKind) {
    auto parsed = json::parse(R"([null,false,-7,2.5,"s",[1,2],{"a":1}])");
    ASSERT_NE(parsed, nullptr);
    RecordingVisitor visitor;
    for (auto const& element : static_cast<Array&>(*parsed).elements()) {
        element->accept(visitor);
    }
    Blob(std::string("\0\1\2", 3)).accept(visitor);
    std::vector<std::string> expected{"null",     "boolean:false", "integer:-7", "float:2.500000", "string:s",
                                      "array:2", "object:1",      "blob:3"};
    EXPECT_EQ(visitor.calls, expected);
}
