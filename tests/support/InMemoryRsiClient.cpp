#include "support/InMemoryRsiClient.h"

#include "dataformats/Json.h"
#include "rsi/RequestType.h"
#include "rsi/SharedRsiClient.h"

#include <chrono>

namespace qel::test {

using rsi::client::RequestState;
using rsi::client::Response;

namespace {

RecordedRequest record(rsi::client::Request const& request) {
    RecordedRequest recorded;
    recorded.type = request.type;
    recorded.requestId = request.requestId;
    recorded.service = request.service;
    recorded.resource = request.resource;
    recorded.element = request.element;
    recorded.queryParameters = request.queryParameters;
    recorded.body = request.data ? dataformats::json::stringify(request.data.get()) : std::string();
    return recorded;
}

bool matchesText(std::string const& wanted, std::string const& actual) {
    return wanted.empty() || wanted == actual;
}

}  // namespace

bool Match::matches(RecordedRequest const& request) const {
    return (type == ANY_TYPE || type == request.type) && matchesText(service, request.service) &&
           matchesText(resource, request.resource) && matchesText(element, request.element);
}

InMemoryRsiClient::Installation::Installation() : m_client(std::make_shared<InMemoryRsiClient>()) {
    rsi::client::SetSharedRsiClient(m_client);
}

InMemoryRsiClient::Installation::~Installation() {
    rsi::client::SetSharedRsiClient(nullptr);
}

void InMemoryRsiClient::replyTo(Match const& match, Reply const& reply, std::uint32_t times) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_rules.push_back({match, reply, times, false});
}

void InMemoryRsiClient::setDefaultReply(Reply const& reply) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_defaultReply = reply;
}

void InMemoryRsiClient::releaseHeld() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_releaseGeneration;
    }
    m_changed.notify_all();
}

RequestState InMemoryRsiClient::request(rsi::client::Request const& request, Response& response) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_requests.push_back(record(request));
    Reply const reply = takeReply(m_requests.back());
    m_changed.notify_all();
    holdIfAsked(lock, reply);
    fill(reply, request.requestId, response);
    return RequestState(reply.stateValue, reply.stateNote);
}

std::uint32_t InMemoryRsiClient::subscribe(rsi::client::Request const& request, Response& response,
                                           RequestState& state,
                                           std::weak_ptr<rsi::client::EventHandler> const& eventHandler,
                                           std::uint32_t /*options*/, std::uint32_t /*timeoutMs*/) {
    std::unique_lock<std::mutex> lock(m_mutex);
    RecordedSubscription subscription;
    subscription.request = record(request);
    subscription.handler = eventHandler;
    Reply const reply = takeReply(subscription.request);
    bool const succeeded = reply.stateValue == rsi::client::RequestStateSucceeded;
    subscription.clientId = succeeded ? m_nextSubscriptionId++ : 0;
    subscription.live = succeeded;
    m_subscriptions.push_back(subscription);
    m_changed.notify_all();
    holdIfAsked(lock, reply);
    fill(reply, request.requestId, response);
    state = RequestState(reply.stateValue, reply.stateNote);
    return subscription.clientId;
}

void InMemoryRsiClient::unsubscribe(std::uint32_t subscriptionId) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_unsubscribed.push_back(subscriptionId);
        for (auto& subscription : m_subscriptions) {
            if (subscription.clientId == subscriptionId && subscriptionId != 0) {
                subscription.live = false;
            }
        }
    }
    m_changed.notify_all();
}

bool InMemoryRsiClient::pushEvent(std::uint32_t clientId, std::string const& json, std::int32_t stateValue) {
    std::shared_ptr<rsi::client::EventHandler> handler;
    std::uint32_t requestId = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto const& subscription : m_subscriptions) {
            if (subscription.live && subscription.clientId == clientId) {
                handler = subscription.handler.lock();
                requestId = subscription.request.requestId;
            }
        }
    }
    return deliver(handler, requestId, json, stateValue);
}

bool InMemoryRsiClient::pushData(std::uint32_t clientId, std::string const& dataJson) {
    return pushEvent(clientId, R"({"type":"data","data":)" + dataJson + "}");
}

std::size_t InMemoryRsiClient::closeConnection() {
    std::vector<std::pair<std::weak_ptr<rsi::client::EventHandler>, std::uint32_t>> closed;
    {
        // A closed connection ends every subscription it carried.
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto& subscription : m_subscriptions) {
            if (subscription.live) {
                subscription.live = false;
                closed.emplace_back(subscription.handler, subscription.request.requestId);
            }
        }
    }
    std::size_t reached = 0;
    for (auto const& [handler, requestId] : closed) {
        reached += deliver(handler.lock(), requestId, R"({"type":"error"})", rsi::client::RequestStateSucceeded) ? 1 : 0;
    }
    return reached;
}

bool InMemoryRsiClient::deliver(std::shared_ptr<rsi::client::EventHandler> const& handler, std::uint32_t requestId,
                                std::string const& json, std::int32_t stateValue) {
    if (!handler) {
        return false;
    }
    Response event;
    event.setStatus(200);
    event.setId(requestId);
    event.setData(dataformats::json::parse(json));
    handler->handleEvent(RequestState(stateValue, ""), event);
    return true;
}

std::vector<RecordedRequest> InMemoryRsiClient::requests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

std::vector<RecordedSubscription> InMemoryRsiClient::subscriptions() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_subscriptions;
}

std::vector<std::uint32_t> InMemoryRsiClient::unsubscribed() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_unsubscribed;
}

std::uint32_t InMemoryRsiClient::lastSubscriptionId(Match const& match) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_subscriptions.rbegin(); it != m_subscriptions.rend(); ++it) {
        if (match.matches(it->request)) {
            return it->clientId;
        }
    }
    return 0;
}

bool InMemoryRsiClient::waitForRequests(std::size_t count, std::uint32_t limitMs) const {
    return waitUntil(limitMs, [this, count] { return m_requests.size() >= count; });
}

bool InMemoryRsiClient::waitForSubscribeCalls(std::size_t count, std::uint32_t limitMs) const {
    return waitUntil(limitMs, [this, count] { return m_subscriptions.size() >= count; });
}

bool InMemoryRsiClient::waitForUnsubscribeCalls(std::size_t count, std::uint32_t limitMs) const {
    return waitUntil(limitMs, [this, count] { return m_unsubscribed.size() >= count; });
}

Reply InMemoryRsiClient::takeReply(RecordedRequest const& request) {
    for (auto& rule : m_rules) {
        if (rule.spent || !rule.match.matches(request)) {
            continue;
        }
        if (rule.usesLeft > 0 && --rule.usesLeft == 0) {
            rule.spent = true;
        }
        return rule.reply;
    }
    return m_defaultReply;
}

void InMemoryRsiClient::holdIfAsked(std::unique_lock<std::mutex>& lock, Reply const& reply) {
    if (reply.holdMs == 0) {
        return;
    }
    std::uint64_t const generation = m_releaseGeneration;
    m_changed.wait_for(lock, std::chrono::milliseconds(reply.holdMs),
                       [this, generation] { return m_releaseGeneration != generation; });
}

void InMemoryRsiClient::fill(Reply const& reply, std::uint32_t requestId, Response& response) {
    response.setStatus(reply.status);
    response.setId(requestId);
    response.setLocation(reply.location);
    if (!reply.body.empty()) {
        response.setData(dataformats::json::parse(reply.body));
    }
}

}  // namespace qel::test
