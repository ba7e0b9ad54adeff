// A scriptable RSI client that lives in memory, for tests; installed process-wide while its
// Installation lives. Every request and subscribe call is recorded and answered from the first
// rule that matches and has uses left (rules in the order given; then the default reply: 200, no
// body, state succeeded). Subscription ids start at 1001, so they never look like the wrapper's own
// ids. Events are delivered on the calling thread, without the client's lock, so a handler may call
// back into the client. Thread-safe; waits use real time only as a safety limit.
#pragma once

#include "rsi/ISharedRsiClient.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qel::test {

// A request as the framework hands it to the client.
inline std::shared_ptr<rsi::client::Request> makeRequest(std::uint32_t type, std::uint32_t requestId,
                                                        std::string service, std::string resource = {},
                                                        std::string element = {}) {
    auto request = std::make_shared<rsi::client::Request>();
    request->type = type;
    request->requestId = requestId;
    request->service = std::move(service);
    request->resource = std::move(resource);
    request->element = std::move(element);
    return request;
}

// A request as the client saw it (the body as compact JSON text; empty when there was none).
struct RecordedRequest {
    std::uint32_t type = 0;
    std::uint32_t requestId = 0;
    std::string service;
    std::string resource;
    std::string element;
    std::map<std::string, std::string> queryParameters;
    std::string body;
};

// Which calls a rule answers; empty strings and ANY_TYPE match everything.
struct Match {
    static constexpr std::uint32_t ANY_TYPE = 0xFFFFFFFFU;

    Match(std::uint32_t requestType = ANY_TYPE, std::string serviceName = {}, std::string resourceName = {},
          std::string elementId = {})
        : type(requestType),
          service(std::move(serviceName)),
          resource(std::move(resourceName)),
          element(std::move(elementId)) {}

    bool matches(RecordedRequest const& request) const;

    std::uint32_t type;
    std::string service;
    std::string resource;
    std::string element;
};

// How a call is answered: `Reply(201, "", "/capabilities/1234/")`, `Reply().withState(0, "refused")`.
struct Reply {
    Reply(std::int16_t httpStatus = 200, std::string jsonBody = {}, std::string locationHeader = {})
        : status(httpStatus), body(std::move(jsonBody)), location(std::move(locationHeader)) {}

    Reply& withState(std::int32_t value, std::string note) {
        stateValue = value;
        stateNote = std::move(note);
        return *this;
    }
    // Holds the answer for this long (real time), or until `releaseHeld()`: lets a test catch a
    // call in flight.
    Reply& heldFor(std::uint32_t milliseconds) {
        holdMs = milliseconds;
        return *this;
    }

    std::int16_t status;
    std::string body;  // JSON text; empty: no data
    std::string location;
    std::int32_t stateValue = 1;  // RequestStateSucceeded
    std::string stateNote;
    std::uint32_t holdMs = 0;
};

struct RecordedSubscription {
    std::uint32_t clientId = 0;
    RecordedRequest request;
    std::weak_ptr<rsi::client::EventHandler> handler;
    bool live = true;  // false once unsubscribed
};

class InMemoryRsiClient : public rsi::client::ISharedRsiClient {
public:
    static constexpr std::uint32_t FIRST_SUBSCRIPTION_ID = 1001;
    static constexpr std::uint32_t WAIT_LIMIT_MS = 5000;

    // Installs a fresh client with `SetSharedRsiClient` and uninstalls it on destruction.
    class Installation {
    public:
        Installation();
        ~Installation();
        Installation(Installation const&) = delete;
        Installation& operator=(Installation const&) = delete;
        InMemoryRsiClient* operator->() const { return m_client.get(); }
        InMemoryRsiClient& operator*() const { return *m_client; }
        std::shared_ptr<InMemoryRsiClient> const& get() const { return m_client; }

    private:
        std::shared_ptr<InMemoryRsiClient> m_client;
    };

    // Scripting. `times` 0 means unlimited.
    void replyTo(Match const& match, Reply const& reply, std::uint32_t times = 0);
    void setDefaultReply(Reply const& reply);
    // Lets every held call answer now.
    void releaseHeld();

    // Events, delivered at once on the calling thread. False when the subscription is unknown,
    // no longer live, or its handler has expired.
    bool pushEvent(std::uint32_t clientId, std::string const& json, std::int32_t stateValue = 1);
    // `{"type":"data","data":<dataJson>}`.
    bool pushData(std::uint32_t clientId, std::string const& dataJson);
    // The connection closed: one `{"type":"error"}` event to every live subscription. Returns how
    // many received it.
    std::size_t closeConnection();

    // What happened so far.
    std::vector<RecordedRequest> requests() const;
    std::vector<RecordedSubscription> subscriptions() const;
    std::vector<std::uint32_t> unsubscribed() const;
    // Client id of the most recent subscribe call that matches; 0 if none.
    std::uint32_t lastSubscriptionId(Match const& match = {}) const;

    // Wait until at least `count` calls of the kind were made; false at the safety limit.
    bool waitForRequests(std::size_t count, std::uint32_t limitMs = WAIT_LIMIT_MS) const;
    bool waitForSubscribeCalls(std::size_t count, std::uint32_t limitMs = WAIT_LIMIT_MS) const;
    bool waitForUnsubscribeCalls(std::size_t count, std::uint32_t limitMs = WAIT_LIMIT_MS) const;

    rsi::client::RequestState request(rsi::client::Request const& request, rsi::client::Response& response) override;
    std::uint32_t subscribe(rsi::client::Request const& request, rsi::client::Response& response,
                            rsi::client::RequestState& state,
                            std::weak_ptr<rsi::client::EventHandler> const& eventHandler, std::uint32_t options,
                            std::uint32_t timeoutMs) override;
    void unsubscribe(std::uint32_t subscriptionId) override;

private:
    struct Rule {
        Match match;
        Reply reply;
        std::uint32_t usesLeft;  // 0: unlimited
        bool spent;
    };

    Reply takeReply(RecordedRequest const& request);  // called with m_mutex held
    static bool deliver(std::shared_ptr<rsi::client::EventHandler> const& handler, std::uint32_t requestId,
                        std::string const& json, std::int32_t stateValue);
    void holdIfAsked(std::unique_lock<std::mutex>& lock, Reply const& reply);
    static void fill(Reply const& reply, std::uint32_t requestId, rsi::client::Response& response);
    template <typename Predicate>
    bool waitUntil(std::uint32_t limitMs, Predicate predicate) const {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(limitMs), predicate);
    }

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<Rule> m_rules;                         // guarded by m_mutex
    Reply m_defaultReply;                              // guarded by m_mutex
    std::vector<RecordedRequest> m_requests;           // guarded by m_mutex
    std::vector<RecordedSubscription> m_subscriptions; // guarded by m_mutex
    std::vector<std::uint32_t> m_unsubscribed;         // guarded by m_mutex
    std::uint64_t m_releaseGeneration = 0;             // guarded by m_mutex
    std::uint32_t m_nextSubscriptionId = FIRST_SUBSCRIPTION_ID;  // guarded by m_mutex
};

}  // namespace qel::test
