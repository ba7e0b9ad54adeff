#include "NetworkingSimulator.h"

#include "common/Logger.h"
#include "commonapi/Runtime.h"
#include "commonapi/networking/networkingStub.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>

namespace qel::sim::networking {
namespace {

using common::logging::LogLevel;
using Json = nlohmann::json;
using v1::qel::networking::api::networking;
using v1::qel::networking::api::networkingStubDefault;

ClientData_s addressFrom(Json const& value, ClientData_s const& fallback) {
    if (!value.is_object()) {
        return fallback;
    }
    return ClientData_s(value.value("address", fallback.getAddress()), value.value("prefix", fallback.getPrefix()),
                        value.value("name", fallback.getName()));
}

}  // namespace

struct NetworkingSimulator::Impl {
    common::logging::Logger const logger{"networkingsim"};
    mutable std::mutex mutex;
    mutable std::condition_variable recorded;
    ClientData_s defaultIpv4{"192.168.100.2", 24, "ocu0"};  // guarded by mutex
    ClientData_s defaultIpv6{"fd00::2", 64, "ocu0"};        // guarded by mutex
    std::map<std::string, std::pair<ClientData_s, ClientData_s>> addresses;  // guarded by mutex
    std::map<std::string, Rule> rules;                                       // guarded by mutex
    std::vector<CallRecord> calls;                                           // guarded by mutex
    bool ocuAvailable = true;                                                // guarded by mutex
    std::string domain = DEFAULT_DOMAIN;                                     // guarded by mutex
    std::string instance = DEFAULT_INSTANCE;                                 // guarded by mutex
    std::shared_ptr<networkingStubDefault> stub;                             // guarded by mutex
    std::function<void()> changeListener;                                    // guarded by mutex

    void changed() const {
        std::function<void()> listener;
        {
            std::lock_guard<std::mutex> guard(mutex);
            listener = changeListener;
        }
        if (listener) {
            listener();
        }
    }

    void record(CallRecord call) {
        logger << LogLevel::Info << call.method << "(" << call.serviceId << ") -> " << call.outcome;
        {
            std::lock_guard<std::mutex> guard(mutex);
            calls.push_back(std::move(call));
        }
        recorded.notify_all();
        changed();
    }

    void setRule(std::string const& serviceId, Rule rule, std::string const& what) {
        logger << LogLevel::Info << "Control: " << what << " for service " << serviceId
               << (rule.remaining != 0 ? " (next " + std::to_string(rule.remaining) + " requests)" : std::string());
        {
            std::lock_guard<std::mutex> guard(mutex);
            rules[serviceId] = rule;
        }
        changed();
    }

    // The rule for this request, counting it down.
    Rule take(std::string const& serviceId) {
        std::lock_guard<std::mutex> guard(mutex);
        auto const found = rules.find(serviceId);
        if (found == rules.end()) {
            return Rule{};
        }
        Rule const rule = found->second;
        if (rule.remaining == 1) {
            rules.erase(found);
        } else if (rule.remaining > 1) {
            --found->second.remaining;
        }
        return rule;  // the change listener hears of it with the call's record
    }

    bool decide(std::string const& serviceId, ClientData_s& ipv4, ClientData_s& ipv6, ResultCodes_e& result,
                CommonAPI::CallStatus& failure) {
        Rule const rule = take(serviceId);
        switch (rule.mode) {
            case Mode::FAIL:
                failure = rule.status;
                record({"getInternetAccess", serviceId, "failed " + CommonAPI::toString(rule.status)});
                return false;
            case Mode::REFUSE:
                result = rule.code;
                record({"getInternetAccess", serviceId,
                        "refused " + std::to_string(static_cast<std::int32_t>(rule.code))});
                return true;
            case Mode::GRANT_EMPTY:
                ipv4 = {};
                ipv6 = {};
                result = ResultCodes_e::SUCCESS;
                record({"getInternetAccess", serviceId, "granted-empty"});
                return true;
            case Mode::GRANT:
                break;
        }
        {
            std::lock_guard<std::mutex> guard(mutex);
            auto const found = addresses.find(serviceId);
            ipv4 = found != addresses.end() ? found->second.first : defaultIpv4;
            ipv6 = found != addresses.end() ? found->second.second : defaultIpv6;
        }
        result = ResultCodes_e::SUCCESS;
        record({"getInternetAccess", serviceId, "granted " + ipv4.getAddress() + " " + ipv6.getAddress()});
        return true;
    }
};

namespace {

// The service side the binding calls; answers at once.
class SimStub : public networkingStubDefault {
public:
    explicit SimStub(std::weak_ptr<NetworkingSimulator::Impl> impl) : m_impl(std::move(impl)) {}

