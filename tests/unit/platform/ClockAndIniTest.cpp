#include "support/LogCapture.h"
#include "support/ManualClock.h"

#include "common/Clock.h"
#include "ini/IniFileHandler.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

namespace {

using qel::common::system::Clock;
using qel::onlineservices::common::ini::IniFileHandler;

TEST(Clock, ManualSourceMovesOnlyWhenAdvancedAndSteadyReturnsAfterwards) {
    {
        qel::test::ManualClock clock(5000);
        auto const stamp = Clock::getSystemTimeValue();
        EXPECT_EQ(stamp, 5000);
        EXPECT_EQ(Clock::getElapsedTimeMillis(stamp), 0u);
        clock.advance(10'000);
        EXPECT_EQ(Clock::getElapsedTimeMillis(stamp), 10'000u);
        EXPECT_EQ(Clock::getElapsedTimeMillis(stamp + 20'000), 0u) << "a stamp in the future has no elapsed time";
    }
    auto const first = Clock::getSystemTimeValue();
    EXPECT_GE(Clock::getSystemTimeValue(), first);
    EXPECT_GT(first, 0);
}

class IniFileHandlerTest : public ::testing::Test {
protected:
    std::string write(std::string const& content) {
        std::ofstream(m_path) << content;
        return m_path;
    }
    void TearDown() override { std::remove(m_path.c_str()); }
    std::string m_path = ::testing::TempDir() + "ini_handler_test.ini";
};

TEST_F(IniFileHandlerTest, ReadsStringsAndIntegersAndLeavesOutputAloneWhenAbsent) {
    IniFileHandler ini(write("[RSI_SERVICE]\nIP_ADDRESS = 10.0.0.1\nPORT=8080\nEMPTY=\n"
                             "[RSI_CONFIG]\nHEX=0x10\nWORD=ten\nHUGE=99999999999\nNEG=-5\n"));
    EXPECT_TRUE(ini.isValid());

    std::string text = "untouched";
    EXPECT_TRUE(ini.getValue("RSI_SERVICE", "IP_ADDRESS", text));
    EXPECT_EQ(text, "10.0.0.1");
    EXPECT_TRUE(ini.getValue("RSI_SERVICE", "EMPTY", text));
    EXPECT_EQ(text, "");
    text = "untouched";
    EXPECT_FALSE(ini.getValue("RSI_SERVICE", "MISSING", text));
    EXPECT_FALSE(ini.getValue("NO_SECTION", "PORT", text));
    EXPECT_EQ(text, "untouched");

    int number = 3;
    EXPECT_TRUE(ini.getValue("RSI_SERVICE", "PORT", number));
    EXPECT_EQ(number, 8080);
    EXPECT_TRUE(ini.getValue("RSI_CONFIG", "HEX", number));
    EXPECT_EQ(number, 16);
    EXPECT_TRUE(ini.getValue("RSI_CONFIG", "NEG", number));
    EXPECT_EQ(number, -5);
    number = 3;
    EXPECT_FALSE(ini.getValue("RSI_CONFIG", "WORD", number));
    EXPECT_FALSE(ini.getValue("RSI_CONFIG", "HUGE", number));
    EXPECT_FALSE(ini.getValue("RSI_SERVICE", "EMPTY", number));
    EXPECT_EQ(number, 3);
}

TEST_F(IniFileHandlerTest, MissingFileSaysSoOnceAndSyntaxErrorKeepsTheRest) {
    std::string const path = ::testing::TempDir() + "does/not/exist.ini";
    std::string text;
    {
        qel::test::LogCapture log;
        IniFileHandler missing(path);
        EXPECT_FALSE(missing.isValid());
        EXPECT_FALSE(missing.getValue("A", "B", text));
        EXPECT_EQ(log.countPrefix(qel::common::logging::LogLevel::Info, "Cannot open ini file " + path + ";"), 1u);
    }

    qel::test::LogCapture log;
    IniFileHandler broken(write("[A]\nB=1\nthis line is not ini\nC=2\n"));
    EXPECT_FALSE(broken.isValid());
    EXPECT_TRUE(broken.getValue("A", "C", text));
    EXPECT_EQ(text, "2");
    EXPECT_EQ(log.countPrefix(qel::common::logging::LogLevel::Warning, "Syntax error in "), 1u);
}

}  // namespace
