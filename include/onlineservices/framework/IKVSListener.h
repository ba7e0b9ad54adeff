// Receives changes of the application's key-value-storage items.
//
// Contract: called on the KVS item's queue thread (one per key), which waits for it: return
// quickly, and do not register listeners or call back into the client from inside the callback. Held weakly: keep the listener alive for as long as it should be called.
#pragma once

#include <onlineservices/framework/Export.h>

#include <string>

namespace qel::onlineservices::framework::core {

class QEL_OSF_EXPORT IKVSListener {
public:
    virtual ~IKVSListener() = default;
    // The item `key` now holds `value` in the backend.
    virtual void onKVSItemChanged(std::string const& key, std::string const& value) = 0;
};

}  // namespace qel::onlineservices::framework::core
