// The simulated backend's resources and subscriptions, without any networking.
//
// Contract: not thread-safe; the simulator calls it on its one I/O thread. HTTP requests and
// WebSocket messages go in; HTTP answers come back, and WebSocket messages (acknowledgements and
// events) leave through the `Sender`. Every request and message received is recorded and logged,
// and so is every event sent. Resources are collections of JSON objects with an "id"; a resource
// event carries the resource filtered by the subscription's query, an element event the element.
// A control change notifies resource and element subscribers; a client's create notifies the
// resource's subscribers, a client's update the element's subscribers only. Nothing here throws.
#pragma once

#include "common/Logger.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qel::sim::backend {

struct HttpAnswer {
    HttpAnswer() = default;
    HttpAnswer(int status_, std::string body_, std::string location_ = {}, std::string contentType_ = {})
        : status(status_),
          body(std::move(body_)),
          location(std::move(location_)),
          contentType(std::move(contentType_)) {}

    int status = 200;
    std::string body;         // JSON text unless `contentType` says otherwise; may be empty
    std::string location;     // the Location header of a create
    std::string contentType;  // empty: JSON
};

struct ReceivedMessage {
    ReceivedMessage() = default;
    ReceivedMessage(std::string channel_, std::string method_, std::string target_, std::string body_, int status_ = 0)
        : channel(std::move(channel_)),
          method(std::move(method_)),
          target(std::move(target_)),
          body(std::move(body_)),
          status(status_) {}

    std::string channel;  // "http" or "ws"
    std::string method;   // HTTP method, or the WebSocket message's type
    std::string target;   // path and query
    std::string body;
    int status = 0;  // the HTTP answer's status; 0 for a WebSocket message
};

// One thing the application did, for the console's timeline.
struct Activity {
    std::uint64_t ms = 0;  // since the state was made
    std::string kind;      // "subscribed", "unsubscribed", "lost", "posted", "acknowledged", "kvs"
    std::string detail;
};

struct JobAcknowledgement {
    std::string jobId;
    std::string state;
};

class BackendState {
public:
    using Sender = std::function<void(std::uint64_t session, std::string const& message)>;
    using Json = nlohmann::json;
    using Query = std::map<std::string, std::string>;

    static constexpr char const* SERVICES = "servicemanagement/services";
    static constexpr char const* TOKENS = "tokenmanagement/accessTokens";
    static constexpr char const* PRIVACY_GROUPS = "privacysetup/privacyGroups";
    static constexpr char const* KVS_ITEMS = "onlinekvs/items";
    static constexpr char const* JOBS = "backendjobs/jobs";
    static constexpr char const* JOB_ENTRIES = "backendjobs/jobEntries";
    static constexpr char const* OPERATION_ENTRIES = "backendjobs/operationEntries";
    static constexpr char const* CAPABILITIES = "capabilitiesmanagement/capabilities";

    explicit BackendState(Sender sender);

    // Adds the scenario's elements (see docs/rsi-wire-protocol.md); false and `error` when the
    // text is not a scenario, in which case nothing was changed.
    bool loadScenario(std::string const& jsonText, std::string& error);

    HttpAnswer handleHttp(std::string const& method, std::string const& target, std::string const& body);
    void handleWebSocketMessage(std::uint64_t session, std::string const& text);
    void dropSession(std::uint64_t session);
    // How long to hold the answer to `target` (milliseconds).
    std::uint32_t delayFor(std::string const& target) const;

    void setServiceAvailable(std::string const& service, bool available);
    bool setDisableReasons(std::string const& serviceName, std::vector<std::string> const& reasons);
    // The new token ("token-<n>" when `token` is empty); empty when there is no such token.
    std::string rotateToken(std::string const& idOrName, std::string const& token);
    // The new job's id; empty when `jobJson` is not an object.
    std::string pushJob(std::string const& jobJson);
    bool setKvsValue(std::string const& idOrName, std::string const& value);
    // Answers the next `count` requests and subscribes to `path` ("*": any) with `status`.
    void failNext(std::string const& path, int status, std::uint32_t count);
    // Holds every HTTP answer to `path` ("*": any) for `ms`; 0 ends the delay.
    void setDelay(std::string const& path, std::uint32_t ms);

