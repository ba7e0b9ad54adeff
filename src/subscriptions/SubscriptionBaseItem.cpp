#include "subscriptions/SubscriptionBaseItem.h"

#include "common/Semaphore.h"
#include "dataformats/Json.h"
#include "rsi/RequestState.h"
#include "rsi/RequestType.h"

#include <algorithm>
#include <utility>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogConfig;
using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;
using qel::rsi::client::Request;
using qel::rsi::client::RequestState;
using qel::rsi::client::RequestStateSucceeded;
using qel::rsi::client::Response;

SubscriptionBaseItem::SubscriptionBaseItem(qel::common::logging::Logger const& logger,
                                           std::shared_ptr<Notifier> const& notifier,
                                           std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper)
    : m_logger(logger), m_notifier(notifier), m_rsiClientWrapper(rsiClientWrapper) {
    if (!m_notifier || !m_rsiClientWrapper) {
        m_logger << LogLevel::Error << "Subscription item created without notifier or RSI client wrapper!";
    }
}

SubscriptionBaseItem::~SubscriptionBaseItem() {
    m_logger << LogLevel::Info << "~SubscriptionBaseItem:" << m_description;
    unsubscribeBase(SubscriptionIndex::ELEMENT);
    unsubscribeBase(SubscriptionIndex::RESOURCE);
    m_asyncQueue.stop();
}

void SubscriptionBaseItem::describe(std::string const& name, std::string const& service,
                                    std::string const& resource, std::map<std::string, std::string> filter,
                                    std::string const& descriptionName, char const* queueTag) {
    m_name = name;
    m_resource = resource;
    m_filter = std::move(filter);
    m_service = service;
    m_description = "(" + descriptionName + "/" + m_name + ")";
    // Cut to 15 characters by the platform; enough to tell the items apart in `top -H`.
    m_asyncQueue.setName(std::string(queueTag) + ":" + m_name);
}

void SubscriptionBaseItem::subscribe(RSISubscriptionCallback const& callback) {
    m_logger << LogLevel::Info << m_description << " subscribe";
    {
        MutexGuard guard(m_confirmLock);
        m_isWanted.store(true);
        m_subscriptionCallback.setFunction(callback.getFunction());
        m_answerOwed = true;
    }
    subscribeResource();
}

void SubscriptionBaseItem::unsubscribe(RSISubscriptionCallback const& callback) {
    m_logger << LogLevel::Info << m_description << " unsubscribe";
    {
        // After this block no confirmation can reach `callback`.
        MutexGuard guard(m_confirmLock);
        m_isWanted.store(false);
        m_answerOwed = false;
        m_subscriptionCallback.setFunction(callback.getFunction());
    }
    // Unconditional: the base versions also end subscriptions that are still unconfirmed.
    unsubscribeElement();
    unsubscribeResource();
    callback.call(false);
}

void SubscriptionBaseItem::subscribeResource() {
    auto const request = std::make_shared<Request>();
    if (m_isResourceSubscribed.load()) {
        m_logger << LogLevel::Info << "Already subscribed to resource " << m_resource;
        subscribeElement();
        return;
    }
    request->type = qel::rsi::client::RequestTypeSubscribeResource;
    request->requestId = static_cast<std::uint32_t>(SubscriptionIndex::RESOURCE);
    request->queryParameters = m_filter;
    request->service = m_service;
    request->resource = m_resource;
    // An unconfirmed earlier subscription is replaced rather than left running beside the new one.
    releaseSubscription(m_resourceSubscriptionId, "resource");
    m_resourceSubscriptionId.store(subscribeWithWrapper(request));
    m_logger << LogLevel::Info << m_description << "  Wait for Response...";
}

