// The common base of the subscription items: one backend resource watched through the RSI client
// wrapper, the one element of it that concerns this application, and the item's own queue thread.
//
// Contract: always owned by a `std::shared_ptr` (the item hands the wrapper weak pointers to
// itself). `subscribe` makes the resource subscription (or, in items that live on elements
// alone, the element subscription); answers arrive on the wrapper's thread, events on the RSI
// client's threads. Every event is processed on the item's queue thread, one at a time in arrival
// order; everything that reaches a listener runs there. The queue shares the event's data with
// the response it came in (nobody writes into it), so an event is not copied on its way; what an
// item keeps beyond the event it copies or reads into records of its own. Under a backlog at the
// queue's high-water mark an event overtakes the pending one of its kind (each carries the whole
// state), unless the item keeps every event; a warning marks the start of each such episode.
// The queue holds the item only weakly, so dropping the last owner ends the item even while
// events are queued; an owner calls `shutdown` before letting go, so that a job that happens to
// be running never ends up destroying the item on its own queue thread.
// The subscription callback hears true when the element subscription is confirmed and false
// whenever a confirmed subscription is lost; a confirmed resource subscription alone is not
// reported. A repeated element request re-confirms true; items whose element needs no request
// report only changes, plus one true to a `subscribe` that found them confirmed, so nothing
// reaches the callback an `unsubscribe` installed but that unsubscription's own falses; events
// and answers that arrive after an `unsubscribe` are dropped until the next `subscribe`.
// Destruction unsubscribes what is still subscribed and stops the queue. Nothing here throws,
// except a subscription of an item that no shared pointer owns (std::bad_weak_ptr).
#pragma once

#include "common/Logger.h"
#include "common/Mutex.h"
#include "core/Notifier.h"
#include "async/AsyncQueueThread.h"
#include "dataformats/Ref.h"
#include "dataformats/Value.h"
#include "rsi/EventHandler.h"
#include "rsi/IRSIClientWrapper.h"
#include "rsi/Request.h"
#include "rsi/ResponseHandler.h"
#include "subscriptions/IDataProcessor.h"
#include "subscriptions/RSISubscriptionCallback.h"
#include "subscriptions/SubscriptionIndex.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace qel::onlineservices::framework::core {

