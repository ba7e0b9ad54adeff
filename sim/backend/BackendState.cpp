#include "BackendState.h"

#include "rsi/host/RsiWireFormat.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace qel::sim::backend {
namespace {

using common::logging::LogLevel;
using Json = BackendState::Json;
namespace wire = rsi::client::host::wire;

constexpr std::size_t LOGGED_TEXT_LIMIT = 300;
constexpr char const* JOB_ACK_STATE = "jobAcknowledgeState";
// What the console keeps: enough for a session's story, bounded for a long one.
constexpr std::size_t ACTIVITY_LIMIT = 2000;
constexpr std::size_t SNAPSHOT_RECEIVED = 200;

// The backend's services; each one is available unless a scenario or the control says otherwise.
constexpr char const* RSI_SERVICES[] = {"servicemanagement", "tokenmanagement", "privacysetup",
                                        "onlinekvs",         "backendjobs",     "capabilitiesmanagement"};

// Scenario keys and their resources; tokens come before services so that services can link them.
struct ScenarioKey {
    char const* key;
    char const* collection;
};
constexpr ScenarioKey SCENARIO_KEYS[] = {
    {"tokens", BackendState::TOKENS},
    {"services", BackendState::SERVICES},
    {"privacyGroups", BackendState::PRIVACY_GROUPS},
    {"kvs", BackendState::KVS_ITEMS},
    {"jobs", BackendState::JOBS},
    {"jobEntries", BackendState::JOB_ENTRIES},
    {"operationEntries", BackendState::OPERATION_ENTRIES},
    {"capabilities", BackendState::CAPABILITIES},
};

std::string textOf(Json const& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string abbreviated(std::string text) {
    if (text.size() > LOGGED_TEXT_LIMIT) {
        text.resize(LOGGED_TEXT_LIMIT);
        text += "...";
    }
    return text;
}

std::string stringOf(Json const& object, char const* key) {
    auto const member = object.find(key);
    return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
}

std::uint64_t numberOf(Json const& object, char const* key) {
    auto const member = object.find(key);
    return member != object.end() && member->is_number_unsigned() ? member->get<std::uint64_t>() : 0;
}

// Without the trailing slash, except for the root.
std::string normalisedPath(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::pair<std::string, BackendState::Query> splitTarget(std::string const& target) {
    auto const question = target.find('?');
    if (question == std::string::npos) {
        return {normalisedPath(target), {}};
    }
    return {normalisedPath(target.substr(0, question)), wire::decodeQuery(target.substr(question + 1))};
}

HttpAnswer errorAnswer(int status, std::string const& message) {
    return {status, textOf(Json{{"error", message}}), {}};
}

bool matches(Json const& element, BackendState::Query const& query) {
    for (auto const& [key, value] : query) {
        auto const member = element.find(key);
        if (member == element.end()) {
            return false;
        }
        if ((member->is_string() ? member->get<std::string>() : textOf(*member)) != value) {
            return false;
        }
    }
    return true;
}

}  // namespace

BackendState::BackendState(Sender sender) : m_send(std::move(sender)) {
    for (auto const& entry : SCENARIO_KEYS) {
        m_collections[entry.collection];
    }
    for (char const* service : RSI_SERVICES) {
        m_available[service] = true;
    }
}

bool BackendState::loadScenario(std::string const& jsonText, std::string& error) {
    Json const scenario = Json::parse(jsonText, nullptr, false);
    if (!scenario.is_object()) {
        error = "a scenario is a JSON object";
        return false;
    }
    for (auto const& entry : SCENARIO_KEYS) {
        auto const list = scenario.find(entry.key);
        if (list != scenario.end() && !(list->is_array() && std::all_of(list->begin(), list->end(), [](auto& e) {
                                             return e.is_object();
                                         }))) {
            error = std::string("\"") + entry.key + "\" must be an array of objects";
            return false;
        }
    }
    for (auto const& entry : SCENARIO_KEYS) {
        auto const list = scenario.find(entry.key);
        for (auto element : list != scenario.end() ? *list : Json::array()) {
            assignIdentity(entry.collection, element);
            if (std::string(entry.collection) == SERVICES) {
                addServiceDefaults(element);
            }
            m_collections[entry.collection].push_back(std::move(element));
        }
    }
    auto const unavailable = scenario.find("unavailable");
    if (unavailable != scenario.end() && unavailable->is_array()) {
        for (auto const& service : *unavailable) {
            if (service.is_string()) {
                m_available[service.get<std::string>()] = false;
            }
        }
    }
    return true;
}

HttpAnswer BackendState::handleHttp(std::string const& method, std::string const& target, std::string const& body) {
    auto const [path, query] = splitTarget(target);
    m_holdEvents = true;
    HttpAnswer answer = answerHttp(method, path, query, body);
    m_holdEvents = false;
    m_logger << LogLevel::Info << "HTTP " << method << " " << target << (body.empty() ? "" : " ") << abbreviated(body)
             << " -> " << answer.status;
    for (auto& [subscriptionId, data] : std::exchange(m_heldEvents, {})) {
        sendEvent(subscriptionId, data);
    }
    record({"http", method, target, body, answer.status});
    return answer;
}

HttpAnswer BackendState::answerHttp(std::string const& method, std::string const& path, Query const& query,
                                    std::string const& body) {
    if (auto const status = takeFault(path)) {
        return errorAnswer(*status, "injected failure");
    }
    auto const address = parsePath(path);
    if (!address) {
        return errorAnswer(404, "no such resource");
    }
    if (int const refusal = refusalFor(*address)) {
        return errorAnswer(refusal, refusal == 503 ? "service unavailable" : "no such resource");
    }
    bool const isGet = method == "GET";
    if (!isGet && method != "POST") {
        return errorAnswer(405, "method not allowed");
    }
    switch (address->scope) {
        case Scope::Root: {
            auto const name = query.find("name");
            std::string const service = name == query.end() ? "" : name->second;
            return isGet ? HttpAnswer{200, textOf(Json{{"data", availability(service)}}), {}}
                         : errorAnswer(405, "method not allowed");
        }
        case Scope::Service:
            return isGet ? HttpAnswer{200, textOf(Json{{"data", {{"name", address->service},
                                                                 {"uri", "/" + address->service + "/"}}}}),
                                      {}}
                         : errorAnswer(405, "method not allowed");
        case Scope::Resource:
            return isGet ? HttpAnswer{200, textOf(Json{{"data", view(address->collection, query)}}), {}}
                         : create(address->collection, body);
        case Scope::Element:
            if (!isGet) {
                return update(address->collection, address->element, body);
            }
            auto const* element = find(address->collection, address->element);
            return HttpAnswer{200, textOf(Json{{"data", *element}}), {}};
    }
    return errorAnswer(404, "no such resource");
}

HttpAnswer BackendState::create(std::string const& collection, std::string const& body) {
    Json element = Json::parse(body, nullptr, false);
    if (!element.is_object()) {
        return errorAnswer(400, "the body must be a JSON object");
    }
    assignIdentity(collection, element);
    std::string const id = stringOf(element, "id");
    m_collections[collection].push_back(element);
    if (collection == JOB_ENTRIES || collection == OPERATION_ENTRIES || collection == CAPABILITIES) {
        noteActivity("posted", collection.substr(collection.find('/') + 1) + " " + id);
    }
    notifyResource(collection);
    return {201, textOf(Json{{"data", element}}), "/" + collection + "/" + id};
}

HttpAnswer BackendState::update(std::string const& collection, std::string const& id, std::string const& body) {
    Json const changes = Json::parse(body, nullptr, false);
    if (!changes.is_object()) {
        return errorAnswer(400, "the body must be a JSON object");
    }
    Json& element = *find(collection, id);
    for (auto const& [key, value] : changes.items()) {
        if (key != "id" && key != "uri") {
            element[key] = value;
        }
    }
    if (collection == JOBS && changes.contains(JOB_ACK_STATE)) {
        m_acknowledgements.push_back({id, stringOf(changes, JOB_ACK_STATE)});
        noteActivity("acknowledged", "job " + id + " " + stringOf(changes, JOB_ACK_STATE));
    }
    if (collection == KVS_ITEMS && changes.contains("value")) {
        noteActivity("kvs", stringOf(element, "name") + " = " + abbreviated(textOf(element["value"])) + " (client)");
    }
    Json event = element;
    if (collection == KVS_ITEMS) {
        event["upToDate"] = true;
    }
    notifyElement(collection, id, event);
    return {200, textOf(Json{{"data", element}}), {}};
}

void BackendState::handleWebSocketMessage(std::uint64_t session, std::string const& text) {
    Json const message = Json::parse(text, nullptr, false);
    std::string const type = stringOf(message, "type");
    if (type == wire::SUBSCRIBE) {
        subscribe(session, message);
    } else if (type == wire::UNSUBSCRIBE) {
        unsubscribe(session, message);
    } else {
        m_logger << LogLevel::Warning << "WS refused message of type '" << type << "': " << abbreviated(text);
    }
    record({"ws", type, stringOf(message, "path"), text});
}

void BackendState::noteActivity(std::string kind, std::string detail) {
    auto const ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_created);
    if (m_activity.size() == ACTIVITY_LIMIT) {
        m_activity.erase(m_activity.begin());
    }
    m_activity.push_back({static_cast<std::uint64_t>(ms.count()), std::move(kind), std::move(detail)});
}

void BackendState::record(ReceivedMessage message) {
    // Recorded once answered, so that a test woken by the observer sees the effects too.
    m_received.push_back(std::move(message));
    if (m_observer) {
        m_observer(m_received.size());
    }
}

void BackendState::subscribe(std::uint64_t session, Json const& message) {
    std::uint64_t const reference = numberOf(message, "ref");
    std::string const path = normalisedPath(stringOf(message, "path"));
    Query query;
    auto const queryObject = message.find("query");
    if (queryObject != message.end() && queryObject->is_object()) {
        for (auto const& [key, value] : queryObject->items()) {
            query[key] = value.is_string() ? value.get<std::string>() : textOf(value);
        }
    }
    std::string const target = query.empty() ? path : path + "?" + wire::encodeQuery(query);
    auto const address = parsePath(path);
    int refusal = 0;
    if (auto const status = takeFault(path)) {
        refusal = *status;
    } else if (!address || address->scope == Scope::Service) {
        refusal = 404;
    } else {
        refusal = refusalFor(*address);
    }
    if (refusal != 0) {
        m_logger << LogLevel::Info << "WS subscribe " << target << " -> " << refusal;
        acknowledge(session, reference, refusal, 0, refusal == 503 ? "service unavailable" : "refused");
        return;
    }
    std::uint32_t const id = m_nextSubscriptionId++;
    Subscription const& subscription = m_subscriptions[id] = Subscription{session, *address, query};
    m_logger << LogLevel::Info << "WS subscribe " << target << " -> 200, subscription " << id;
    acknowledge(session, reference, 200, id, "ok");
    noteActivity("subscribed", target + " (client " + std::to_string(session) + ")");
    sendEvent(id, eventDataFor(subscription));
}

void BackendState::acknowledge(std::uint64_t session, std::uint64_t reference, int status, std::uint32_t id,
                               std::string const& note) {
    Json message{{"type", wire::ACK}, {"ref", reference}, {"status", status}};
    if (id != 0) {
        message["subscriptionId"] = id;
        message["data"] = {{"status", "ok"}};
    } else {
        message["data"] = {{"status", "error"}, {"message", note}};
    }
    m_send(session, textOf(message));
}

void BackendState::unsubscribe(std::uint64_t session, Json const& message) {
    auto const id = static_cast<std::uint32_t>(numberOf(message, "subscriptionId"));
    auto const subscription = m_subscriptions.find(id);
    if (subscription == m_subscriptions.end() || subscription->second.session != session) {
        m_logger << LogLevel::Warning << "WS unsubscribe of unknown subscription " << id;
        return;
    }
    noteActivity("unsubscribed", subscription->second.address.collection + " (client " + std::to_string(session) + ")");
    m_subscriptions.erase(subscription);
    m_logger << LogLevel::Info << "WS unsubscribe " << id;
}

void BackendState::dropSession(std::uint64_t session) {
    std::size_t dropped = 0;
    for (auto it = m_subscriptions.begin(); it != m_subscriptions.end();) {
        if (it->second.session == session) {
            it = m_subscriptions.erase(it);
            ++dropped;
        } else {
            ++it;
        }
    }
    m_logger << LogLevel::Info << "WS session " << session << " ended with " << dropped << " subscription(s)";
    if (dropped != 0) {
        noteActivity("lost", std::to_string(dropped) + " subscription(s) of client " + std::to_string(session));
    }
}

std::uint32_t BackendState::delayFor(std::string const& target) const {
    auto const exact = m_delays.find(splitTarget(target).first);
    if (exact != m_delays.end()) {
        return exact->second;
    }
    auto const any = m_delays.find("*");
    return any != m_delays.end() ? any->second : 0;
}

void BackendState::setServiceAvailable(std::string const& service, bool available) {
    m_available[service] = available;
    m_logger << LogLevel::Info << "Control: service " << service << (available ? " available" : " unavailable");
    notifyRoot(service);
}

bool BackendState::setDisableReasons(std::string const& serviceName, std::vector<std::string> const& reasons) {
    bool found = false;
    for (auto& service : m_collections[SERVICES]) {
        if (stringOf(service, "name") == serviceName) {
            service["disableReasons"] = reasons;
            notifyElement(SERVICES, stringOf(service, "id"), service);
            found = true;
        }
    }
    m_logger << LogLevel::Info << "Control: disable reasons of " << serviceName << " set to " << textOf(reasons)
             << (found ? "" : " (no such service)");
    if (found) {
        notifyResource(SERVICES);
    }
    return found;
}

std::string BackendState::rotateToken(std::string const& idOrName, std::string const& token) {
    Json* element = find(TOKENS, idOrName);
    if (element == nullptr) {
        m_logger << LogLevel::Warning << "Control: no token " << idOrName;
        return {};
    }
    std::string const value = token.empty() ? "token-" + std::to_string(m_nextTokenNumber++) : token;
    (*element)["token"] = value;
    m_logger << LogLevel::Info << "Control: token " << stringOf(*element, "id") << " rotated";
    Json const copy = *element;
    notifyElement(TOKENS, stringOf(copy, "id"), copy);
    notifyResource(TOKENS);
    return value;
}

std::string BackendState::pushJob(std::string const& jobJson) {
    Json job = Json::parse(jobJson, nullptr, false);
    if (!job.is_object()) {
        m_logger << LogLevel::Warning << "Control: refused job that is not a JSON object";
        return {};
    }
    std::uint64_t const number = m_nextJobNumber++;
    job.emplace("jobId", number);
    job.emplace("messageId", "005F/" + std::to_string(number));
    job.emplace("jobPayload", "");
    assignIdentity(JOBS, job);
    std::string const id = stringOf(job, "id");
    m_collections[JOBS].push_back(job);
    m_logger << LogLevel::Info << "Control: job " << id << " pushed for " << stringOf(job, "name");
    notifyResource(JOBS);
    return id;
}

bool BackendState::setKvsValue(std::string const& idOrName, std::string const& value) {
    Json* element = find(KVS_ITEMS, idOrName);
    if (element == nullptr) {
        m_logger << LogLevel::Warning << "Control: no KVS item " << idOrName;
        return false;
    }
    (*element)["value"] = value;
    m_logger << LogLevel::Info << "Control: KVS item " << stringOf(*element, "id") << " set to " << abbreviated(value);
    noteActivity("kvs", stringOf(*element, "name") + " = " + abbreviated(value) + " (backend)");
    Json event = *element;
    event["upToDate"] = false;
    event["newJobFromBackend"] = true;
    notifyElement(KVS_ITEMS, stringOf(event, "id"), event);
    return true;
}

void BackendState::failNext(std::string const& path, int status, std::uint32_t count) {
    m_faults.push_back({path == "*" ? path : normalisedPath(path), status, count});
    m_logger << LogLevel::Info << "Control: next " << count << " answer(s) to " << path << " will be " << status;
}

void BackendState::setDelay(std::string const& path, std::uint32_t ms) {
    std::string const key = path == "*" ? path : normalisedPath(path);
    if (ms == 0) {
        m_delays.erase(key);
    } else {
        m_delays[key] = ms;
    }
    m_logger << LogLevel::Info << "Control: answers to " << path << " delayed by " << ms << " ms";
}

std::optional<BackendState::Address> BackendState::parsePath(std::string const& path) const {
    if (path.empty() || path.front() != '/') {
        return std::nullopt;
    }
    std::vector<std::string> segments;
    std::size_t start = 1;
    while (start < path.size()) {
        auto const slash = path.find('/', start);
        std::string segment = path.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (segment.empty()) {
            return std::nullopt;
        }
        segments.push_back(std::move(segment));
        start = slash == std::string::npos ? path.size() : slash + 1;
    }
    Address address;
    switch (segments.size()) {
        case 0: return address;
        case 1: address.scope = Scope::Service; break;
        case 2: address.scope = Scope::Resource; break;
        case 3:
            address.scope = Scope::Element;
            address.element = segments[2];
            break;
        default: return std::nullopt;
    }
    address.service = segments[0];
    if (segments.size() > 1) {
        address.collection = segments[0] + "/" + segments[1];
    }
    return address;
}

int BackendState::refusalFor(Address const& address) const {
    if (address.scope == Scope::Root) {
        return 0;
    }
    if (m_available.count(address.service) == 0) {
        return 404;
    }
    if (address.scope != Scope::Service && m_collections.count(address.collection) == 0) {
        return 404;
    }
    if (!isAvailable(address.service)) {
        return 503;
    }
    if (address.scope == Scope::Element && find(address.collection, address.element) == nullptr) {
        return 404;
    }
    return 0;
}

std::optional<int> BackendState::takeFault(std::string const& path) {
    for (auto& fault : m_faults) {
        if (fault.remaining > 0 && (fault.path == path || fault.path == "*")) {
            --fault.remaining;
            return fault.status;
        }
    }
    return std::nullopt;
}

bool BackendState::isAvailable(std::string const& service) const {
    auto const entry = m_available.find(service);
    return entry != m_available.end() && entry->second;
}

Json BackendState::availability(std::string const& name) const {
    Json list = Json::array();
    for (auto const& [service, available] : m_available) {
        if (available && (name.empty() || name == service)) {
            list.push_back({{"name", service}, {"uri", "/" + service + "/"}});
        }
    }
    return list;
}

Json BackendState::view(std::string const& collection, Query const& query) const {
    Json list = Json::array();
    auto const elements = m_collections.find(collection);
    if (elements == m_collections.end()) {
        return list;
    }
    for (auto const& element : elements->second) {
        // Acknowledged jobs are done: the job list shows open jobs only.
        bool const done = collection == JOBS && element.contains(JOB_ACK_STATE);
        if (!done && matches(element, query)) {
            list.push_back(element);
        }
    }
    return list;
}

Json BackendState::eventDataFor(Subscription const& subscription) const {
    Address const& address = subscription.address;
    switch (address.scope) {
        case Scope::Root: {
            auto const name = subscription.query.find("name");
            return availability(name == subscription.query.end() ? "" : name->second);
        }
        case Scope::Element: {
            Json element = *find(address.collection, address.element);
            if (address.collection == KVS_ITEMS) {
                element["upToDate"] = true;
            }
            return element;
        }
        default: return view(address.collection, subscription.query);
    }
}

Json const* BackendState::find(std::string const& collection, std::string const& idOrName) const {
    auto const elements = m_collections.find(collection);
    if (elements == m_collections.end()) {
        return nullptr;
    }
    for (char const* key : {"id", "name"}) {
        for (auto const& element : elements->second) {
            if (stringOf(element, key) == idOrName) {
                return &element;
            }
        }
    }
    return nullptr;
}

Json* BackendState::find(std::string const& collection, std::string const& idOrName) {
    return const_cast<Json*>(std::as_const(*this).find(collection, idOrName));
}

void BackendState::assignIdentity(std::string const& collection, Json& element) {
    if (stringOf(element, "id").empty()) {
        char id[40];
        std::snprintf(id, sizeof(id), "00000000-0000-4000-8000-%012llu",
                      static_cast<unsigned long long>(m_nextElementNumber++));
        element["id"] = id;
    }
    if (!element.contains("uri")) {
        element["uri"] = "/" + collection + "/" + stringOf(element, "id");
    }
}

void BackendState::addServiceDefaults(Json& service) const {
    service.emplace("serviceHostSystem", "005F");
    service.emplace("disableReasons", Json::array());
    if (service.contains("accessToken")) {
        return;
    }
    for (auto const& token : m_collections.at(TOKENS)) {
        if (stringOf(token, "name") == stringOf(service, "name")) {
            service["accessToken"] = {{"uri", stringOf(token, "uri")}};
            return;
        }
    }
}

void BackendState::notifyRoot(std::string const& service) {
    for (auto const& [id, subscription] : m_subscriptions) {
        auto const name = subscription.query.find("name");
        if (subscription.address.scope == Scope::Root &&
            (name == subscription.query.end() || name->second == service)) {
            sendEvent(id, eventDataFor(subscription));
        }
    }
}

void BackendState::notifyResource(std::string const& collection) {
    for (auto const& [id, subscription] : m_subscriptions) {
        if (subscription.address.scope == Scope::Resource && subscription.address.collection == collection) {
            sendEvent(id, view(collection, subscription.query));
        }
    }
}

void BackendState::notifyElement(std::string const& collection, std::string const& id, Json const& data) {
    for (auto const& [subscriptionId, subscription] : m_subscriptions) {
        if (subscription.address.scope == Scope::Element && subscription.address.collection == collection &&
            subscription.address.element == id) {
            sendEvent(subscriptionId, data);
        }
    }
}

void BackendState::sendEvent(std::uint32_t subscriptionId, Json const& data) {
    if (m_holdEvents) {
        m_heldEvents.emplace_back(subscriptionId, data);
        return;
    }
    if (common::logging::LogConfig::isEnabled(LogLevel::Info)) {
        m_logger << LogLevel::Info << "WS event to subscription " << subscriptionId << ": "
                 << abbreviated(textOf(data));
    }
    Json const message{
        {"type", wire::EVENT}, {"subscriptionId", subscriptionId}, {"event", {{"type", "data"}, {"data", data}}}};
    m_send(m_subscriptions.at(subscriptionId).session, textOf(message));
}

}  // namespace qel::sim::backend

