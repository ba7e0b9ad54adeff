#include "rsi/SharedRsiClient.h"
#include "rsi/host/HostRsiClient.h"
#include "rsi/host/RsiEndpoint.h"
#include "support/InMemoryRsiClient.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <unistd.h>

namespace qel::test {
namespace {

using common::logging::LogLevel;
using rsi::client::host::RsiEndpoint;

class RsiEndpointTest : public ::testing::Test {
protected:
    void SetUp() override { clearEnvironment(); }
    void TearDown() override {
        clearEnvironment();
        std::filesystem::remove(m_iniPath);
    }

    static void clearEnvironment() {
        unsetenv("QEL_RSI_HOST");
        unsetenv("QEL_RSI_PORT");
    }
    std::string writeIni(std::string const& text) {
        std::ofstream(m_iniPath) << text;
        return m_iniPath;
    }

    LogCapture log;
    std::string const m_iniPath =
        (std::filesystem::temp_directory_path() / ("rsi-endpoint-" + std::to_string(::getpid()) + ".ini")).string();
};

TEST_F(RsiEndpointTest, EnvironmentWinsOverIniWhichWinsOverTheDefault) {
    RsiEndpoint const fallback = RsiEndpoint::resolve(m_iniPath);
    EXPECT_EQ(fallback.text(), "127.0.0.1:8080");

    std::string const ini = writeIni("[RSI_SERVICE]\nIP_ADDRESS=10.0.0.7\nPORT=9000\n");
    EXPECT_EQ(RsiEndpoint::resolve(ini).text(), "10.0.0.7:9000");

    setenv("QEL_RSI_PORT", "9100", 1);
    EXPECT_EQ(RsiEndpoint::resolve(ini).text(), "10.0.0.7:9100") << "host and port are decided separately";
    setenv("QEL_RSI_HOST", "localhost", 1);
    EXPECT_EQ(RsiEndpoint::resolve(ini).text(), "localhost:9100");
    EXPECT_TRUE(log.contains(LogLevel::Info, "RSI backend endpoint localhost:9100"));
}

TEST_F(RsiEndpointTest, UnusableValuesAreLoggedAndIgnoredAndWebSocketBoundsAreRead) {
    std::string const ini = writeIni(
        "[RSI_SERVICE]\nIP_ADDRESS=\nPORT=70000\nWS_MAX_EVENT_BYTES=4194304\nWS_IDLE_TIMEOUT_MS=-5\n");
    setenv("QEL_RSI_PORT", "80x", 1);
    EXPECT_EQ(RsiEndpoint::resolve(ini).text(), "127.0.0.1:8080");
    EXPECT_TRUE(log.contains(LogLevel::Warning, "Ignoring RSI_SERVICE/PORT 70000 of " + ini));
    EXPECT_TRUE(log.contains(LogLevel::Warning, "Ignoring QEL_RSI_PORT='80x'"));

    auto const options = rsi::client::host::HostRsiClient::defaultOptions(ini);
    EXPECT_EQ(options.endpoint.text(), "127.0.0.1:8080");
    EXPECT_EQ(options.webSocket.maxEventBytes, 4194304u);
    EXPECT_EQ(options.webSocket.idleTimeoutMs, 20000u) << "only positive bounds are taken";
    EXPECT_TRUE(log.contains(LogLevel::Warning, "Ignoring RSI_SERVICE/WS_IDLE_TIMEOUT_MS -5"));
}

TEST(SharedRsiClient, HostClientIsTheDefaultUntilAClientIsInstalled) {
    auto const host = rsi::client::GetSharedRsiClient();
    EXPECT_NE(std::dynamic_pointer_cast<rsi::client::host::HostRsiClient>(host), nullptr);
    EXPECT_EQ(rsi::client::GetSharedRsiClient(), host) << "one client per process";
    {
        InMemoryRsiClient::Installation installed;
        EXPECT_EQ(rsi::client::GetSharedRsiClient(), installed.get());
    }
    EXPECT_EQ(rsi::client::GetSharedRsiClient(), nullptr) << "uninstalled: no client at all";
}

}  // namespace
}  // namespace qel::test
