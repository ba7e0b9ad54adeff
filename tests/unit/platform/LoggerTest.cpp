#include "support/LogCapture.h"

#include <gtest/gtest.h>

using qel::common::logging::LogLevel;
using qel::common::logging::Logger;
TEST(Logger, smoke) {
    qel::test::LogCapture log;
    Logger logger("ctx");
    logger << LogLevel::Info << "a" << 1 << std::string("b") << 'c' << true << 2.5;
    EXPECT_EQ(log.count(LogLevel::Info, "a1bc12.5"), 1u);
}
