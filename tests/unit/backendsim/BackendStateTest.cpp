#include "BackendState.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace qel::test {
namespace {

using sim::backend::BackendState;
using Json = nlohmann::json;

constexpr char const* SCENARIO = R"({
  "tokens": [{"id": "tok-1", "name": "nav", "token": "t0"}],
  "services": [{"name": "nav", "baseUrl": "https://nav"}, {"name": "nav", "serviceHostSystem": "0033"}],
  "kvs": [{"id": "kvs-1", "name": "units", "value": "metric"}],
  "unavailable": ["privacysetup"]
})";

class BackendStateTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(state.loadScenario(SCENARIO, error)) << error;
    }

    Json get(std::string const& target, int expectedStatus = 200) {
        auto const answer = state.handleHttp("GET", target, "");
        EXPECT_EQ(answer.status, expectedStatus) << target;
        return Json::parse(answer.body);
    }
    // Subscribes on session 1 and returns the backend's subscription id.
    std::uint32_t subscribe(std::string const& path, Json const& query = Json::object()) {
        Json const message{{"type", "subscribe"}, {"ref", 7}, {"path", path}, {"query", query}};
        state.handleWebSocketMessage(1, message.dump());
        for (auto message = sent.rbegin(); message != sent.rend(); ++message) {
            if ((*message)["type"] == "ack") {
                return message->value("subscriptionId", 0U);
            }
        }
        return 0;
    }
    Json lastEventData() const { return sent.back()["event"]["data"]; }

    std::vector<Json> sent;
    BackendState state{[this](std::uint64_t, std::string const& message) { sent.push_back(Json::parse(message)); }};
};

TEST_F(BackendStateTest, ScenarioFillsDefaultsAndQueriesFilter) {
    Json const services = get("/servicemanagement/services/?name=nav&serviceHostSystem=005F")["data"];
    ASSERT_EQ(services.size(), 1u);
    EXPECT_EQ(services[0]["disableReasons"], Json::array());
    EXPECT_EQ(services[0]["accessToken"]["uri"], "/tokenmanagement/accessTokens/tok-1");
    EXPECT_EQ(get("/servicemanagement/services")["data"].size(), 2u);
    EXPECT_EQ(get("/?name=onlinekvs")["data"][0]["name"], "onlinekvs");
    EXPECT_EQ(get("/?name=privacysetup")["data"], Json::array());
    get("/privacysetup/privacyGroups", 503);
    get("/nosuch/resource", 404);
    get("/onlinekvs/items/missing", 404);

    std::string error;
    EXPECT_FALSE(state.loadScenario(R"({"kvs": [{"id": "x"}], "jobs": {}})", error));
    EXPECT_EQ(error, R"("jobs" must be an array of objects)");
    EXPECT_EQ(get("/onlinekvs/items")["data"].size(), 1u) << "a refused scenario changes nothing";
}

TEST_F(BackendStateTest, CreateAnswersWithLocationAndUpdateMerges) {
    std::string const capabilities = "/capabilitiesmanagement/capabilities";
    auto const created = state.handleHttp("POST", capabilities, R"({"name":"c","value":"1"})");
    EXPECT_EQ(created.status, 201);
    std::string const id = Json::parse(created.body)["data"]["id"];
    EXPECT_EQ(created.location, capabilities + "/" + id);
    EXPECT_EQ(state.handleHttp("POST", capabilities + "/" + id, R"({"value":"2","id":"x"})").status, 200);
    Json const element = get(capabilities + "/" + id)["data"];
    EXPECT_EQ(element["value"], "2");
    EXPECT_EQ(element["id"], id);
    EXPECT_EQ(state.handleHttp("POST", capabilities, "[1]").status, 400);
    EXPECT_EQ(state.received().size(), 4u);
}

