// First on purpose: the visitor's namespace, core::dataitems, must not hide the records' from the
// headers that follow.
#include "dataitems/ArrayVisitor.h"

#include <onlineservices/framework/AccessTokenObject.h>
#include <onlineservices/framework/IBackendJobListener.h>
#include <onlineservices/framework/IServiceDataListener.h>
#include <onlineservices/framework/JobObject.h>
#include <onlineservices/framework/KVSItemObject.h>
#include <onlineservices/framework/PrivacySettingsObject.h>
#include <onlineservices/framework/ServiceObject.h>

#include "core/Notifier.h"
#include "dataformats/Json.h"
#include "subscriptions/JobItem.h"
#include "subscriptions/KVSItem.h"
#include "subscriptions/PrivacyItem.h"
#include "subscriptions/ServiceItem.h"
#include "subscriptions/TokenItem.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace qel::onlineservices::framework::dataitems;
using qel::common::logging::LogLevel;
using Strings = std::vector<std::string>;

template <typename Record>
std::shared_ptr<Record> read(std::string const& json) {
    auto const value = qel::dataformats::json::parse(json);
    EXPECT_NE(value, nullptr) << json;
    auto record = std::make_shared<Record>();
    record->deserialize(value.get());
    return record;
}

TEST(AccessTokenObject, ReadsItsMembersCaseSensitively) {
    auto const token =
        read<AccessTokenObject>(R"({"id": "t1", "name": "svc", "token": "abc", "uri": "/t", "Token": "x", "exp": 3})");
    EXPECT_EQ(token->id + "|" + token->name + "|" + token->token + "|" + token->uri, "t1|svc|abc|/t");
    EXPECT_TRUE(token->isIdSet && token->isNameSet && token->isTokenSet && token->isUriSet);
}

TEST(JobObject, NameFillsJobTypeTooAndTheIdentifierIsAnInteger) {
    auto const job = read<JobObject>(R"({"id": "j", "jobIdentifier": 17, "jobPayload": "{}", "name": "x"})");
    EXPECT_EQ(job->name, "x");
    EXPECT_EQ(job->jobType, "x");
    EXPECT_TRUE(job->isNameSet && job->isJobTypeSet && job->isIdSet && job->isJobPayloadSet);
    EXPECT_EQ(job->jobIdentifier, 17);
    auto const textIdentifier = read<JobObject>(R"({"jobIdentifier": "17"})");
    EXPECT_TRUE(textIdentifier->isJobIdentifierSet && textIdentifier->jobIdentifier == 0);
}

TEST(KVSItemObject, ReadsTextsAndTheUpToDateBooleanWrongKindsGiveEmptyValues) {
    auto const item = read<KVSItemObject>(R"({"name": "volume", "owner": "svc", "value": "7", "upToDate": true})");
    EXPECT_EQ(item->name + "|" + item->owner + "|" + item->value, "volume|svc|7");
    EXPECT_TRUE(item->upToDate && item->isUpToDateSet && item->isOwnerSet && !item->isIdSet);
    auto const wrongKinds = read<KVSItemObject>(R"({"value": 7, "upToDate": "true"})");
    EXPECT_TRUE(wrongKinds->isValueSet && wrongKinds->isUpToDateSet && wrongKinds->value.empty());
    EXPECT_FALSE(wrongKinds->upToDate);
}

TEST(Records, UnknownMembersOnlyLeaveEveryFlagFalse) {
    std::string const unknown = R"({"ID": "1", "Name": "n", "payload": {"uri": "/u"}})";
    auto const token = read<AccessTokenObject>(unknown);
    EXPECT_FALSE(token->isIdSet || token->isNameSet || token->isTokenSet || token->isUriSet);
    auto const job = read<JobObject>(unknown);
    EXPECT_FALSE(job->isIdSet || job->isJobIdentifierSet || job->isJobPayloadSet || job->isJobTypeSet ||
                 job->isNameSet || job->isUriSet);
    auto const item = read<KVSItemObject>(unknown);
    EXPECT_FALSE(item->isIdSet || item->isNameSet || item->isUriSet || item->isOwnerSet || item->isValueSet ||
                 item->isUpToDateSet);
}

TEST(Records, PrivacySettingsStayEmptyWhateverArrives) {
    auto const privacy =
        read<PrivacySettingsObject>(R"({"groupId": "g", "groupName": "location", "status": "granted", "id": "1"})");
    EXPECT_FALSE(privacy->isGroupIdSet || privacy->isGroupNameSet || privacy->isStatusSet);
    EXPECT_EQ(privacy->groupId + privacy->groupName + privacy->status, "");
}

