#include "config/ClientEntries.h"

#include "support/LogCapture.h"

#include <onlineservices/framework/OnlineServiceClientFactory.h>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using qel::common::logging::LogLevel;
using namespace qel::onlineservices::framework::core;
using Strings = std::vector<std::string>;
using StringMap = std::map<std::string, std::string>;

TEST(OnlineServiceClientFactoryTest, SplitKeepsInnerEmptyPiecesAndSerializeJoinsWithCommas) {
    EXPECT_EQ(OnlineServiceClientFactory::_split("a..b", '.'), (Strings{"a", "", "b"}));
    EXPECT_EQ(OnlineServiceClientFactory::_split("a.b.", '.'), (Strings{"a", "b"}));
    EXPECT_EQ(OnlineServiceClientFactory::_split(".a", '.'), (Strings{"", "a"}));
    EXPECT_EQ(OnlineServiceClientFactory::_split("", '.'), Strings{});
    EXPECT_EQ(OnlineServiceClientFactory::_split("abc", '.'), Strings{"abc"});
    EXPECT_EQ(OnlineServiceClientFactory::serialize({"a", "b"}), "a, b");
    EXPECT_EQ(OnlineServiceClientFactory::serialize({}), "<none>");
}

TEST(OnlineServiceClientFactoryTest, CapabilityKeysCarryHostAndServiceOverToShorterKeys) {
    CapabilityKeyParser parser;
    auto const first = parser.makeEntry("hu.nav.route.fast", "1");
    EXPECT_EQ(first->description, "(Capability) route.fast");
    EXPECT_EQ(first->keys, (StringMap{{"name", "route.fast"}, {"serviceHostSystem", "hu"}, {"serviceId", "nav"}}));
    EXPECT_EQ(first->values, (StringMap{{"value", "1"}}));
    EXPECT_EQ(first->service, "capabilitiesmanagement");
    EXPECT_EQ(first->resource, "capabilities");
    EXPECT_TRUE(first->updateIfExisting);
    EXPECT_TRUE(first->alwaysCreate);

    auto const single = parser.makeEntry("x", "2");
    EXPECT_EQ(single->keys, (StringMap{{"name", ""}, {"serviceHostSystem", "x"}, {"serviceId", "nav"}}));
    auto const none = parser.makeEntry("", "3");
    EXPECT_EQ(none->keys, (StringMap{{"name", ""}, {"serviceHostSystem", "x"}, {"serviceId", "nav"}}));
}

TEST(OnlineServiceClientFactoryTest, JobOperationAndKvsEntriesHaveTheirFixedShapes) {
    auto const job = makeJobEntry({"remoteLock", "lock.xsd", "rlu"});
    EXPECT_EQ(job->description, "(Job Entry) remoteLock");
    EXPECT_EQ(job->service + "/" + job->resource, "backendjobs/jobEntries");
    EXPECT_EQ(job->keys, (StringMap{{"name", "remoteLock"}, {"serviceHostSystem", "005F"}, {"serviceId", "rlu"}}));
    EXPECT_EQ(job->values,
              (StringMap{{"protocol", "MQTT"}, {"payloadFormat", "EXI"}, {"payloadSchema", "lock.xsd"}}));
    EXPECT_FALSE(job->updateIfExisting);
    EXPECT_TRUE(job->alwaysCreate);

    auto const state = makeOperationEntry({"vehicleState", "JSON", "state.json", "rlu"});
    EXPECT_EQ(state->description, "(OperationEntry) vehicleState");
    EXPECT_EQ(state->service + "/" + state->resource, "backendjobs/operationEntries");
    EXPECT_EQ(state->values,
              (StringMap{{"protocol", "MQTT"}, {"payloadFormat", "JSON"}, {"payloadSchema", "state.json"}}));
    EXPECT_FALSE(state->updateIfExisting);
    EXPECT_FALSE(state->alwaysCreate);
    EXPECT_EQ(makeOperationEntry({"VehicleState", "JSON", "s", "rlu"})->values.at("protocol"), "HTTP");

    auto const kvs = makeKvsEntry("color", {});
    EXPECT_EQ(kvs->description, "(KVS item) color");
    EXPECT_EQ(kvs->service + "/" + kvs->resource, "onlinekvs/items");
    EXPECT_EQ(kvs->keys, (StringMap{{"name", "color"}}));
    EXPECT_TRUE(kvs->values.empty());
    EXPECT_FALSE(kvs->updateIfExisting);
    EXPECT_TRUE(kvs->alwaysCreate);
}

