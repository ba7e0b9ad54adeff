#include "rsi/Request.h"
#include "rsi/host/RsiWireFormat.h"

#include <gtest/gtest.h>

namespace qel::test {
namespace {

using namespace rsi::client;
namespace wire = rsi::client::host::wire;

Request request(std::uint32_t type, std::string service, std::string resource = {}, std::string element = {}) {
    Request result;
    result.type = type;
    result.service = std::move(service);
    result.resource = std::move(resource);
    result.element = std::move(element);
    return result;
}

TEST(RsiWireFormat, TargetFollowsTheRequestTypeAndEncodesTheQuery) {
    EXPECT_EQ(wire::targetOf(request(RequestTypeGetResource, "onlinekvs", "items")), "/onlinekvs/items");
    EXPECT_EQ(wire::targetOf(request(RequestTypePostElement, "backendjobs", "jobs", "j1")), "/backendjobs/jobs/j1");
    EXPECT_EQ(wire::targetOf(request(RequestTypeGetService, "servicemanagement")), "/servicemanagement/");

    auto lookup = request(RequestTypeGetElement, "capabilitiesmanagement", "capabilities");
    lookup.queryParameters = {{"serviceHostSystem", "005F"}, {"name", "seat heating/2"}};
    EXPECT_EQ(wire::targetOf(lookup),
              "/capabilitiesmanagement/capabilities/?name=seat%20heating%2F2&serviceHostSystem=005F");

    auto root = request(RequestTypeSubscribeRoot, "ignored");
    root.queryParameters = {{"name", "onlinekvs"}};
    EXPECT_EQ(wire::targetOf(root), "/?name=onlinekvs");
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