TEST(Records, NullOrNonObjectValuesReadNothingAndWarn) {
    qel::test::LogCapture log;
    ServiceObject service;
    service.deserialize(nullptr);
    EXPECT_FALSE(service.isIdSet());
    AccessTokenObject().deserialize(nullptr);
    EXPECT_FALSE(read<JobObject>(R"(["id", "x"])")->isIdSet);
    EXPECT_FALSE(read<KVSItemObject>(R"("id")")->isIdSet);
    PrivacySettingsObject().deserialize(nullptr);
    EXPECT_EQ(log.count(LogLevel::Warning, "Nothing to deserialize: the value is not an object"), 4u);
}

TEST(ServiceObject, ReadsEveryKnownMember) {
    auto const service = read<ServiceObject>(R"({
        "accessToken": {"uri": "/tokenmanagement/v1/accessTokens/7", "token": "not-taken"},
        "activeMonitoringService": true, "apnType": "internet", "baseUrl": "https://svc.example",
        "blocksDisabling": true, "disableReasons": ["theft", "privacy"], "id": "42",
        "privacyGroups": ["location"], "requires": ["nav", "map"], "name": "svc.weather",
        "type": ["app"], "uri": "/servicemanagement/v1/services/42"})");

    EXPECT_EQ(service->getAccessToken(), "/tokenmanagement/v1/accessTokens/7");
    EXPECT_TRUE(service->getActiveMonitoringService());
    EXPECT_EQ(service->getApnType(), "internet");
    EXPECT_EQ(service->getBaseUrl(), "https://svc.example");
    EXPECT_TRUE(service->getBlocksDisabling());
    EXPECT_EQ(service->getDisableReasons(), (Strings{"theft", "privacy"}));
    EXPECT_EQ(service->getId(), "42");
    EXPECT_EQ(service->getPrivacyGroups(), Strings{"location"});
    EXPECT_EQ(service->getRequires(), (Strings{"nav", "map"}));
    EXPECT_EQ(service->getServiceId(), "svc.weather");
    EXPECT_EQ(service->getType(), Strings{"app"});
    EXPECT_EQ(service->getUri(), "/servicemanagement/v1/services/42");
    EXPECT_TRUE(service->isAccessTokenSet() && service->isServiceIdSet() && service->isTypeSet());
}

TEST(ServiceObject, EmptyOrOddListsStillSetTheirFlags) {
    auto const service = read<ServiceObject>(R"({"disableReasons": [], "privacyGroups": "location",
                                                 "type": [1, "app", null], "requires": {"a": "b"}})");
    EXPECT_TRUE(service->isDisableReasonsSet() && service->isPrivacyGroupsSet() && service->isRequiresSet());
    EXPECT_TRUE(service->getDisableReasons().empty() && service->getPrivacyGroups().empty() &&
                service->getRequires().empty());
    // Elements are read as strings: other kinds keep their place as empty strings.
    EXPECT_EQ(service->getType(), (Strings{"", "app", ""}));
}

TEST(ServiceObject, MissingMismatchedOrWrongKindMembers) {
    auto const service = read<ServiceObject>(R"({"URI": "/x", "Name": "svc", "baseUrl": 5, "blocksDisabling": "true",
                                                 "accessToken": "/tokens/1"})");
    EXPECT_FALSE(service->isUriSet() || service->isServiceIdSet());
    EXPECT_TRUE(service->isBaseUrlSet() && service->getBaseUrl().empty());
    EXPECT_TRUE(service->isBlocksDisablingSet() && !service->getBlocksDisabling());
    // The token URI is taken from the member's "uri"; a plain string has none.
    EXPECT_TRUE(service->isAccessTokenSet() && service->getAccessToken().empty());

    auto const withoutToken = read<ServiceObject>(R"({"id": "1"})");
    EXPECT_FALSE(withoutToken->isAccessTokenSet() || !withoutToken->getAccessToken().empty());
}

TEST(ArrayVisitor, CollectsTheElementsOfAnArrayAsStringsAndNothingElse) {
    qel::onlineservices::framework::core::dataitems::ArrayVisitor fromArray;
    qel::dataformats::json::parse(R"(["a",7,"b"])")->accept(fromArray);
    EXPECT_EQ(fromArray.getVector(), (Strings{"a", "", "b"}));
    qel::onlineservices::framework::core::dataitems::ArrayVisitor fromObject;
    qel::dataformats::json::parse(R"({"a":["x"]})")->accept(fromObject);
    EXPECT_TRUE(fromObject.getVector().empty());
}

}  // namespace
