#include "SubscriptionTestRig.h"

#include "subscriptions/ServiceItem.h"
#include "subscriptions/SubscriptionManager.h"
#include "subscriptions/TokenItem.h"

namespace qel::test {
namespace {

using namespace rsi::client;

std::string entry(std::string const& name, std::string const& reasons) {
    return R"([{"id":"s-1","name":")" + name + R"(","baseUrl":"https://a","disableReasons":)" + reasons +
           R"(,"accessToken":{"uri":"/tokenmanagement/accessTokens/abc"}}])";
}

class ServiceAndTokenItemTest : public SubscriptionTestRig {
protected:
    std::shared_ptr<core::TokenItem> token = makeItem<core::TokenItem>("nav");
    std::shared_ptr<core::ServiceItem> service = makeItem<core::ServiceItem>("nav");
    Match const services{RequestTypeSubscribeResource, "servicemanagement"};
    Match const tokenElement{RequestTypeSubscribeElement, "tokenmanagement"};
};

TEST_F(ServiceAndTokenItemTest, ServiceEntryReachesListenersOnItsQueueAndOnlyChangesOrARepeatedSubscribeAreRepeated) {
    core::SubscriptionManager manager(config, notifier, wrapper);
    manager.addService("nav", service);
    service->setTokenHandler(token);
    subscribe(*service);
    EXPECT_FALSE(manager.isAnyServiceDisabled());

    push(*service, services, entry("nav", R"(["x","y"])"));
    EXPECT_EQ(listener->whats(), (std::vector<std::string>{"service nav", "baseUrl nav https://a", "reasons nav x,y"}));
    EXPECT_TRUE(listener->allOn("svc:nav"));
    EXPECT_EQ(subscribed.all(), std::vector<bool>{true});
    EXPECT_TRUE(manager.isAnyServiceDisabled());
    EXPECT_EQ(token->getElement(), "abc");

    push(*service, services, entry("nav", R"(["y","x"])"));
    EXPECT_EQ(listener->heard.size(), 4u);  // the entry itself only: same URL, same reasons
    EXPECT_EQ(subscribed.all(), std::vector<bool>{true});  // events do not repeat the confirmation
    subscribe(*service);  // the manager asks again: answered at once, without a new request
    EXPECT_EQ(subscribed.all(), (std::vector<bool>{true, true}));
    EXPECT_EQ(rsi->subscriptions().size(), 1u);

    push(*service, services, entry("radio", "[]"));
    EXPECT_TRUE(log.contains(LogLevel::Error, "serviceId of event payload <radio> does not match serviceId of "
                                              "subscription item <nav>"));
    EXPECT_EQ(listener->heard.size(), 4u);
    EXPECT_EQ(subscribed.all(), (std::vector<bool>{true, true}));
}

TEST_F(ServiceAndTokenItemTest, MalformedServiceListsAreDroppedWithoutReportingTheEntryMissing) {
    subscribe(*service);
    push(*service, services, entry("nav", "[]"));
    ASSERT_EQ(listener->heard.size(), 3u);
    for (char const* malformed : {R"({"id":"s-1","name":"nav"})", R"("nav")", "null", "[42]",
                                  R"([{"name":"nav","baseUrl":"https://a"}])", R"([{"id":"s-9"},{"id":8}])"}) {
        push(*service, services, malformed);
    }
    EXPECT_EQ(listener->heard.size(), 3u);
    EXPECT_EQ(log.countPrefix(LogLevel::Error, "(Service Management/nav) Malformed service list ignored: "), 6u);

    push(*service, services, "[]");  // the entry has left the list
    EXPECT_EQ(listener->whats().back(), "reasons nav missingServicelistEntry");
    EXPECT_EQ(listener->heard.size(), 4u);
}

TEST_F(ServiceAndTokenItemTest, ServiceItemKeepsItsTokenHandlerAlive) {
    service->setTokenHandler(makeItem<core::TokenItem>("radio"));
    owned.pop_back();  // the service item is now the token item's only owner
    subscribe(*service);
    push(*service, services, entry("nav", "[]"));
    EXPECT_TRUE(log.contains(LogLevel::Info, "(Token Management/radio) Element set: abc"));
    EXPECT_FALSE(log.contains(LogLevel::Warning, "(Service Management/nav) No token handler found!"));
}

TEST_F(ServiceAndTokenItemTest, TokenItemFollowsTheUriItIsGivenAndCountsOnlyValidTokens) {
    token->handleURI("/tokenmanagement/accessTokens/abc");
    EXPECT_EQ(rsi->subscriptions().size(), 0u);  // not asked to subscribe yet
    subscribe(*token);
    ASSERT_EQ(rsi->subscriptions().size(), 1u);
    EXPECT_EQ(rsi->subscriptions()[0].request.element, "abc");
    EXPECT_EQ(subscribed.size(), 0u);  // confirmed at the backend, but no token yet

    push(*token, tokenElement, R"({"id":"abc","token":""})");
    EXPECT_EQ(listener->heard.size(), 0u);
    EXPECT_EQ(subscribed.size(), 0u);
    push(*token, tokenElement, R"([{"id":"abc","token":"t-1"},{"id":"abc","token":"t-2"}])");  // wrapped element
    EXPECT_EQ(listener->whats(), std::vector<std::string>{"token nav t-1"});
    EXPECT_TRUE(listener->allOn("tok:nav"));
    EXPECT_EQ(subscribed.all(), std::vector<bool>{true});

    token->handleURI("/tokenmanagement/accessTokens/abc");
    token->handleURI("/tokenmanagement/accessTokens/def");
    drain();
    EXPECT_EQ(rsi->unsubscribed(), std::vector<std::uint32_t>{rsi->subscriptions()[0].clientId});
    ASSERT_EQ(rsi->subscriptions().size(), 2u);
    EXPECT_EQ(rsi->subscriptions()[1].request.element, "def");

    Response refused;  // the wrapper's retries are over: not a loss to report
    refused.setId(2);
    token->handleResponse(RequestState(0, "refused"), refused);
    EXPECT_EQ(subscribed.all(), (std::vector<bool>{true, false}));  // the false came with the move to "def"
}

}  // namespace
}  // namespace qel::test