TEST_F(BackendStateTest, SubscriptionsAreAcknowledgedThenFedWithEvents) {
    std::uint32_t const kvs = subscribe("/onlinekvs/items/kvs-1");
    Json const acknowledgement{
        {"type", "ack"}, {"ref", 7}, {"status", 200}, {"subscriptionId", kvs}, {"data", {{"status", "ok"}}}};
    EXPECT_EQ(sent[0], acknowledgement);
    EXPECT_EQ(lastEventData()["upToDate"], true);

    state.handleHttp("POST", "/onlinekvs/items/kvs-1", R"({"value":"imperial"})");
    EXPECT_EQ(lastEventData()["value"], "imperial");
    EXPECT_EQ(lastEventData()["upToDate"], true);
    state.setKvsValue("units", "nautical");
    EXPECT_EQ(lastEventData()["newJobFromBackend"], true);
    EXPECT_EQ(lastEventData()["upToDate"], false);

    std::uint32_t const services = subscribe("/servicemanagement/services", {{"serviceHostSystem", "0033"}});
    EXPECT_EQ(lastEventData().size(), 1u);
    EXPECT_TRUE(state.setDisableReasons("nav", {"license"}));
    EXPECT_EQ(sent.back()["subscriptionId"], services);
    EXPECT_EQ(lastEventData()[0]["disableReasons"], Json::array({"license"}));

    std::size_t const before = sent.size();
    state.handleWebSocketMessage(2, Json{{"type", "unsubscribe"}, {"subscriptionId", kvs}}.dump());
    EXPECT_EQ(state.subscriptionCount(), 2u) << "another session cannot end it";
    state.dropSession(1);
    EXPECT_EQ(state.subscriptionCount(), 0u);
    state.setKvsValue("kvs-1", "x");
    EXPECT_EQ(sent.size(), before);
}

TEST_F(BackendStateTest, RefusedSubscriptionsAndInjectedFaults) {
    EXPECT_EQ(subscribe("/privacysetup/privacyGroups"), 0u);
    EXPECT_EQ(sent.back()["status"], 503);
    state.failNext("/tokenmanagement/accessTokens/tok-1/", 500, 2);
    state.failNext("*", 418, 1);
    EXPECT_EQ(subscribe("/tokenmanagement/accessTokens/tok-1"), 0u);
    EXPECT_EQ(sent.back()["status"], 500);
    get("/tokenmanagement/accessTokens/tok-1", 500);
    get("/tokenmanagement/accessTokens/tok-1", 418);
    get("/tokenmanagement/accessTokens/tok-1", 200);

    state.setDelay("/onlinekvs/items", 40);
    EXPECT_EQ(state.delayFor("/onlinekvs/items/?name=units"), 40u);
    EXPECT_EQ(state.delayFor("/onlinekvs/items/kvs-1"), 0u);
}

TEST_F(BackendStateTest, JobsArePushedToTheirServiceAndLeaveTheListOnceAcknowledged) {
    std::uint32_t const jobs = subscribe("/backendjobs/jobs", {{"name", "nav"}});
    EXPECT_EQ(lastEventData(), Json::array());
    state.pushJob(R"({"name":"other"})");
    EXPECT_EQ(lastEventData(), Json::array()) << "filtered by the subscription's query";
    std::string const id = state.pushJob(R"({"name":"nav","jobPayload":"p"})");
    EXPECT_EQ(sent.back()["subscriptionId"], jobs);
    Json const job = lastEventData()[0];
    EXPECT_EQ(job["id"], id);
    EXPECT_EQ(job["messageId"], "005F/2");
    EXPECT_EQ(job["jobPayload"], "p");

    state.handleHttp("POST", "/backendjobs/jobs/" + id, R"({"jobAcknowledgeState":"success"})");
    ASSERT_EQ(state.acknowledgements().size(), 1u);
    EXPECT_EQ(state.acknowledgements()[0].jobId, id);
    EXPECT_EQ(state.acknowledgements()[0].state, "success");
    EXPECT_EQ(get("/backendjobs/jobs?name=nav")["data"], Json::array());
    EXPECT_EQ(state.pushJob("not json"), "");
}

}  // namespace
}  // namespace qel::test
