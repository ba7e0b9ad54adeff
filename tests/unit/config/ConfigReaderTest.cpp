#include "config/ConfigReader.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using qel::common::logging::LogLevel;
using qel::onlineservices::framework::ConfigReader;
using qel::onlineservices::framework::FrameworkSubConfig;

class ConfigReaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = ::testing::TempDir() + "configreader-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }

    std::string writeIni(std::string const& text) const {
        std::string const path = m_dir + "/framework.ini";
        std::ofstream(path) << text;
        return path;
    }

    std::string m_dir;
    qel::test::LogCapture m_log;
};

TEST_F(ConfigReaderTest, MissingFileLogsEveryBooleanFallbackInReadingOrder) {
    std::string const path = m_dir + "/absent.ini";
    ConfigReader const reader(path);

    // The ini handler says once that the file is not there, as it is opened.
    std::vector<std::string> expected{"Cannot open ini file " + path + "; using the defaults",
                                      "Opening inifile " + path + ":"};
    for (char const* key : {"SKIP_SERVICE_SUBSCRIPTION", "SKIP_PRIVACY_SUBSCRIPTION", "SKIP_TOKEN_SUBSCRIPTION",
                            "SKIP_JOB_SUBSCRIPTION", "SKIP_KVS", "SKIP_CAPABILITIES", "SKIP_JOB_ENTRIES",
                            "SKIP_OPERATION_ENTRIES", "SKIP_NETWORKING_REGISTRATION", "IGNORE_DISABLE_REASONS"}) {
        expected.push_back(std::string("Failed to read value for ") + key + ", using default value false");
    }
    expected.push_back("Using RSI request try count: 3");
    expected.push_back("Using RSI request try count: 3");
    EXPECT_EQ(m_log.messages(LogLevel::Info), expected);
}

TEST_F(ConfigReaderTest, OnlyTheTwoTrueSpellingsSetAFlag) {
    FrameworkSubConfig const config =
        ConfigReader(writeIni("[SUBSCRIPTION_CONFIG]\nSKIP_SERVICE_SUBSCRIPTION=true\nSKIP_TOKEN_SUBSCRIPTION=TRUE\n"
                              "SKIP_CAPABILITIES=True\nSKIP_JOB_ENTRIES=1\nSKIP_OPERATION_ENTRIES=yes\n"
                              "SKIP_PRIVACY_SUBSCRIPTION=\nSKIP_KVS_SUBSCRIPTION=TRUE\n"
                              "[TEST_CONFIG]\nIGNORE_DISABLE_REASONS=TRUE\n"))
            .getSubConfig();
    EXPECT_TRUE(config.skipServiceSubscription && config.skipTokenSubscription && config.ignoreDisableReasons);
    EXPECT_FALSE(config.skipCapabilities || config.skipJobEntries || config.skipOperationEntries ||
                 config.skipPrivacySubscription);
    // The KVS key has no "_SUBSCRIPTION" suffix; the suffixed spelling is not read.
    EXPECT_FALSE(config.skipKVSSubscription);
    EXPECT_EQ(m_log.count(LogLevel::Info, "Failed to read value for SKIP_KVS, using default value false"), 1u);
    EXPECT_EQ(m_log.count(LogLevel::Info, "Read value for SKIP_CAPABILITIES successful: True"), 1u);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "Using bool value false"), 4u);
}

TEST_F(ConfigReaderTest, ReadsRsiSettingsWrapsThePortAndClampsTryCounts) {
    FrameworkSubConfig const config = ConfigReader(writeIni("[SUBSCRIPTION_CONFIG]\nSKIP_KVS=TRUE\n"
                                                            "[RSI_SERVICE]\nIP_ADDRESS=10.0.2.15\nPORT=70000\n"
                                                            "[RSI_CONFIG]\nTRY_COUNT_REQUESTS=100\n"
                                                            "TRY_COUNT_SUBSCRIPTIONS=-5\n"))
                                          .getSubConfig();
    EXPECT_TRUE(config.skipKVSSubscription);
    EXPECT_EQ(config.rsiServiceIpAddress, "10.0.2.15");
    EXPECT_EQ(config.rsiServicePort, 4464);
    EXPECT_EQ(config.tryCountRequests, 100);
    EXPECT_EQ(config.tryCountSubscriptions, 1);

    std::vector<std::string> const lines = m_log.messages(LogLevel::Info);
    std::vector<std::string> const tail(lines.end() - 5, lines.end());
    EXPECT_EQ(tail, (std::vector<std::string>{"Read RSI Service IP successful: 10.0.2.15",
                                              "Read RSI Port successful: 70000",
                                              "Failed to read value for IGNORE_DISABLE_REASONS, using default value "
                                              "false",
                                              "Using RSI request try count: 100", "Using RSI request try count: 1"}));
}

TEST_F(ConfigReaderTest, EmptyAddressAndBadNumbersKeepDefaultsSilently) {
    FrameworkSubConfig const config = ConfigReader(writeIni("[RSI_SERVICE]\nIP_ADDRESS=\nPORT=port\n"
                                                            "[RSI_CONFIG]\nTRY_COUNT_REQUESTS=0\n"
                                                            "TRY_COUNT_SUBSCRIPTIONS=many\n"))
                                          .getSubConfig();
    EXPECT_EQ(config.rsiServiceIpAddress, "");
    EXPECT_EQ(config.rsiServicePort, 0);
    EXPECT_EQ(config.tryCountRequests, 1);
    EXPECT_EQ(config.tryCountSubscriptions, 3);
    EXPECT_EQ(m_log.countPrefix(LogLevel::Info, "Read RSI"), 0u);
    EXPECT_EQ(m_log.count(LogLevel::Info, "Using RSI request try count: 1"), 1u);
    EXPECT_EQ(m_log.count(LogLevel::Info, "Using RSI request try count: 3"), 1u);
}

TEST_F(ConfigReaderTest, EmptyOrAbsentPathOpensTheDeviceFile) {
    ConfigReader const withEmptyPath{std::string()};
    ConfigReader const withoutPath;
    EXPECT_EQ(m_log.count(LogLevel::Info, "Opening inifile /etc/qel.onlineservices.framework/framework.ini:"), 2u);
}

}  // namespace