class SubscriptionBaseItem : public IDataProcessor,
                             public qel::rsi::client::ResponseHandler,
                             public qel::rsi::client::EventHandler,
                             public std::enable_shared_from_this<SubscriptionBaseItem> {
public:
    using Value = qel::dataformats::data::Value;
    using Ref = qel::dataformats::data::Ref;

    SubscriptionBaseItem(qel::common::logging::Logger const& logger, std::shared_ptr<Notifier> const& notifier,
                         std::shared_ptr<IRSIClientWrapper> const& rsiClientWrapper);
    ~SubscriptionBaseItem() override;
    SubscriptionBaseItem(SubscriptionBaseItem const&) = delete;
    SubscriptionBaseItem& operator=(SubscriptionBaseItem const&) = delete;

    virtual void subscribe(RSISubscriptionCallback const& callback);
    // Ends both subscriptions and finally tells `callback` false.
    virtual void unsubscribe(RSISubscriptionCallback const& callback);
    virtual void subscribeResource();
    virtual void subscribeElement();
    virtual void unsubscribeResource();
    virtual void unsubscribeElement();
    virtual void handleEventResource(SubscriptionIndex index, std::shared_ptr<Value> const& value);
    virtual void handleEventElement(std::shared_ptr<Value> const& value);

    // An answer handed over as temporaries is handled like any other.
    void handleResponse(qel::rsi::client::RequestState&& state, qel::rsi::client::Response&& response) override {
        handleResponse(state, response);
    }
    void handleResponse(qel::rsi::client::RequestState const& state,
                        qel::rsi::client::Response const& response) override;
    void handleEvent(qel::rsi::client::RequestState&& state, qel::rsi::client::Response&& response) override {
        handleEvent(state, response);
    }
    void handleEvent(qel::rsi::client::RequestState const& state, qel::rsi::client::Response const& response) override;

    // What the item's queue runs for an event: hands `value` to the resource or element handler.
    void asyncHandle(SubscriptionIndex index, std::shared_ptr<Value const> const& value);
    void setIsSubscribed(SubscriptionIndex index, bool value);
    // The element of the event's "data" array that concerns this item; null when there is none.
    Ref filterElements(Ref const& value) const;
    std::string getSubDescription(SubscriptionIndex index) const;

    bool isResourceSubscribed() const { return m_isResourceSubscribed.load(); }
    bool isElementSubscribed() const { return m_isElementSubscribed.load(); }
    std::string const& getDescription() const { return m_description; }
    std::string getElement() const;
    // True on this item's queue thread.
    bool isQueueThread() const { return m_asyncQueue.isQueueThread(); }
    // Waits until everything queued before this call has been processed. For tests; never call
    // it from the queue thread itself.
    bool waitForQueue(std::uint32_t limitMs);
    // Ends event processing for good: drops what is queued, waits for the running job and joins
    // the queue thread. Idempotent; never call it from the queue thread itself.
    void shutdown();
    // Pending events beyond which a state-carrying item keeps only the newest of each kind.
    void setQueueHighWaterMark(std::size_t mark);

protected:
    // Fills the identity of the item, in the order the derived constructors are expected to:
    // name, resource, filter, service, description; and names the queue thread "<tag>:<name>".
    void describe(std::string const& name, std::string const& service, std::string const& resource,
                  std::map<std::string, std::string> filter, std::string const& descriptionName,
                  char const* queueTag);
    void setElement(std::string const& element);
    // Takes a found element: remembers its id, processes it and confirms the element.
    void takeElement(Ref const& element);
    // The "data" of an element event, or its first entry when a backend wrapped it in an array.
    Ref elementData(Ref const& value) const;
    // Runs `work` on the queue thread while the item lives; false when the queue refused it.
    // `work` is wrapped once, together with the item's liveness check.
    template <typename Work>
    bool queueWork(Work&& work);
    // The confirmation of items whose element needs no subscription of its own: reported when
    // the element flag changes, and once to a `subscribe` that found the item confirmed already.
    void confirmElementWithoutRequest();
    // False from `unsubscribe` until the next `subscribe`: what arrives then is stale.
    bool isWanted() const { return m_isWanted.load(); }
    void sendRequest(std::shared_ptr<qel::rsi::client::Request> const& request);
    // Sends with a handler of the caller's, which the caller keeps alive; false when not sent.
    bool sendRequest(std::shared_ptr<qel::rsi::client::Request> const& request,
                     std::weak_ptr<qel::rsi::client::ResponseHandler> const& handler);
    // Forgets the id of a subscription the wrapper has ended, without unsubscribing: the wrapper
    // may already have given the id to a newer subscription.
    void forgetSubscription(SubscriptionIndex index);
    // For items whose events must all be delivered, however long the backlog. Constructor only.
    void keepEveryEvent() { m_keepsEveryEvent = true; }

    qel::common::logging::Logger const m_logger;
    std::shared_ptr<Notifier> const m_notifier;
    std::shared_ptr<IRSIClientWrapper> const m_rsiClientWrapper;
    // Set by the derived constructor, read-only afterwards.
    std::string m_service;
    std::string m_resource;
    std::map<std::string, std::string> m_filter;
    std::string m_name;
    std::string m_description;

private:
    using AsyncQueueThread = qel::onlineservices::common::utils::AsyncQueueThread;

    // Warns when the push found the backlog at its high-water mark; returns whether it was queued.
    bool notePush(AsyncQueueThread::Pushed const& pushed) const;
    // Subscribes `request` with this item as both handlers; 0 without a wrapper. Throws
    // std::bad_weak_ptr when no shared pointer owns the item.
    unsigned int subscribeWithWrapper(std::shared_ptr<qel::rsi::client::Request> const& request);
    // Ends the wrapper subscription `id` holds, if any.
    void releaseSubscription(std::atomic<std::uint32_t>& id, char const* what);
    // True while a subscription to `element` awaits its answer: a repeated request must not
    // replace it.
    bool isElementSubscriptionPending(std::string const& element) const;
    // Both base unsubscriptions, without virtual dispatch (also used by the destructor).
    void unsubscribeBase(SubscriptionIndex index);

    mutable qel::common::system::Mutex m_elementLock;
    std::string m_element;            // guarded by m_elementLock
    std::string m_subscribedElement;  // guarded by m_elementLock; the element of m_elementSubscriptionId
    // Non-zero while the wrapper holds a subscription of ours, confirmed or not.
    std::atomic<std::uint32_t> m_resourceSubscriptionId{0};
    std::atomic<std::uint32_t> m_elementSubscriptionId{0};
    std::atomic<bool> m_isResourceSubscribed{false};
    std::atomic<bool> m_isElementSubscribed{false};
    std::atomic<bool> m_isWanted{true};
    // Orders confirmations without a request against `subscribe` and `unsubscribe`.
    mutable qel::common::system::Mutex m_confirmLock;
    bool m_answerOwed = false;  // guarded by m_confirmLock; a `subscribe` awaits its answer
    bool m_keepsEveryEvent = false;  // set before the first event, read-only afterwards
    AsyncQueueThread m_asyncQueue;
    RSISubscriptionCallback m_subscriptionCallback;
};

template <typename Work>
bool SubscriptionBaseItem::queueWork(Work&& work) {
    std::weak_ptr<SubscriptionBaseItem> const weakSelf = weak_from_this();
    // `work` may use `this`: it only runs while the lock below keeps the item alive.
    return notePush(m_asyncQueue.push(
        [weakSelf, work = std::forward<Work>(work)]() mutable {
            if (auto const self = weakSelf.lock()) {
                work();
            }
        },
        0));
}

}  // namespace qel::onlineservices::framework::core