void SubscriptionBaseItem::subscribeElement() {
    std::string const element = getElement();
    m_logger << LogLevel::Info << m_description << " Subscribing to Element " << element;
    if (m_isElementSubscribed.load()) {
        m_logger << LogLevel::Info << "Already subscribed to element " << element;
        m_subscriptionCallback.call(true);
        return;
    }
    if (isElementSubscriptionPending(element)) {
        m_logger << LogLevel::Info << m_description << " Element subscription pending: " << element;
        return;
    }
    auto const request = std::make_shared<Request>();
    request->type = qel::rsi::client::RequestTypeSubscribeElement;
    request->requestId = static_cast<std::uint32_t>(SubscriptionIndex::ELEMENT);
    request->service = m_service;
    request->resource = m_resource;
    request->element = element;
    releaseSubscription(m_elementSubscriptionId, "element");
    unsigned int const id = subscribeWithWrapper(request);
    {
        MutexGuard guard(m_elementLock);
        m_elementSubscriptionId.store(id);
        m_subscribedElement = element;
    }
    m_logger << LogLevel::Info << m_description << " Received Element SubscriptionId: " << id
             << " Wait for Response...";
}

bool SubscriptionBaseItem::isElementSubscriptionPending(std::string const& element) const {
    MutexGuard guard(m_elementLock);
    return m_elementSubscriptionId.load() != 0 && m_subscribedElement == element;
}

void SubscriptionBaseItem::unsubscribeResource() {
    unsubscribeBase(SubscriptionIndex::RESOURCE);
}

void SubscriptionBaseItem::unsubscribeElement() {
    unsubscribeBase(SubscriptionIndex::ELEMENT);
}

void SubscriptionBaseItem::unsubscribeBase(SubscriptionIndex index) {
    bool const isResource = index == SubscriptionIndex::RESOURCE;
    auto& id = isResource ? m_resourceSubscriptionId : m_elementSubscriptionId;
    auto const& flag = isResource ? m_isResourceSubscribed : m_isElementSubscribed;
    if (!flag.load() && id.load() == 0) {
        return;
    }
    releaseSubscription(id, isResource ? "resource" : "element");
    setIsSubscribed(index, false);
}

unsigned int SubscriptionBaseItem::subscribeWithWrapper(std::shared_ptr<Request> const& request) {
    // An item not owned by a shared pointer is a programming error: this throws std::bad_weak_ptr.
    std::weak_ptr<SubscriptionBaseItem> const self = shared_from_this();
    if (!m_rsiClientWrapper) {
        m_logger << LogLevel::Error << m_description << " Cannot subscribe: no RSI client wrapper!";
        return 0;
    }
    return m_rsiClientWrapper->subscribe(request, self, self);
}

void SubscriptionBaseItem::releaseSubscription(std::atomic<std::uint32_t>& id, char const* what) {
    std::uint32_t const held = id.exchange(0);
    if (held != 0 && m_rsiClientWrapper) {
        m_logger << LogLevel::Info << m_description << " Unsubscribing for " << what << ", SubscriptionId: " << held;
        m_rsiClientWrapper->unsubscribe(held);
    }
}

void SubscriptionBaseItem::forgetSubscription(SubscriptionIndex index) {
    if (index == SubscriptionIndex::RESOURCE) {
        m_resourceSubscriptionId.store(0);
    } else if (index == SubscriptionIndex::ELEMENT) {
        m_elementSubscriptionId.store(0);
    }
}

void SubscriptionBaseItem::sendRequest(std::shared_ptr<Request> const& request) {
    sendRequest(request, weak_from_this());
}

bool SubscriptionBaseItem::sendRequest(std::shared_ptr<Request> const& request,
                                       std::weak_ptr<qel::rsi::client::ResponseHandler> const& handler) {
    if (weak_from_this().expired() || !m_rsiClientWrapper) {
        m_logger << LogLevel::Error << m_description
                 << " Cannot send request: item not owned by a shared pointer or no RSI client wrapper!";
        return false;
    }
    m_rsiClientWrapper->sendRequest(request, handler);
    return true;
}

void SubscriptionBaseItem::setIsSubscribed(SubscriptionIndex index, bool value) {
    switch (index) {
        case SubscriptionIndex::ELEMENT:
            if (m_isElementSubscribed.exchange(value) != value) {
                m_subscriptionCallback.call(value);
            }
            return;
        case SubscriptionIndex::RESOURCE:
            // Only the element's confirmation counts as subscribed; losing the resource is reported.
            if (m_isResourceSubscribed.exchange(value) != value && !value) {
                m_subscriptionCallback.call(false);
            }
            return;
    }
    m_logger << LogLevel::Error << m_description << " setIsSubscribed(): unknown subscription index!";
}