    void getInternetAccess(std::shared_ptr<CommonAPI::ClientId> const /*client*/, std::string serviceId,
                           getInternetAccessReply_t reply, CommonAPI::CallFailure fail) override {
        auto const impl = m_impl.lock();
        if (!impl) {
            fail(CommonAPI::CallStatus::NOT_AVAILABLE);
            return;
        }
        ClientData_s ipv4;
        ClientData_s ipv6;
        ResultCodes_e result = ResultCodes_e::UNKNOWN_ERROR;
        CommonAPI::CallStatus failure = CommonAPI::CallStatus::SUCCESS;
        if (impl->decide(serviceId, ipv4, ipv6, result, failure)) {
            reply(ipv4, ipv6, result);
        } else {
            fail(failure);
        }
    }

    void dropInternetAccess(std::shared_ptr<CommonAPI::ClientId> const /*client*/, std::string serviceId,
                            dropInternetAccessReply_t reply, CommonAPI::CallFailure /*fail*/) override {
        if (auto const impl = m_impl.lock()) {
            impl->record({"dropInternetAccess", serviceId, "dropped"});
        }
        reply(ResultCodes_e::SUCCESS);
    }

private:
    std::weak_ptr<NetworkingSimulator::Impl> const m_impl;
};

}  // namespace

NetworkingSimulator::NetworkingSimulator() : m_impl(std::make_shared<Impl>()) {}

NetworkingSimulator::~NetworkingSimulator() {
    stop();
}

bool NetworkingSimulator::loadScenario(std::string const& jsonText) {
    Json const scenario = Json::parse(jsonText, nullptr, false);
    if (!scenario.is_object()) {
        m_impl->logger << LogLevel::Error << "Scenario is not a JSON object";
        return false;
    }
    std::lock_guard<std::mutex> guard(m_impl->mutex);
    Json const defaults = scenario.value("defaults", Json::object());
    m_impl->defaultIpv4 = addressFrom(defaults.value("ipv4", Json()), m_impl->defaultIpv4);
    m_impl->defaultIpv6 = addressFrom(defaults.value("ipv6", Json()), m_impl->defaultIpv6);
    Json const services = scenario.value("services", Json::object());
    for (auto const& [serviceId, service] : services.items()) {
        m_impl->addresses[serviceId] = {addressFrom(service.value("ipv4", Json()), m_impl->defaultIpv4),
                                        addressFrom(service.value("ipv6", Json()), m_impl->defaultIpv6)};
    }
    auto const ocu = scenario.find("ocuAvailable");
    if (ocu != scenario.end() && ocu->is_boolean()) {
        m_impl->ocuAvailable = ocu->get<bool>();
    }
    return true;
}

bool NetworkingSimulator::loadScenarioFile(std::string const& path) {
    std::ifstream file(path);
    if (!file) {
        m_impl->logger << LogLevel::Error << "Scenario file " << path << " cannot be read";
        return false;
    }
    std::ostringstream text;
    text << file.rdbuf();
    return loadScenario(text.str());
}

bool NetworkingSimulator::start(std::string const& domain, std::string const& instance) {
    auto const stub = std::make_shared<SimStub>(m_impl);
    {
        std::lock_guard<std::mutex> guard(m_impl->mutex);
        if (m_impl->stub) {
            return false;
        }
        m_impl->domain = domain;
        m_impl->instance = instance;
        m_impl->stub = stub;
    }
    if (!CommonAPI::Runtime::get()->registerService(domain, instance, stub)) {
        m_impl->logger << LogLevel::Error << "Networking service could not be registered at " << domain << ":"
                       << instance;
        std::lock_guard<std::mutex> guard(m_impl->mutex);
        m_impl->stub.reset();
        return false;
    }
    m_impl->logger << LogLevel::Info << "Networking service registered at " << domain << ":" << instance;
    m_impl->changed();
    return true;
}

void NetworkingSimulator::stop() {
    std::shared_ptr<networkingStubDefault> stub;
    std::string domain;
    std::string instance;
    {
        std::lock_guard<std::mutex> guard(m_impl->mutex);
        stub = std::move(m_impl->stub);
        domain = m_impl->domain;
        instance = m_impl->instance;
    }
    if (stub) {
        CommonAPI::Runtime::get()->unregisterService(domain, networking::getInterface(), instance);
        m_impl->logger << LogLevel::Info << "Networking service left " << domain << ":" << instance;
        m_impl->changed();
    }
}

bool NetworkingSimulator::isOnBus() const {
    std::lock_guard<std::mutex> guard(m_impl->mutex);
    return m_impl->stub != nullptr;
}

void NetworkingSimulator::leaveBus() {
    m_impl->logger << LogLevel::Info << "Control: leave the bus";
    stop();
}

bool NetworkingSimulator::rejoinBus() {
    m_impl->logger << LogLevel::Info << "Control: rejoin the bus";
    std::string domain;
    std::string instance;
    {
        std::lock_guard<std::mutex> guard(m_impl->mutex);
        domain = m_impl->domain;
        instance = m_impl->instance;
    }
    return start(domain, instance);
}

void NetworkingSimulator::grant(std::string const& serviceId) {
    m_impl->setRule(serviceId, Rule{}, "grant");
}

void NetworkingSimulator::grantEmpty(std::string const& serviceId, std::uint32_t count) {
    m_impl->setRule(serviceId, Rule{Mode::GRANT_EMPTY, ResultCodes_e::SUCCESS, CommonAPI::CallStatus::SUCCESS, count},
                    "grant with empty data");
}

void NetworkingSimulator::refuse(std::string const& serviceId, ResultCodes_e code, std::uint32_t count) {
    m_impl->setRule(serviceId, Rule{Mode::REFUSE, code, CommonAPI::CallStatus::SUCCESS, count},
                    "refuse with result code " + std::to_string(static_cast<std::int32_t>(code)));
}

void NetworkingSimulator::fail(std::string const& serviceId, CommonAPI::CallStatus status, std::uint32_t count) {
    m_impl->setRule(serviceId, Rule{Mode::FAIL, ResultCodes_e::UNKNOWN_ERROR, status, count},
                    "fail with call status " + CommonAPI::toString(status));
}

void NetworkingSimulator::setOcuAvailable(bool available) {
    std::shared_ptr<networkingStubDefault> stub;
    {
        std::lock_guard<std::mutex> guard(m_impl->mutex);
        m_impl->ocuAvailable = available;
        stub = m_impl->stub;
    }
    m_impl->logger << LogLevel::Info << "Control: OCU " << (available ? "available" : "not available");
    if (stub) {
        stub->fireOcuConnStateChangeEvent(available);
    }
    m_impl->changed();
}

bool NetworkingSimulator::ocuAvailable() const {
    std::lock_guard<std::mutex> guard(m_impl->mutex);
    return m_impl->ocuAvailable;
}

std::vector<CallRecord> NetworkingSimulator::calls() const {
    std::lock_guard<std::mutex> guard(m_impl->mutex);
    return m_impl->calls;
}

void NetworkingSimulator::clearCalls() {
    {
        std::lock_guard<std::mutex> guard(m_impl->mutex);
        m_impl->calls.clear();
    }
    m_impl->changed();
}

std::vector<ServiceView> NetworkingSimulator::services() const {
    std::lock_guard<std::mutex> guard(m_impl->mutex);
    std::map<std::string, ServiceView> views;
    auto const viewOf = [&](std::string const& serviceId) -> ServiceView& {
        auto [entry, added] = views.try_emplace(serviceId);
        if (added) {
            auto const found = m_impl->addresses.find(serviceId);
            bool const known = found != m_impl->addresses.end();
            entry->second = {serviceId, known ? found->second.first : m_impl->defaultIpv4,
                             known ? found->second.second : m_impl->defaultIpv6, std::nullopt};
        }
        return entry->second;
    };
    for (auto const& [serviceId, addresses] : m_impl->addresses) {
        viewOf(serviceId);
    }
    for (auto const& call : m_impl->calls) {
        viewOf(call.serviceId);
    }
    for (auto const& [serviceId, rule] : m_impl->rules) {
        viewOf(serviceId).rule = rule;
    }
    std::vector<ServiceView> list;
    for (auto& [serviceId, view] : views) {
        list.push_back(std::move(view));
    }
    return list;
}

void NetworkingSimulator::setChangeListener(std::function<void()> listener) {
    std::lock_guard<std::mutex> guard(m_impl->mutex);
    m_impl->changeListener = std::move(listener);
}

bool NetworkingSimulator::waitForCalls(std::size_t count, std::uint32_t limitMs) const {
    std::unique_lock<std::mutex> lock(m_impl->mutex);
    return m_impl->recorded.wait_for(lock, std::chrono::milliseconds(limitMs),
                                     [&] { return m_impl->calls.size() >= count; });
}

}  // namespace qel::sim::networking
