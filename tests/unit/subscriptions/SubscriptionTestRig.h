// A real RSI client wrapper over the in-memory client, a notifier and a recording listener.
#pragma once

#include "config/FrameworkConfig.h"
#include "core/Notifier.h"
#include "rsi/RSIClientWrapper.h"
#include "subscriptions/SubscriptionBaseItem.h"
#include "support/InMemoryRsiClient.h"
#include "support/LogCapture.h"
#include "support/RsiWorkerDriver.h"
#include "unit/subscriptions/RecordingListener.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace qel::test {

namespace core = onlineservices::framework::core;

class SubscriptionTestRig : public ::testing::Test {
protected:
    using LogLevel = common::logging::LogLevel;

    SubscriptionTestRig() {
        notifier->addListener(std::weak_ptr<core::IServiceDataListener>(listener));
        notifier->addListener(std::weak_ptr<core::IKVSListener>(listener));
        notifier->setListener(std::weak_ptr<core::IBackendJobListener>(listener));
        wrapper->start();
    }
    // Items are released here, on the test's thread, after their queues were joined.
    ~SubscriptionTestRig() override {
        for (auto const& item : owned) {
            item->shutdown();
        }
        wrapper->stop();
    }

    // An item over this rig's logger, notifier and wrapper, kept until the rig goes.
    template <typename Item, typename... Args>
    std::shared_ptr<Item> makeItem(Args&&... args) {
        auto item = std::make_shared<Item>(logger, notifier, wrapper, std::forward<Args>(args)...);
        owned.push_back(item);
        return item;
    }

    // Lets the worker run what was queued: subscribe and request jobs and their answers.
    void drain() { ASSERT_TRUE(drainWorker(*wrapper)); }
    void subscribe(core::SubscriptionBaseItem& item) {
        item.subscribe(callback);
        drain();
    }
    // An event of the latest subscription matching `match`, processed by `item` on return.
    void push(core::SubscriptionBaseItem& item, Match const& match, std::string const& dataJson) {
        ASSERT_TRUE(rsi->pushData(rsi->lastSubscriptionId(match), dataJson));
        ASSERT_TRUE(item.waitForQueue(5000));
    }
    std::vector<RecordedRequest> requestsOfType(std::uint32_t type) const {
        auto result = rsi->requests();
        result.erase(std::remove_if(result.begin(), result.end(), [type](auto const& r) { return r.type != type; }),
                     result.end());
        return result;
    }

    LogCapture log;
    InMemoryRsiClient::Installation rsi;
    std::shared_ptr<onlineservices::framework::FrameworkConfig> config =
        std::make_shared<onlineservices::framework::FrameworkConfig>();
    std::shared_ptr<core::RSIClientWrapper> wrapper = std::make_shared<core::RSIClientWrapper>(config);
    std::shared_ptr<core::Notifier> notifier = std::make_shared<core::Notifier>(config);
    std::shared_ptr<RecordingListener> listener = std::make_shared<RecordingListener>();
    common::logging::Logger logger{"test"};
    Recorder<bool> subscribed;  // what the items told their subscription callback
    core::RSISubscriptionCallback callback{[this](bool value) { subscribed.add(value); }};
    std::vector<std::shared_ptr<core::SubscriptionBaseItem>> owned;
};

}  // namespace qel::test
