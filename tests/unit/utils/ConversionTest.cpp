#include <onlineservices/framework/Conversion.h>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using qel::onlineservices::framework::core::KVSUpdateStatus;
using qel::onlineservices::framework::utils::Conversion;

TEST(Conversion, NamesEveryKvsUpdateStatusAndThrowsOutsideTheTable) {
    EXPECT_EQ(Conversion::toString(static_cast<KVSUpdateStatus>(0)), "UPDATE_OK");
    EXPECT_EQ(Conversion::toString(static_cast<KVSUpdateStatus>(1)), "KVS_SERVICE_UNAVAILABLE");
    EXPECT_EQ(Conversion::toString(static_cast<KVSUpdateStatus>(2)), "UPDATE_REQUEST_FAILED");
    EXPECT_EQ(Conversion::toString(static_cast<KVSUpdateStatus>(3)), "KVS_ITEM_NOT_FOUND");
    EXPECT_EQ(Conversion::toString(static_cast<KVSUpdateStatus>(4)), "INTERNAL_ERROR");
    EXPECT_THROW(Conversion::toString(static_cast<KVSUpdateStatus>(5)), std::out_of_range);
    EXPECT_THROW(Conversion::toString(static_cast<KVSUpdateStatus>(-1)), std::out_of_range);
}

}  // namespace
