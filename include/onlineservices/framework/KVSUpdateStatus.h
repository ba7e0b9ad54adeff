// The result of an application's update of one of its key-value-storage items.
//
// Contract: the numbers are part of the client's interface and never change.
#pragma once

namespace qel::onlineservices::framework::core {

enum KVSUpdateStatus : int {
    UPDATE_OK = 0,
    KVS_SERVICE_UNAVAILABLE = 1,
    UPDATE_REQUEST_FAILED = 2,
    KVS_ITEM_NOT_FOUND = 3,
    INTERNAL_ERROR = 4,
};

}  // namespace qel::onlineservices::framework::core
