#include "rsi/IRSIClientWrapper.h"
#include "rsi/RSIEntryManager.h"
#include "support/LogCapture.h"
#include "support/RsiRecorders.h"

#include <gtest/gtest.h>

namespace qel::test {

// A wrapper that only records; the test answers each request itself, with any status.
class ScriptedWrapper : public onlineservices::framework::core::IRSIClientWrapper {
public:
    struct Sent {
        std::shared_ptr<rsi::client::Request> request;
        std::weak_ptr<rsi::client::ResponseHandler> handler;
    };

    void sendRequest(std::shared_ptr<rsi::client::Request> const& request,
                     std::weak_ptr<rsi::client::ResponseHandler> const& handler) override {
        sent.push_back({request, handler});
    }
    unsigned int subscribe(std::shared_ptr<rsi::client::Request> const&,
                           std::weak_ptr<rsi::client::ResponseHandler> const&,
                           std::weak_ptr<rsi::client::EventHandler> const&) override {
        return 0;
    }
    void unsubscribe(unsigned int) override {}
    void disconnect() override {}
    void start() override {}
    void stop() override {}

    // Answers request `index` as the wrapper would (state succeeded); false if its handler is gone.
    bool answer(std::size_t index, std::int16_t status, std::string const& body = "",
                std::string const& location = "") const {
        auto const handler = sent.at(index).handler.lock();
        if (!handler) {
            return false;
        }
        Response response;
        response.setStatus(status);
        response.setLocation(location);
        if (!body.empty()) {
            response.setData(dataformats::json::parse(body));
        }
        handler->handleResponse(RequestState(rsi::client::RequestStateSucceeded, ""), response);
        return true;
    }