class FactoryAssemblyTest : public ::testing::Test {
protected:
    OnlineServiceClientConfig validConfig() const {
        OnlineServiceClientConfig config;
        config.serviceIds = {"nav"};
        config.iniFilePath = ::testing::TempDir() + "no-such-dir/framework.ini";
        config.jobEntries = {std::make_shared<JobEntry>(JobEntry{"job", "schema", "nav"})};
        config.operationEntries = {std::make_shared<OperationEntry>(OperationEntry{"op", "JSON", "s", "nav"})};
        return config;
    }
    // The configuration block: the lines that draw it, in order (other threads log meanwhile).
    Strings printout() const {
        Strings lines;
        for (auto const& line : m_log.messages(LogLevel::Info)) {
            if (!line.empty() && (line[0] == '|' || line[0] == '+')) {
                lines.push_back(line);
            }
        }
        return lines;
    }
    qel::test::LogCapture m_log;
};

TEST_F(FactoryAssemblyTest, RefusedConfigurationsGiveNullWithTheirReasonYetPrintTheConfiguration) {
    auto noServiceId = validConfig(), nullJob = validConfig(), nullOperation = validConfig();
    noServiceId.serviceIds.clear();
    nullJob.jobEntries.push_back(nullptr);
    nullOperation.operationEntries.insert(nullOperation.operationEntries.begin(), nullptr);
    for (auto const& [config, reason] : std::vector<std::pair<OnlineServiceClientConfig, std::string>>{
             {noServiceId, "Could not create OnlineServiceClient, no serviceIds given in OnlineServiceClientConfig"},
             {nullJob, "OnlineServiceClient creation failed: job entry object invalid!"},
             {nullOperation, "OnlineServiceClient creation failed: operation entry object invalid!"}}) {
        m_log.clear();
        EXPECT_EQ(OnlineServiceClientFactory::createOnlineServiceClient(config), nullptr) << reason;
        EXPECT_TRUE(m_log.contains(LogLevel::Error, reason));
        EXPECT_FALSE(m_log.contains(LogLevel::Info, "Successfully created OnlineServiceClient"));
        ASSERT_GE(printout().size(), 2u);
        EXPECT_EQ(printout()[1], config.serviceIds.empty() ? "|  ServiceIds: <none>" : "|  ServiceIds: nav");
    }
}

TEST_F(FactoryAssemblyTest, SuccessNamesTheLoggersAfterTheFirstServiceAndPrintsEveryLine) {
    auto config = validConfig();
    config.serviceIds = {"nav", "media"};
    config.kvsItems = {"color", "size"};
    config.capabilities = {{"hu.nav.route.fast", "1"}};
    auto const client = OnlineServiceClientFactory::createOnlineServiceClient(config);
    ASSERT_NE(client, nullptr);
    EXPECT_TRUE(m_log.contains(LogLevel::Info, "Successfully created OnlineServiceClient"));
    std::vector<std::string> contexts;
    for (auto const& entry : m_log.entries()) {
        if (entry.message == "Successfully created OnlineServiceClient") {
            contexts.push_back(entry.context);
        }
    }
    EXPECT_EQ(contexts, Strings{"framework_nav"});
    Strings const expected{
        "+--------------------------- Client Configuration ---------------------------------",
        "|  ServiceIds: nav, media",
        "|  KVS items: color, size",
        "|  Capabilities: ",
        "|     hu.nav.route.fast : 1",
        "|  JobEntries: ",
        "|     job",
        "|        ServiceId: nav",
        "|        PayloadSchema: schema",
        "|  OperationEntries: ",
        "|     op",
        "|        ServiceId: nav",
        "|        PayloadFormat: JSON",
        "|        PayloadSchema: s",
        "|",
        "|  Inifile path: " + config.iniFilePath,
        "+--------------------------- Ini Configuration -----------------------------------",
        "|  Skip capabilities: false",
        "|  Skip jobEntries: false",
        "|  Skip operationEntries: false",
        "|  Skip servicelist subscription: false",
        "|  Skip token subscription: false",
        "|  Skip privacy setup subscription: false",
        "|  Skip KVS subscription: false",
        "|  Skip Job subscription: false",
        "|  Skip Networking registration: false",
        "|",
        "|  RSI Subscription retry count: 3",
        "|  RSI Request retry count: 3",
        "|",
        "|  Ignore disable reasons: false",
        "+----------------------------------------------------------------------------------",
    };
    EXPECT_EQ(printout(), expected);
}

}  // namespace
