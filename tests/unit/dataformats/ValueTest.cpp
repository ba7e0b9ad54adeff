#include "dataformats/Json.h"
#include "dataformats/TreeReturn.h"
#include "dataformats/Value.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

using namespace qel::dataformats::data;
namespace json = qel::dataformats::json;

namespace {

char const* const DOCUMENT = R"({"list":[1,2.5,"s",true,null,{"k":"v"}],"nested":{"inner":[[1],[2]]},"text":"t"})";

}  // namespace

TEST(Value, CopyIsDeepAndOutlivesTheOriginal) {
    auto parsed = json::parse(DOCUMENT);
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ(json::stringify(parsed->copy().get()), DOCUMENT);

    auto original = std::make_unique<Object>();
    auto* list = static_cast<Array*>(original->setNew("list", std::make_unique<Array>()));
    list->pushNew(std::make_unique<String>("a"));
    auto* inner = static_cast<Object*>(list->pushNew(std::make_unique<Object>()));
    inner->setNew("k", std::make_unique<Integer>(1));
    original->setNew("text", new String("t"));  // adopted like a unique_ptr (asan sees a leak otherwise)
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

TEST(Value, TakeHandsOverTheMemberItselfAndLeavesTheRest) {
    auto parsed = json::parse(DOCUMENT);
    ASSERT_NE(parsed, nullptr);
    auto& root = static_cast<Object&>(*parsed);
    Value const* const nested = root.get("nested");

    auto taken = root.take("nested");
    EXPECT_EQ(taken.get(), nested);  // the node itself, not a copy of it
    EXPECT_EQ(root.get("nested"), nullptr);
    EXPECT_EQ(root.take("nested"), nullptr);
    EXPECT_EQ(root.take("missing"), nullptr);
    EXPECT_EQ(json::stringify(parsed.get()), R"({"list":[1,2.5,"s",true,null,{"k":"v"}],"text":"t"})");

    parsed.reset();
    EXPECT_EQ(json::stringify(taken.get()), R"({"inner":[[1],[2]]})");
}

// Replacing a member and the returned nodes are seen in CopyIsDeepAndOutlivesTheOriginal.
TEST(Value, BuildersIgnoreNull) {
    Object object;
    EXPECT_EQ(object.setNew("a", nullptr), nullptr);
    EXPECT_TRUE(object.members().empty());
    Array array;
    EXPECT_EQ(array.pushNew(nullptr), nullptr);
    EXPECT_TRUE(array.elements().empty());
}

// A reader on another thread lets go of a shared tree: it waits for its builder's next free.
TEST(TreeReturn, TreeReleasedByAReaderIsFreedByItsBuilderAndLeftoversWithTheLastOwner) {
    auto trees = std::make_shared<TreeReturn>();
    EXPECT_EQ(trees->share(nullptr), nullptr);
    auto shared = trees->share(json::parse(DOCUMENT));
    ASSERT_NE(shared, nullptr);
    std::thread reader([tree = std::move(shared)]() mutable {
        EXPECT_EQ(json::stringify(tree.get()), DOCUMENT);
        tree.reset();
    });
    reader.join();
    EXPECT_EQ(trees->returnedCount(), 1u);
    trees->freeReturned();
    EXPECT_EQ(trees->returnedCount(), 0u);

    // Outliving the builder's object: the tree is freed with its last reader (a leak shows under asan).
    auto outliving = trees->share(json::parse(DOCUMENT));
    trees.reset();
    EXPECT_EQ(json::stringify(outliving.get()), DOCUMENT);
    outliving.reset();
}