    std::vector<Sent> sent;  // test thread only
};

namespace {

using common::logging::LogLevel;
using onlineservices::framework::FrameworkConfig;
using onlineservices::framework::core::IURIHandler;
using onlineservices::framework::core::RSIEntry;
using onlineservices::framework::core::RSIEntryManager;
using namespace rsi::client;

class RecordingUriHandler : public IURIHandler {
public:
    void handleURI(std::string const& uri) override { uris.add(uri); }
    Recorder<std::string> uris;
};

std::shared_ptr<RSIEntry> capability(std::string const& name, std::string const& value, bool alwaysCreate) {
    auto entry = std::make_shared<RSIEntry>();
    entry->description = "(Capability) " + name;
    entry->service = "capabilitiesmanagement";
    entry->resource = "capabilities";
    entry->keys = {{"name", name}, {"serviceHostSystem", "hu"}, {"serviceId", "nav"}};
    entry->values = {{"value", value}};
    entry->updateIfExisting = true;
    entry->alwaysCreate = alwaysCreate;
    return entry;
}

std::shared_ptr<RSIEntry> kvsItem(std::string const& key, std::shared_ptr<IURIHandler> const& handler) {
    auto entry = std::make_shared<RSIEntry>();
    entry->description = "(KVS item) " + key;
    entry->service = "onlinekvs";
    entry->resource = "items";
    entry->keys = {{"name", key}};
    entry->alwaysCreate = true;
    entry->uriHandler = handler;
    return entry;
}

class RsiEntryManagerTest : public ::testing::Test {
protected:
    LogCapture log;
    std::shared_ptr<ScriptedWrapper> wrapper = std::make_shared<ScriptedWrapper>();
    std::shared_ptr<RSIEntryManager> manager =
        std::make_shared<RSIEntryManager>(std::make_shared<FrameworkConfig>(), wrapper);
    std::shared_ptr<RecordingCallback> callback = std::make_shared<RecordingCallback>();
    std::shared_ptr<RecordingUriHandler> uriHandler = std::make_shared<RecordingUriHandler>();
};

TEST_F(RsiEntryManagerTest, NewEntryIsReadThenCreatedAndLearnsItsIdFromTheLocation) {
    auto const entry = capability("route", "1", true);
    manager->post({entry}, callback);
    ASSERT_EQ(wrapper->sent.size(), 1u);
    auto const& read = *wrapper->sent[0].request;
    EXPECT_EQ(read.type, RequestTypeGetElement);
    EXPECT_EQ(read.requestId, 3u);
    EXPECT_EQ(read.element, "");
    EXPECT_EQ(read.queryParameters, entry->keys);

    ASSERT_TRUE(wrapper->answer(0, 200, R"({"data":[]})"));
    ASSERT_EQ(wrapper->sent.size(), 2u);
    auto const& write = *wrapper->sent[1].request;
    EXPECT_EQ(write.type, RequestTypePostResource);
    EXPECT_EQ(write.requestId, 5u);
    EXPECT_EQ(write.element, "");
    EXPECT_EQ(write.contentType, "application/json");
    EXPECT_EQ(write.acceptType, "application/json");
    EXPECT_EQ(dataformats::json::stringify(write.data.get()),
              R"({"name":"route","serviceHostSystem":"hu","serviceId":"nav","value":"1"})");
    EXPECT_EQ(callback->values.size(), 0u);

    ASSERT_TRUE(wrapper->answer(1, 201, "", "https://backend/capabilitiesmanagement/capabilities/1234/"));
    EXPECT_EQ(entry->uuid, "1234");
    EXPECT_EQ(callback->values.all(), std::vector<bool>{true});
}

TEST_F(RsiEntryManagerTest, ChangedEntryIsUpdatedInPlaceWhenItMayBeOtherwiseCreatedAnew) {
    auto const updatable = capability("route", "new", false);
    auto const recreated = capability("speed", "new", true);
    manager->post({updatable, recreated}, callback);
    std::string const found = R"({"data":[{"id":"abc","name":"x","value":"old"}]})";
    ASSERT_TRUE(wrapper->answer(0, 200, found));
    ASSERT_TRUE(wrapper->answer(1, 200, found));

    ASSERT_EQ(wrapper->sent.size(), 4u);
    auto const& update = *wrapper->sent[2].request;
    EXPECT_EQ(update.type, RequestTypePostElement);
    EXPECT_EQ(update.element, "abc");
    EXPECT_EQ(dataformats::json::stringify(update.data.get()), R"({"value":"new"})");
    auto const& create = *wrapper->sent[3].request;
    EXPECT_EQ(create.type, RequestTypePostResource);
    EXPECT_EQ(create.element, "");

    ASSERT_TRUE(wrapper->answer(2, 200));
    EXPECT_EQ(updatable->uuid, "abc");  // no location: the id the read returned stays
    ASSERT_TRUE(wrapper->answer(3, 201, "", "/capabilities/def"));
    EXPECT_EQ(recreated->uuid, "def");
    EXPECT_EQ(callback->values.all(), std::vector<bool>{true});
}

TEST_F(RsiEntryManagerTest, EntriesTheBackendAlreadyHoldsAreNotWrittenAndTheSetReportsOnceAfterTheLast) {
    auto const kvs = kvsItem("k", uriHandler);
    auto const current = capability("route", "1", true);
    auto const other = capability("speed", "2", true);
    manager->post({kvs, current, other}, callback);
    ASSERT_TRUE(wrapper->answer(0, 200, R"({"data":[{"id":"kvs-1","name":"k"},{"id":"kvs-2","name":"k"}]})"));
    ASSERT_TRUE(wrapper->answer(1, 226, R"({"data":[{"id":"c-7","value":"1"}]})"));
    EXPECT_EQ(callback->values.size(), 0u);
    ASSERT_TRUE(wrapper->answer(2, 200, R"({"data":[{"id":"c-8","value":"2"}]})"));

    EXPECT_EQ(wrapper->sent.size(), 3u);
    EXPECT_EQ(uriHandler->uris.all(), std::vector<std::string>{"kvs-1"});
    EXPECT_EQ(current->uuid, "c-7");
    EXPECT_TRUE(log.contains(LogLevel::Info, "(KVS item) k multiple entries with same key found. This should not happen!"));
    EXPECT_EQ(callback->values.all(), std::vector<bool>{true});
}

TEST_F(RsiEntryManagerTest, SetReportsFalseAtOnceForEveryFailureAndTrueNeverAfterOne) {
    auto const kvs = kvsItem("k", uriHandler);
    kvs->uuid = "old-id";
    std::vector<std::shared_ptr<RSIEntry>> const entries{capability("a", "1", true), kvs, capability("c", "1", true)};
    manager->post(entries, callback);
    ASSERT_TRUE(wrapper->answer(0, 200, R"({"data":[{"id":"a-1","value":"1"}]})"));
    EXPECT_EQ(callback->values.size(), 0u);
    ASSERT_TRUE(wrapper->answer(1, 227, R"({"data":[{"id":"x"}]})"));
    EXPECT_EQ(callback->values.all(), std::vector<bool>{false});
    EXPECT_EQ(uriHandler->uris.all(), std::vector<std::string>{"old-id"});

    ASSERT_TRUE(wrapper->answer(2, 200, R"({"data":[]})"));
    ASSERT_TRUE(wrapper->answer(3, 504, R"({"error":"timeout"})"));
    EXPECT_EQ(callback->values.all(), (std::vector<bool>{false, false}));
    EXPECT_TRUE(log.contains(LogLevel::Error, "POST failed. Aborting. Status: 504"));
}

TEST_F(RsiEntryManagerTest, AnEntryOnlyItsPostingHoldsIsCreatedHandsItsIdOverAndIsReleasedOnceTheSetReported) {
    auto entry = kvsItem("mileage", uriHandler);
    std::weak_ptr<RSIEntry> const watched = entry;
    manager->post({entry}, callback);
    entry.reset();
    EXPECT_EQ(wrapper->sent[0].request->queryParameters.at("name"), "mileage");
    ASSERT_TRUE(wrapper->answer(0, 200, R"({"data":[]})"));
    ASSERT_EQ(wrapper->sent.size(), 2u);
    EXPECT_EQ(dataformats::json::stringify(wrapper->sent[1].request->data.get()), R"({"name":"mileage"})");
    ASSERT_TRUE(wrapper->answer(1, 201, "", "/onlinekvs/items/kvs-9/"));
    EXPECT_EQ(uriHandler->uris.all(), std::vector<std::string>{"kvs-9"});
    EXPECT_EQ(callback->values.all(), std::vector<bool>{true});
    // Answered: nothing keeps the entry or its handlers any more.
    EXPECT_TRUE(watched.expired());
    EXPECT_TRUE(wrapper->sent[1].handler.expired());
}

TEST_F(RsiEntryManagerTest, NullEntriesAreSkippedAndDoNotKeepTheSetFromReporting) {
    manager->post({nullptr, capability("route", "1", true), nullptr}, callback);
    ASSERT_EQ(wrapper->sent.size(), 1u);
    ASSERT_TRUE(wrapper->answer(0, 200, R"({"data":[{"id":"c-1","value":"1"}]})"));
    EXPECT_EQ(callback->values.all(), std::vector<bool>{true});

    auto const nothing = std::make_shared<RecordingCallback>();
    manager->post({nullptr}, nothing);
    EXPECT_EQ(wrapper->sent.size(), 1u);
    EXPECT_EQ(nothing->values.all(), std::vector<bool>{true});
}

TEST_F(RsiEntryManagerTest, AnAnswerAfterTheManagerIsGoneReportsTheEntryAsFailed) {
    manager->post({capability("speed", "1", true)}, callback);
    manager.reset();
    ASSERT_TRUE(wrapper->answer(0, 200, R"({"data":[]})"));
    EXPECT_EQ(wrapper->sent.size(), 1u);
    EXPECT_EQ(callback->values.all(), std::vector<bool>{false});
}

}  // namespace
}  // namespace qel::test