namespace qel::sim::backend {

BackendState::Json BackendState::snapshot(std::vector<std::uint64_t> const& sessions) const {
    auto const collection = [this](char const* name) {
        auto const found = m_collections.find(name);
        return found == m_collections.end() ? Json::array() : Json(found->second);
    };
    Json availability = Json::object();
    for (auto const& [service, available] : m_available) {
        availability[service] = available;
    }
    Json jobs = collection(JOBS);
    for (auto& job : jobs) {
        job["acknowledged"] = nullptr;
        for (auto const& acknowledgement : m_acknowledgements) {
            if (acknowledgement.jobId == stringOf(job, "id")) {
                job["acknowledged"] = acknowledgement.state;  // the latest one wins
            }
        }
    }
    Json clients = Json::array();
    for (std::uint64_t const session : sessions) {
        Json subscriptions = Json::array();
        for (auto const& [id, subscription] : m_subscriptions) {
            if (subscription.session == session) {
                std::string path = "/" + subscription.address.collection;
                if (subscription.address.scope == Scope::Root) {
                    path = "/";
                } else if (subscription.address.scope == Scope::Element) {
                    path += "/" + subscription.address.element;
                }
                subscriptions.push_back({{"id", id}, {"path", path}, {"query", subscription.query}});
            }
        }
        clients.push_back({{"client", session}, {"subscriptions", subscriptions}});
    }
    Json received = Json::array();
    for (auto it = m_received.rbegin(); it != m_received.rend() && received.size() < SNAPSHOT_RECEIVED; ++it) {
        received.push_back({{"channel", it->channel}, {"method", it->method}, {"target", it->target},
                            {"status", it->status}});
    }
    Json faults = Json::array();
    for (auto const& fault : m_faults) {
        if (fault.remaining > 0) {
            faults.push_back({{"path", fault.path}, {"status", fault.status}, {"remaining", fault.remaining}});
        }
    }
    Json activity = Json::array();
    for (auto const& event : m_activity) {
        activity.push_back({{"ms", event.ms}, {"kind", event.kind}, {"detail", event.detail}});
    }
    auto const now =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_created);
    return {{"availability", availability},
            {"services", collection(SERVICES)},
            {"tokens", collection(TOKENS)},
            {"privacyGroups", collection(PRIVACY_GROUPS)},
            {"kvs", collection(KVS_ITEMS)},
            {"jobs", jobs},
            {"capabilities", collection(CAPABILITIES)},
            {"jobEntries", collection(JOB_ENTRIES)},
            {"operationEntries", collection(OPERATION_ENTRIES)},
            {"clients", clients},
            {"received", received},
            {"receivedTotal", m_received.size()},
            {"faults", faults},
            {"delays", m_delays},
            {"activity", activity},
            {"nowMs", now.count()}};
}

}  // namespace qel::sim::backend
