#include "rsi/RSISubscription.h"

#include "dataformats/Json.h"
#include "dataformats/Ref.h"

#include <string>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::dataformats::data::Ref;
using qel::rsi::client::RequestState;
using qel::rsi::client::RequestStateSucceeded;
using qel::rsi::client::Response;

RSISubscription::RSISubscription(std::shared_ptr<qel::rsi::client::Request> request,
                                 std::weak_ptr<qel::rsi::client::ISharedRsiClient> client,
                                 std::weak_ptr<qel::rsi::client::ResponseHandler> responseHandler,
                                 std::weak_ptr<qel::rsi::client::EventHandler> eventHandler,
                                 std::uint32_t wrapperSubscriptionId, qel::common::logging::Logger logger)
    : IRSIJob(std::move(logger)),
      m_request(std::move(request)),
      m_client(std::move(client)),
      m_responseHandler(std::move(responseHandler)),
      m_eventHandler(std::move(eventHandler)),
      m_wrapperSubscriptionId(wrapperSubscriptionId) {}

RSISubscription::~RSISubscription() {
    // Also with id 0 (never subscribed, or every try failed): the client is told of every
    // subscription job exactly once, from here, and decides what an unknown id means.
    std::uint32_t const clientId = m_clientSubscriptionId.load();
    auto const client = m_client.lock();
    if (!client) {
        m_logger << LogLevel::Warning << "RSI client expired";
        return;
    }
    m_logger << LogLevel::Info << "Unsubscribing: <wrapper> " << m_wrapperSubscriptionId << " <rsiClient> " << clientId;
    client->unsubscribe(clientId);
}

void RSISubscription::process() {
    RequestState state(0, "");
    Response response;
    if (isCancelRequested()) {
        m_logger << LogLevel::Warning << "Cancel requested - abort subscription retry";
    } else if (!subscribeAtClient(state, response)) {
        return;
    }
    if (auto const handler = m_responseHandler.lock()) {
        handler->handleResponse(state, response);
    }
}

bool RSISubscription::subscribeAtClient(RequestState& state, Response& response) {
    std::int32_t const tries = countTry();
    if (tries > 1) {
        m_logger << LogLevel::Info << "RSI subscription request try number " << tries;
    }
    auto const client = m_client.lock();
    if (!client) {
        m_logger << LogLevel::Warning << "RSI client expired";
        return true;
    }
    std::weak_ptr<qel::rsi::client::EventHandler> const self = weak_from_this();
    m_armCountAtSubscribe = retryArmCount();
    m_clientSubscriptionId.store(client->subscribe(*m_request, response, state, self, 0, 0));
    if (state.value != RequestStateSucceeded && isCancelRequested()) {
        // Cut short by a shutdown: reported like any cancelled job, never retried.
        m_logger << LogLevel::Warning << "Cancel requested - abort subscription retry";
        state = RequestState(0, "");
        response = Response();
        return true;
    }
    if (state.value != RequestStateSucceeded) {
        m_logger << LogLevel::Error << "RSI subscription request failed.";
        return !activateRetry();
    }
    m_logger << LogLevel::Info << "Added subscription: <wrapper> " << m_wrapperSubscriptionId << " <rsiClient> "
             << m_clientSubscriptionId.load();
    confirmRequestSuccess();
    return true;
}

void RSISubscription::confirmRequestSuccess() {
    resetRetrySchedule();
    if (clearRetryUnlessArmedSince(m_armCountAtSubscribe)) {
        return;
    }
    // The connection closed after the backend acknowledged but before this confirmation: the
    // subscription was made and lost, so it is made again like any lost one.
    m_logger << LogLevel::Warning << "Subscription lost while being confirmed: <wrapper> " << m_wrapperSubscriptionId;
    activateRetry();
}

void RSISubscription::handleEvent(RequestState const& state, Response const& response) {
    if (state.value != RequestStateSucceeded) {
        rejectEvent("Invalid RSI Event received (RequestState != RequestStateSucceeded). Event ignored", state,
                    response);
        return;
    }
    Ref const event(response.getData(false));
    if (!event.hasObjectKey("type")) {
        rejectEvent("Invalid RSI Event received (property 'type' missing). Event ignored", state, response);
        return;
    }
    std::string const type = event("type").asString();
    if (type == "data") {
        handleDataEvent(state, response);
    } else if (type == "error") {
        m_logger << LogLevel::Error << "Subscription websocket closed";
        printEvent(LogLevel::Error, state, response);
        activateRetry();
    } else {
        m_logger << LogLevel::Error << "Invalid RSI Event received (unknown type: '" << type << "'). Event ignored";
        printEvent(LogLevel::Error, state, response);
    }
}

void RSISubscription::handleDataEvent(RequestState const& state, Response const& response) {
    if (!Ref(response.getData(false)).hasObjectKey("data")) {
        rejectEvent("Invalid RSI Event received (property 'data' missing). Event ignored", state, response);
        return;
    }
    printEvent(LogLevel::Trace, state, response);
    if (auto const handler = m_eventHandler.lock()) {
        handler->handleEvent(state, response);
    } else {
        m_logger << LogLevel::Warning << "Event not notified due to an outdated event handler";
    }
}

void RSISubscription::rejectEvent(char const* reason, RequestState const& state, Response const& response) const {
    m_logger << LogLevel::Error << reason;
    printEvent(LogLevel::Error, state, response);
}

void RSISubscription::printEvent(LogLevel level, RequestState const& state, Response const& response) const {
    if (!qel::common::logging::LogConfig::isEnabled(level)) {
        return;  // spares the JSON text of a trace-level print of every event
    }
    m_logger << level << "+------- RSI Event ---------------------------------------";
    m_logger << level << "| RequestState value: " << state.value;
    m_logger << level << "| RequestState note: " << state.note;
    m_logger << level << "| Event status: " << response.getStatus();
    m_logger << level << "| Event content: " << qel::dataformats::json::stringify(response.getData(false));
    m_logger << level << "| Event etag: " << response.getEtag();
    m_logger << level << "| Event location: " << response.getLocation();
    m_logger << level << "| Event binary data: " << response.getBinaryDataFlag();
    m_logger << level << "+--------------------------------------------------------";
}

}  // namespace qel::onlineservices::framework::core
