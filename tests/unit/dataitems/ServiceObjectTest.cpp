#include <onlineservices/framework/ServiceObject.h>

#include "dataformats/Json.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using qel::onlineservices::framework::dataitems::ServiceObject;
using Strings = std::vector<std::string>;

ServiceObject read(std::string const& json) {
    auto const value = qel::dataformats::json::parse(json);
    EXPECT_NE(value, nullptr) << json;
    ServiceObject service;
    service.deserialize(value.get());
    return service;
}

TEST(ServiceObject, ReadsEveryKnownMember) {
    ServiceObject const service = read(R"({
        "accessToken": {"uri": "/tokenmanagement/v1/accessTokens/7", "token": "not-taken"},
        "activeMonitoringService": true, "apnType": "internet", "baseUrl": "https://svc.example",
        "blocksDisabling": true, "disableReasons": ["theft", "privacy"], "id": "42",
        "privacyGroups": ["location"], "requires": ["nav", "map"], "name": "svc.weather",
        "type": ["app"], "uri": "/servicemanagement/v1/services/42"})");

    EXPECT_EQ(service.getAccessToken(), "/tokenmanagement/v1/accessTokens/7");
    EXPECT_TRUE(service.getActiveMonitoringService());
    EXPECT_EQ(service.getApnType(), "internet");
    EXPECT_EQ(service.getBaseUrl(), "https://svc.example");
    EXPECT_TRUE(service.getBlocksDisabling());
    EXPECT_EQ(service.getDisableReasons(), (Strings{"theft", "privacy"}));
    EXPECT_EQ(service.getId(), "42");
    EXPECT_EQ(service.getPrivacyGroups(), Strings{"location"});
    EXPECT_EQ(service.getRequires(), (Strings{"nav", "map"}));
    EXPECT_EQ(service.getServiceId(), "svc.weather");
    EXPECT_EQ(service.getType(), Strings{"app"});
    EXPECT_EQ(service.getUri(), "/servicemanagement/v1/services/42");
    EXPECT_TRUE(service.isAccessTokenSet() && service.isServiceIdSet() && service.isTypeSet());
}

TEST(ServiceObject, EmptyOrOddListsStillSetTheirFlags) {
    ServiceObject const service = read(R"({"disableReasons": [], "privacyGroups": "location",
                                           "type": [1, "app", null], "requires": {"a": "b"}})");
    EXPECT_TRUE(service.isDisableReasonsSet() && service.isPrivacyGroupsSet() && service.isRequiresSet());
    EXPECT_TRUE(service.getDisableReasons().empty() && service.getPrivacyGroups().empty() &&
                service.getRequires().empty());
    // Elements are read as strings: other kinds keep their place as empty strings.
    EXPECT_EQ(service.getType(), (Strings{"", "app", ""}));
}

TEST(ServiceObject, MissingMismatchedOrWrongKindMembers) {
    ServiceObject const service = read(R"({"URI": "/x", "Name": "svc", "baseUrl": 5, "blocksDisabling": "true",
                                           "accessToken": "/tokens/1"})");
    EXPECT_FALSE(service.isUriSet() || service.isServiceIdSet());
    EXPECT_TRUE(service.isBaseUrlSet() && service.getBaseUrl().empty());
    EXPECT_TRUE(service.isBlocksDisablingSet() && !service.getBlocksDisabling());
    // The token URI is taken from the member's "uri"; a plain string has none.
    EXPECT_TRUE(service.isAccessTokenSet() && service.getAccessToken().empty());

    ServiceObject const withoutToken = read(R"({"id": "1"})");
    EXPECT_FALSE(withoutToken.isAccessTokenSet() || !withoutToken.getAccessToken().empty());
}

}  // namespace