void SubscriptionBaseItem::confirmElementWithoutRequest() {
    RSISubscriptionCallback::Function answer;
    {
        // Decided together with `unsubscribe`'s switch of the callback: a confirmation either
        // goes to the callback of the subscribe it confirms or nowhere.
        MutexGuard guard(m_confirmLock);
        if (!isWanted()) {
            return;  // a late answer after unsubscribe must not mark the item subscribed again
        }
        bool const changed = !m_isElementSubscribed.exchange(true);
        // A repeated subscribe of a confirmed item is answered once; other repeats are silent.
        bool const owed = std::exchange(m_answerOwed, false);
        if (changed || owed) {
            answer = m_subscriptionCallback.getFunction();
        }
    }
    if (answer) {
        answer(true);
    }
}

std::string SubscriptionBaseItem::getSubDescription(SubscriptionIndex index) const {
    switch (index) {
        case SubscriptionIndex::ELEMENT: return "element ";
        case SubscriptionIndex::RESOURCE: return "resource ";
    }
    m_logger << LogLevel::Error << m_description << " getSubDescription(): unknown subscription index!";
    return "unknown service ";
}

void SubscriptionBaseItem::handleResponse(RequestState const& state, Response const& response) {
    auto const index = static_cast<SubscriptionIndex>(response.getId());
    if (state.value == RequestStateSucceeded) {
        m_logger << LogLevel::Info << m_description << " Subscription for " << getSubDescription(index)
                 << " succeeded.";
        if (!isWanted()) {
            m_logger << LogLevel::Warning << m_description << " Confirmation arrived after unsubscribe, ignored.";
            return;
        }
        setIsSubscribed(index, true);
        return;
    }
    m_logger << LogLevel::Error << m_description << " Subscription to " << getSubDescription(index)
             << " failed. Aborting subscription attempt.";
    m_logger << LogLevel::Error << m_description << " Note: " << state.note;
    m_logger << LogLevel::Error << m_description
             << " Response: " << qel::dataformats::json::stringify(response.getData(false));
    // A failure reaches us when the wrapper has ended the job (a cancel): its id is stale and may
    // be handed out again, so it is forgotten without an unsubscribe.
    forgetSubscription(index);
    setIsSubscribed(index, false);
    setIsSubscribed(SubscriptionIndex::ELEMENT, false);
}

void SubscriptionBaseItem::handleEvent(RequestState const& /*state*/, Response const& response) {
    std::uint32_t const id = response.getId();
    auto const index = static_cast<SubscriptionIndex>(id);
    m_logger << LogLevel::Info << m_description << " Subscription Event received for " << getSubDescription(index);
    Value const* const data = response.getData(false);
    if (LogConfig::isEnabled(LogLevel::Info)) {
        m_logger << LogLevel::Info << m_description << " Event: " << qel::dataformats::json::stringify(data);
    }
    if (data == nullptr) {
        m_logger << LogLevel::Error << "No response received";
        return;
    }
    // The queue thread reads the response's data after the RSI thread let go of the response:
    // it shares the (read-only) tree instead of copying it. An event carries the item's whole
    // state, so under a backlog a newer one of its kind may replace it.
    std::shared_ptr<Value const> shared = response.shareData();
    std::weak_ptr<SubscriptionBaseItem> weakSelf = weak_from_this();
    std::uint32_t const kind = m_keepsEveryEvent ? 0 : id;
    notePush(m_asyncQueue.push(
        [weakSelf = std::move(weakSelf), index, shared = std::move(shared)] {
            if (auto const self = weakSelf.lock()) {
                self->asyncHandle(index, shared);
            }
        },
        kind));
}

