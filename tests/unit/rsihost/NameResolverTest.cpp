#include "rsi/host/NameResolver.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

namespace qel::test {
namespace {

using rsi::client::host::NameResolver;

// A lookup that answers only once the test lets it, and counts how often it was asked.
struct HeldLookup {
    NameResolver::Lookup function() {
        return [this](std::string const& /*host*/) {
            ++calls;
            answered.wait();
            return NameResolver::Result{{"10.1.2.3", "10.1.2.4"}, ""};
        };
    }
    std::atomic<int> calls{0};
    std::promise<void> release;
    std::shared_future<void> answered = release.get_future().share();
};

TEST(NameResolverTest, HangingLookupIsCutOffAndItsLateAnswerServesTheNextCall) {
    HeldLookup lookup;
    EXPECT_EQ(NameResolver("::1", lookup.function()).resolve(10).addresses, std::vector<std::string>{"::1"})
        << "an address literal needs no lookup";
    NameResolver resolver("backend.test", lookup.function());
    auto const first = resolver.resolve(50);
    EXPECT_EQ(first.error, "lookup of backend.test did not finish within 50 ms");
    EXPECT_TRUE(first.addresses.empty());
    EXPECT_EQ(resolver.resolve(50).error, "lookup of backend.test did not finish within 50 ms");
    EXPECT_EQ(lookup.calls.load(), 1) << "the running lookup is waited for, not started again";

    lookup.release.set_value();
    auto const late = resolver.resolve(5000);
    EXPECT_EQ(late.error, "");
    EXPECT_EQ(late.addresses, (std::vector<std::string>{"10.1.2.3", "10.1.2.4"}));
    EXPECT_EQ(lookup.calls.load(), 1);
    EXPECT_EQ(resolver.resolve(5000).error, "");
    EXPECT_EQ(lookup.calls.load(), 2) << "answers are not cached";
}

}  // namespace
}  // namespace qel::test
