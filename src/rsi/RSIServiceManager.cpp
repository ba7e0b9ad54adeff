#include "rsi/RSIServiceManager.h"

#include "dataformats/Ref.h"
#include "rsi/Request.h"

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;
using qel::dataformats::data::Ref;
using qel::rsi::client::RequestState;
using qel::rsi::client::RequestStateSucceeded;
using qel::rsi::client::Response;

RSIServiceManager::RSIServiceManager(std::shared_ptr<FrameworkConfig> const& config,
                                     std::shared_ptr<IRSIClientWrapper> const& rsiClient)
    : m_logger((config ? config->loggerName : std::string("framework")) + ".RSIServiceManager"),
      m_rsiClient(rsiClient) {}

RSIServiceManager::~RSIServiceManager() {
    m_logger << LogLevel::Info << "~RSIServiceManager";
    _unsubscribe();
}

void RSIServiceManager::subscribe(std::string const& service,
                                  std::shared_ptr<IUpdateConditionCallback> const& callback) {
    bool first = false;
    {
        MutexGuard guard(m_lock);
        first = m_callbacks.count(service) == 0;
        m_callbacks.emplace(service, callback);
    }
    if (first) {
        _subscribe(service);
    } else {
        m_logger << LogLevel::Info << "Already subscribed for service '" << service << "'";
    }
}

void RSIServiceManager::_subscribe(std::string const& service) {
    auto request = std::make_shared<qel::rsi::client::Request>();
    request->type = qel::rsi::client::RequestTypeSubscribeRoot;
    request->queryParameters["name"] = service;
    {
        // The name is listed before the wrapper may answer, so every event maps to it.
        MutexGuard guard(m_lock);
        request->requestId = m_nextRequestId++;
        m_serviceNames.push_back(service);
    }
    if (!m_rsiClient) {
        m_logger << LogLevel::Error << "No RSI client wrapper to subscribe for service '" << service << "'";
        return;
    }
    // The wrapper is called without the lock: it may take its own.
    unsigned int const id = m_rsiClient->subscribe(request, weak_from_this(), weak_from_this());
    MutexGuard guard(m_lock);
    m_subscriptionIds[service] = id;
}

void RSIServiceManager::_unsubscribe() {
    MutexGuard guard(m_lock);
    m_subscriptionIds.clear();
    m_callbacks.clear();
}

void RSIServiceManager::notify(std::string const& service, bool available) {
    std::vector<std::shared_ptr<IUpdateConditionCallback>> callbacks;
    {
        MutexGuard guard(m_lock);
        auto const range = m_callbacks.equal_range(service);
        for (auto it = range.first; it != range.second; ++it) {
            callbacks.push_back(it->second);
        }
    }
    for (auto const& callback : callbacks) {
        if (callback) {
            callback->notify(available);
        }
    }
}

void RSIServiceManager::handleResponse(RequestState const& state, Response const& response) {
    if (state.value != RequestStateSucceeded) {
        return;
    }
    std::string const status = Ref(response.getData(false))("status").asString();
    if (status != "ok") {
        m_logger << LogLevel::Error << "Received status " << status;
    }
}

void RSIServiceManager::handleEvent(RequestState const& /*state*/, Response const& response) {
    auto const known = serviceNameOf(response.getId());
    if (!known) {
        return;
    }
    std::string const& name = *known;
    m_logger << LogLevel::Info << "Event received for service " << name;
    Ref const services = Ref(response.getData(false))("data");
    if (services.getArraySize() == 0) {
        m_logger << LogLevel::Info << "Service " << name << " not available";
        notify(name, false);
        return;
    }
    std::string const received = services[0]("name").asString();
    if (received != name) {
        m_logger << LogLevel::Info << "Service " << name << " received event, but wrong service contained: "
                 << received;
        return;
    }
    m_logger << LogLevel::Info << "Service " << name << " available";
    notify(name, true);
}

std::optional<std::string> RSIServiceManager::serviceNameOf(std::uint32_t requestId) {
    MutexGuard guard(m_lock);
    try {
        return m_serviceNames.at(requestId);
    } catch (std::out_of_range const&) {
        m_logger << LogLevel::Error << "Event for unknown request id " << requestId;
        return std::nullopt;
    }
}

}  // namespace qel::onlineservices::framework::core