bool SubscriptionBaseItem::notePush(AsyncQueueThread::Pushed const& pushed) const {
    if (pushed.crossedHighWater != 0) {
        m_logger << LogLevel::Warning << m_description << " Event queue reached its high-water mark: "
                 << pushed.crossedHighWater << " events pending; "
                 << (m_keepsEveryEvent ? "every event is kept" : "only the newest event of each kind is kept");
    }
    return pushed.queued;
}

void SubscriptionBaseItem::setQueueHighWaterMark(std::size_t mark) {
    m_asyncQueue.setHighWaterMark(mark);
}

void SubscriptionBaseItem::shutdown() {
    m_asyncQueue.stop();
}

bool SubscriptionBaseItem::waitForQueue(std::uint32_t limitMs) {
    auto const done = std::make_shared<qel::common::system::Semaphore>(0);
    if (!m_asyncQueue.push([done] { done->up(); })) {
        return false;
    }
    return done->down(limitMs);
}

void SubscriptionBaseItem::asyncHandle(SubscriptionIndex index, std::shared_ptr<Value const> const& shared) {
    if (index != SubscriptionIndex::RESOURCE && index != SubscriptionIndex::ELEMENT) {
        m_logger << LogLevel::Error << m_description << " handleEvent(): unknown subscription index <"
                 << static_cast<std::uint32_t>(index) << "> !";
        return;
    }
    if (!isWanted()) {
        m_logger << LogLevel::Warning << m_description << " Event arrived after unsubscribe, dropped.";
        return;
    }
    // The item operations take a writable value for their signature's sake; none writes into an
    // event, whose tree other handlers of the same response may be reading.
    std::shared_ptr<Value> const value = std::const_pointer_cast<Value>(shared);
    if (index == SubscriptionIndex::RESOURCE) {
        handleEventResource(SubscriptionIndex::RESOURCE, value);
    } else {
        handleEventElement(value);
    }
}

void SubscriptionBaseItem::handleEventResource(SubscriptionIndex /*index*/, std::shared_ptr<Value> const& value) {
    takeElement(filterElements(Ref(value.get())));
}

void SubscriptionBaseItem::takeElement(Ref const& element) {
    if (!element.hasObjectKey("id")) {
        m_logger << LogLevel::Info << m_description << " RSI Element not (yet) available...";
        return;
    }
    std::string const id = element("id").asString();
    setElement(id);
    m_logger << LogLevel::Info << m_description << " RSI Element found: " << id;
    processData(element);
    subscribeElement();
}

void SubscriptionBaseItem::handleEventElement(std::shared_ptr<Value> const& value) {
    processData(elementData(Ref(value.get())));
}

SubscriptionBaseItem::Ref SubscriptionBaseItem::elementData(Ref const& value) const {
    Ref const data = value("data");
    if (data.getArraySize() != 0) {
        // Some backends wrap the single element of an element event in an array.
        m_logger << LogLevel::Warning << m_description
                 << " Array received on element subscription! This is due to a wrong implementation in OCU element "
                    "subscriptions! Taking first element";
        return data[0];
    }
    return data;
}

SubscriptionBaseItem::Ref SubscriptionBaseItem::filterElements(Ref const& value) const {
    Ref const data = value("data");
    unsigned long const count = data.getArraySize();
    if (count == 1) {
        return data[0];  // the backend applied the subscription's parameters already
    }
    if (count == 0) {
        return Ref();
    }
    m_logger << LogLevel::Error << m_description << " RSI Event received with " << count
             << " elements. Should not happen. Filtering again.";
    for (unsigned long i = 0; i < count; ++i) {
        Ref const candidate = data[i];
        bool const matches = std::all_of(m_filter.begin(), m_filter.end(), [&candidate](auto const& pair) {
            return candidate(pair.first).asString() == pair.second;
        });
        if (matches) {
            m_logger << LogLevel::Error << m_description << " RSI element found";
            return candidate;
        }
    }
    return Ref();
}

std::string SubscriptionBaseItem::getElement() const {
    MutexGuard guard(m_elementLock);
    return m_element;
}

void SubscriptionBaseItem::setElement(std::string const& element) {
    MutexGuard guard(m_elementLock);
    m_element = element;
}

}  // namespace qel::onlineservices::framework::core
