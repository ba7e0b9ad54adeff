#include <onlineservices/framework/CommonApiConnector.h>

#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

using qel::common::logging::LogLevel;
using qel::onlineservices::framework::utils::CommonApiConnector;

TEST(CommonApiConnector, DescribesItsAddressWithPlaceholdersForEmptyParts) {
    CommonApiConnector connector("", "", "", 7, 500);
    EXPECT_EQ(connector.proxyDescription(), "( domain: <empty> | instance: <empty> | connection: <empty> )");
    connector.setDomain("local");
    connector.setConnection("x");
    EXPECT_EQ(connector.proxyDescription(), "( domain: local | instance: <empty> | connection: x )");
}

TEST(CommonApiConnector, TakesTheRuntimeOnce) {
    CommonApiConnector connector("local", "inst", "conn", 0, 1000);
    qel::test::LogCapture log;
    EXPECT_TRUE(connector.tryCreateRuntime());
    EXPECT_TRUE(connector.tryCreateRuntime());
    EXPECT_EQ(log.count(LogLevel::Info, "Successfully created CommonAPI runtime"), 1u);
    EXPECT_EQ(connector.getRuntime(), CommonAPI::Runtime::get());
}

}  // namespace
