// What the networking tests share: the in-process binding, the simulator as the service, and
// recorders for granted addresses.
#pragma once

#include "NetworkingSimulator.h"
#include "commonapi/Runtime.h"
#include "commonapi/networking/networkingProxy.h"
#include "support/RsiRecorders.h"

#include <onlineservices/framework/IServiceDataListener.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include <unistd.h>

namespace qel::test {

using NetworkingProxy = v1::qel::networking::api::networkingProxy<>;
using v1::qel::networking::api::definitions::ClientData_s;
using v1::qel::networking::api::definitions::ResultCodes_e;

// Waits (real time, as a safety limit) until `done` holds; for work of other threads.
inline bool eventually(std::function<bool()> const& done, int limitMs = 5000) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

// Hears granted addresses as "service ipv4 ipv6".
struct InterfaceRecorder : onlineservices::framework::core::IServiceDataListener {
    void onNetworkInterfaceChanged(std::string const& serviceId, std::shared_ptr<ClientData_s> const& ipv4,
                                   std::shared_ptr<ClientData_s> const& ipv6) override {
        heard.add(serviceId + " " + ipv4->getAddress() + " " + ipv6->getAddress());
    }
    Recorder<std::string> heard;
};

inline std::shared_ptr<NetworkingProxy> proxyAt(std::string const& instance) {
    return CommonAPI::Runtime::get()->createProxy<v1::qel::networking::api::networkingProxy>("kalm", instance, "");
}

// Waits until the binding's thread has delivered everything posted so far: a new listener's
// first status comes after it. Call before tearing down what earlier events may still reach.
inline bool flushBindingEvents(std::string const& instance = "qel.networking.api") {
    auto const proxy = proxyAt(instance);
    if (!proxy) {
        return false;
    }
    auto const heard = std::make_shared<std::atomic<bool>>(false);
    proxy->getProxyStatusEvent().subscribe([heard](CommonAPI::AvailabilityStatus const&) { *heard = true; });
    return eventually([&heard] { return heard->load(); });
}

// A name no other test (or run) uses, for bus instances and /tmp files.
inline std::string uniqueName(std::string const& stem) {
    static int counter = 0;
    return stem + "-" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
}

}  // namespace qel::test