    // Called after every recorded request or message with the number recorded so far.
    void setReceiveObserver(std::function<void(std::size_t received)> observer) { m_observer = std::move(observer); }
    std::vector<ReceivedMessage> const& received() const { return m_received; }
    void clearReceived() { m_received.clear(); }
    std::vector<JobAcknowledgement> const& acknowledgements() const { return m_acknowledgements; }
    std::size_t subscriptionCount() const { return m_subscriptions.size(); }
    std::vector<Activity> const& activity() const { return m_activity; }
    // Everything the control endpoints can tell, as one object for the console: resources,
    // availability, clients (`sessions`, connected ones) and their subscriptions, the latest
    // requests newest first, faults, delays and the activity.
    Json snapshot(std::vector<std::uint64_t> const& sessions) const;

private:
    enum class Scope { Root, Service, Resource, Element };
    struct Address {
        Scope scope = Scope::Root;
        std::string service;
        std::string collection;  // "service/resource"
        std::string element;
    };
    struct Subscription {
        std::uint64_t session = 0;
        Address address;
        Query query;
    };
    struct Fault {
        std::string path;
        int status;
        std::uint32_t remaining;
    };

    HttpAnswer answerHttp(std::string const& method, std::string const& path, Query const& query,
                          std::string const& body);
    HttpAnswer create(std::string const& collection, std::string const& body);
    HttpAnswer update(std::string const& collection, std::string const& id, std::string const& body);
    void subscribe(std::uint64_t session, Json const& message);
    void unsubscribe(std::uint64_t session, Json const& message);
    void acknowledge(std::uint64_t session, std::uint64_t reference, int status, std::uint32_t id,
                     std::string const& note);

    std::optional<Address> parsePath(std::string const& path) const;
    // Why a subscription or request to `address` cannot be served (status), or 0.
    int refusalFor(Address const& address) const;
    std::optional<int> takeFault(std::string const& path);
    bool isAvailable(std::string const& service) const;
    Json availability(std::string const& name) const;
    Json view(std::string const& collection, Query const& query) const;
    Json eventDataFor(Subscription const& subscription) const;
    // By id, else by name; null when there is none.
    Json const* find(std::string const& collection, std::string const& idOrName) const;
    Json* find(std::string const& collection, std::string const& idOrName);
    void assignIdentity(std::string const& collection, Json& element);
    void addServiceDefaults(Json& service) const;

    void notifyRoot(std::string const& service);
    void notifyResource(std::string const& collection);
    void notifyElement(std::string const& collection, std::string const& id, Json const& data);
    void sendEvent(std::uint32_t subscriptionId, Json const& data);
    void record(ReceivedMessage message);
    void noteActivity(std::string kind, std::string detail);

    common::logging::Logger const m_logger{"backendsim"};
    Sender const m_send;
    std::function<void(std::size_t)> m_observer;
    std::map<std::string, std::vector<Json>> m_collections;
    std::map<std::string, bool> m_available;
    std::map<std::uint32_t, Subscription> m_subscriptions;
    std::vector<Fault> m_faults;
    std::map<std::string, std::uint32_t> m_delays;
    std::vector<ReceivedMessage> m_received;
    std::vector<JobAcknowledgement> m_acknowledgements;
    std::vector<Activity> m_activity;
    std::chrono::steady_clock::time_point const m_created = std::chrono::steady_clock::now();
    // While a request is answered its events wait here, so that the log shows cause before effect.
    bool m_holdEvents = false;
    std::vector<std::pair<std::uint32_t, Json>> m_heldEvents;
    std::uint32_t m_nextSubscriptionId = 1;
    std::uint64_t m_nextElementNumber = 1;
    std::uint64_t m_nextTokenNumber = 1;
    std::uint64_t m_nextJobNumber = 1;
};

}  // namespace qel::sim::backend
