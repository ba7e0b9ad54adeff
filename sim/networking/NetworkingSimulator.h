// The networking-service simulator: serves "qel.networking.api.networking:v1_0" through the
// CommonAPI runtime (the D-Bus session bus in the program; the in-process binding in tests).
//
//   NetworkingSimulator simulator;
//   simulator.loadScenario(R"({"services":{"nav":{"ipv4":{"address":"10.0.0.5","prefix":24,"name":"ocu0"}}}})");
//   simulator.start();                                  // registers the service
//   simulator.refuse("nav", ResultCodes_e::NOT_ALLOWED, 2);  // the next two requests are refused
//   simulator.setOcuAvailable(false);                   // every subscribed proxy hears it
//   simulator.leaveBus(); simulator.rejoinBus();
//
// Contract: by default every service is granted, with its scenario addresses or the defaults.
// A rule set for a service (refuse, fail, grant empty) applies to its next `count` requests (0:
// until changed) and then falls back to granting. Every call and control action is logged and
// every call recorded. Thread-safe; never throws.
#pragma once

#include "commonapi/Types.h"
#include "commonapi/networking/networkingTypes.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qel::sim::networking {

using ClientData_s = v1::qel::networking::api::definitions::ClientData_s;
using ResultCodes_e = v1::qel::networking::api::definitions::ResultCodes_e;

struct CallRecord {
    std::string method;     // "getInternetAccess" or "dropInternetAccess"
    std::string serviceId;
    std::string outcome;    // "granted", "granted-empty", "refused <code>", "failed <status>", "dropped"
};

enum class Mode { GRANT, GRANT_EMPTY, REFUSE, FAIL };

struct Rule {
    Mode mode = Mode::GRANT;
    ResultCodes_e code = ResultCodes_e::SUCCESS;      // REFUSE
    CommonAPI::CallStatus status = CommonAPI::CallStatus::SUCCESS;  // FAIL
    std::uint32_t remaining = 0;  // 0: until changed
};

// What a service would be answered now.
struct ServiceView {
    std::string serviceId;
    ClientData_s ipv4;
    ClientData_s ipv6;
    std::optional<Rule> rule;  // none: granted with the addresses
};

class NetworkingSimulator {
public:
    static constexpr char const* DEFAULT_DOMAIN = "kalm";
    static constexpr char const* DEFAULT_INSTANCE = "qel.networking.api";

    NetworkingSimulator();
    ~NetworkingSimulator();  // leaves the bus
    NetworkingSimulator(NetworkingSimulator const&) = delete;
    NetworkingSimulator& operator=(NetworkingSimulator const&) = delete;

    // {"defaults":{"ipv4":{...},"ipv6":{...}},"services":{"<id>":{"ipv4":{...},"ipv6":{...}}},
    //  "ocuAvailable":true}; an address is {"address":"..","prefix":N,"name":".."}.
    bool loadScenario(std::string const& jsonText);
    bool loadScenarioFile(std::string const& path);

    // Registers the service at the address; false when the binding refuses.
    bool start(std::string const& domain = DEFAULT_DOMAIN, std::string const& instance = DEFAULT_INSTANCE);
    void stop();
    bool isOnBus() const;
    // The same as stop and start at the last address, as a crashed and restarted service.
    void leaveBus();
    bool rejoinBus();

    void grant(std::string const& serviceId);
    void grantEmpty(std::string const& serviceId, std::uint32_t count = 0);
    void refuse(std::string const& serviceId, ResultCodes_e code, std::uint32_t count = 0);
    void fail(std::string const& serviceId, CommonAPI::CallStatus status, std::uint32_t count = 0);
    // Emits the OCU event at once (while on the bus) and remembers the state.
    void setOcuAvailable(bool available);
    bool ocuAvailable() const;

    std::vector<CallRecord> calls() const;
    void clearCalls();
    // Waits (real time, as a safety limit) until `count` calls were recorded; false at the limit.
    bool waitForCalls(std::size_t count, std::uint32_t limitMs = 5000) const;

    // Every service the scenario, a rule or a call named, by id.
    std::vector<ServiceView> services() const;
    // Called after every call recorded and every change of state, on the thread that made it (the
    // binding's for calls, the controller's for changes), with no lock held. It may read the
    // simulator but must not block. Replaces the previous listener; empty removes it.
    void setChangeListener(std::function<void()> listener);

    struct Impl;  // shared with the service side, which holds it weakly

private:
    std::shared_ptr<Impl> m_impl;
};

}  // namespace qel::sim::networking
