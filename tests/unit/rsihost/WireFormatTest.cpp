#include "rsi/host/RsiWireFormat.h"
#include "support/InMemoryRsiClient.h"

#include <gtest/gtest.h>

namespace qel::test {
namespace {

using namespace rsi::client;
namespace wire = rsi::client::host::wire;

TEST(RsiWireFormat, TargetFollowsTheRequestTypeAndEncodesTheQuery) {
    EXPECT_EQ(wire::targetOf(*makeRequest(RequestTypeGetResource, 0, "onlinekvs", "items")), "/onlinekvs/items");
    EXPECT_EQ(wire::targetOf(*makeRequest(RequestTypePostElement, 0, "backendjobs", "jobs", "j1")),
              "/backendjobs/jobs/j1");
    EXPECT_EQ(wire::targetOf(*makeRequest(RequestTypeGetService, 0, "servicemanagement")), "/servicemanagement/");

    auto lookup = makeRequest(RequestTypeGetElement, 0, "capabilitiesmanagement", "capabilities");
    lookup->queryParameters = {{"serviceHostSystem", "005F"}, {"name", "seat heating/2"}};
    EXPECT_EQ(wire::targetOf(*lookup),
              "/capabilitiesmanagement/capabilities/?name=seat%20heating%2F2&serviceHostSystem=005F");

    auto root = makeRequest(RequestTypeSubscribeRoot, 0, "ignored");
    root->queryParameters = {{"name", "onlinekvs"}};
    EXPECT_EQ(wire::targetOf(*root), "/?name=onlinekvs");
}

TEST(RsiWireFormat, QueryDecodingIsLenientAndInvertsEncoding) {
    std::map<std::string, std::string> const tricky = {{"a&b", "c=d"}, {"umlaut", "\xC3\xA4"}, {"plus", "1+1"}};
    EXPECT_EQ(wire::encodeQuery(tricky), "a%26b=c%3Dd&plus=1%2B1&umlaut=%C3%A4");
    EXPECT_EQ(wire::decodeQuery(wire::encodeQuery(tricky)), tricky);

    auto const decoded = wire::decodeQuery("name=a+b&flag&&bad=%zz&cut=%4");
    EXPECT_EQ(decoded.at("name"), "a b");
    EXPECT_EQ(decoded.at("flag"), "");
    EXPECT_EQ(decoded.at("bad"), "%zz");
    EXPECT_EQ(decoded.at("cut"), "%4");
    EXPECT_EQ(decoded.size(), 4u);
}

}  // namespace
}  // namespace qel::test
