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
    ~SubscriptionTestRig() override { wrapper->stop(); }

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
        std::vector<RecordedRequest> result;
        for (auto const& request : rsi->requests()) {
            if (request.type == type) {
                result.push_back(request);
            }
        }
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
};

}  // namespace qel::test
