// Receives what the backend says about the application's services.
//
// Contract: every operation has an empty default body; override what you need. The records are
// shared read-only; keep the pointer if you need them later.
//
// Calls never overlap: the framework makes one listener call at a time, across all listeners of
// the client, in the order the events happened. A call runs on a framework thread: the thread
// on which the event happened, or another framework thread that is delivering events at that
// moment. The application's own thread delivers only from inside `startup`, `pauseConnection`,
// `unpauseConnection` and `stop`. Events that happen during a call are queued behind it, so
// return quickly and hand long work to a thread of your own. From inside a call do not register
// listeners; do not wait for another listener call (it comes only after you return), do not call
// `updateKVSItem` or `stop`, and do not release the client. Listeners are held weakly: keep yours
// alive for as long as it should be called.
#pragma once

#include <onlineservices/framework/Export.h>
#include <onlineservices/framework/PrivacySettingsObject.h>
#include <onlineservices/framework/ServiceObject.h>

#include <memory>
#include <string>
#include <vector>

// The networking service's address record (address, prefix length, interface name); its
// definition is in the platform header "commonapi/networking/networkingTypes.h".
namespace v1::qel::networking::api::definitions {
struct ClientData_s;
}

namespace qel::onlineservices::framework::core {

class QEL_OSF_EXPORT IServiceDataListener {
public:
    // The backend's disable reasons of a service changed ("undefined" entries mean none).
    virtual void onDisableReasonChanged(std::string const& /*serviceId*/,
                                        std::vector<std::string> const& /*disableReasons*/) {}
    // A new access token for the service.
    virtual void onTokenChanged(std::string const& /*serviceId*/, std::string const& /*token*/) {}
    // The service's base URL changed.
    virtual void onBaseURLChanged(std::string const& /*serviceId*/, std::string const& /*baseUrl*/) {}
    // The service's entry in the backend's service list changed.
    virtual void onServiceDataChanged(std::string const& /*serviceId*/,
                                      std::shared_ptr<framework::dataitems::ServiceObject> const& /*service*/) {}
    // Internet access was granted for the service, with its IPv4 and IPv6 addresses.
    virtual void onNetworkInterfaceChanged(
        std::string const& /*serviceId*/,
        std::shared_ptr<v1::qel::networking::api::definitions::ClientData_s> const& /*ipv4*/,
        std::shared_ptr<v1::qel::networking::api::definitions::ClientData_s> const& /*ipv6*/) {}
    // The service's privacy setup changed; the record tells that it changed, not what it holds.
    virtual void onPrivacySetupChanged(
        std::string const& /*serviceId*/,
        std::shared_ptr<framework::dataitems::PrivacySettingsObject> const& /*privacy*/) {}
    virtual ~IServiceDataListener() = default;
};

}  // namespace qel::onlineservices::framework::core
