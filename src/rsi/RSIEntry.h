// One entry the application owns at the backend (a capability, job entry, operation entry or KVS
// item), and what a posting run learns about it.
//
// Contract: the public fields are filled once by whoever makes the entry and only read later,
// except `uuid`, which the posting run writes and reads on the RSI worker thread only. The
// pending response handlers and the completion function change during a run, on the poster's
// thread and the RSI worker thread, and are reached through the member functions, which lock.
// The completion function and the URI handler are called without the lock.
#pragma once

#include "rsi/IURIHandler.h"
#include "rsi/RSIResponseHandler.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qel::onlineservices::framework::core {

class RSIEntry {
public:
    std::map<std::string, std::string> values;  // compared with the backend, posted on every write
    std::map<std::string, std::string> keys;    // query of the read; added to the body on creation
    bool updateIfExisting = false;              // an element found at the backend may be updated
    bool alwaysCreate = false;                  // every write creates a new element
    std::string service;
    std::string resource;
    std::string uuid;                           // the element id at the backend; kept between runs
    std::string description;                    // prefix of the entry's log lines
    std::weak_ptr<IURIHandler> uriHandler;      // told the element id; KVS items only

    // The wrapper holds response handlers weakly; the entry keeps them alive.
    void keepResponseHandler(std::shared_ptr<RSIResponseHandler> handler);
    void setCompletion(std::function<void(bool)> completion);
    // Reports the run's outcome to the completion function, if any.
    void complete(bool success) const;
    // Passes the current element id to the URI handler, if it is alive.
    void reportUuid() const;

private:
    mutable std::mutex m_mutex;
    std::vector<std::shared_ptr<RSIResponseHandler>> m_responseHandlers;  // guarded by m_mutex
    std::function<void(bool)> m_completion;                            // guarded by m_mutex
};

}  // namespace qel::onlineservices::framework::core
