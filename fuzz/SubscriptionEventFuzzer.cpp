// Arbitrary text as the data of an event into one subscription item: the first byte picks the
// item (service, token, KVS, job, privacy), the rest is the payload, delivered as
// {"type":"data","data":<rest>} through the in-memory RSI client, so it reaches the item the way
// the backend's events do, and the run ends when the item's queue has processed it. Listeners
// answer every job with success, so acknowledgements are sent too. A sanitizer report or a hang
// is a finding.
#include "FuzzQuiet.h"
#include "config/FrameworkConfig.h"
#include "core/Notifier.h"
#include "rsi/RSIClientWrapper.h"
#include "rsi/RequestType.h"
#include "subscriptions/JobItem.h"
#include "subscriptions/KVSItem.h"
#include "subscriptions/PrivacyItem.h"
#include "subscriptions/RSISubscriptionCallback.h"
#include "subscriptions/ServiceItem.h"
#include "subscriptions/TokenItem.h"
#include "support/InMemoryRsiClient.h"

#include <onlineservices/framework/IBackendJobListener.h>
#include <onlineservices/framework/IKVSListener.h>
#include <onlineservices/framework/IServiceDataListener.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace core = qel::onlineservices::framework::core;
using namespace qel::rsi::client;
using qel::test::InMemoryRsiClient;
using qel::test::Match;

constexpr std::uint32_t WAIT_LIMIT_MS = 5000;
// The in-memory client and the items remember what they saw; a fresh rig now and then keeps the
// memory flat over millions of runs.
constexpr std::uint32_t RUNS_PER_RIG = 20000;

class Listener : public core::IServiceDataListener, public core::IKVSListener, public core::IBackendJobListener {
public:
    void onKVSItemChanged(std::string const& /*key*/, std::string const& /*value*/) override {}
    core::BackendJobAcknowledgeCode onBackendJobReceived(
        std::shared_ptr<qel::onlineservices::framework::dataitems::JobObject> const& job) override {
        if (job == nullptr) {
            std::abort();
        }
        return core::BackendJobAcknowledgeCode::SUCCESS;
    }
};

bool drainWorker(core::RSIClientWrapper& wrapper) {
    while (wrapper.queuedJobCount() != 0) {
        if (!wrapper.waitForWorkerLoop(wrapper.wakeWorker(), WAIT_LIMIT_MS)) {
            return false;
        }
    }
    return true;
}

struct Target {
    std::shared_ptr<core::SubscriptionBaseItem> item;
    Match match;
};

class Rig {
public:
    Rig() {
        m_notifier->addListener(std::weak_ptr<core::IServiceDataListener>(m_listener));
        m_notifier->addListener(std::weak_ptr<core::IKVSListener>(m_listener));
        m_notifier->setListener(std::weak_ptr<core::IBackendJobListener>(m_listener));
        m_wrapper->start();
        auto const token = make<core::TokenItem>("nav");
        auto const service = make<core::ServiceItem>("nav");
        auto const kvs = make<core::KVSItem>("units");
        service->setTokenHandler(token);
        token->handleURI("/tokenmanagement/accessTokens/tok-1");
        kvs->handleURI("k-1");
        m_targets = {{service, {RequestTypeSubscribeResource, "servicemanagement"}},
                     {token, {Match::ANY_TYPE, "tokenmanagement"}},
                     {kvs, {Match::ANY_TYPE, "onlinekvs"}},
                     {make<core::JobItem>("nav"), {Match::ANY_TYPE, "backendjobs"}},
                     {make<core::PrivacyItem>("nav"), {Match::ANY_TYPE, "privacysetup"}}};
        for (auto const& target : m_targets) {
            target.item->subscribe(m_callback);
        }
        if (!drainWorker(*m_wrapper)) {
            std::abort();
        }
    }
    // Items go first, their queues joined, then the worker.
    ~Rig() {
        for (auto const& target : m_targets) {
            target.item->shutdown();
        }
        m_targets.clear();
        m_wrapper->stop();
    }
    Rig(Rig const&) = delete;
    Rig& operator=(Rig const&) = delete;

    void run(std::uint8_t selector, std::string const& payload) {
        Target const& target = m_targets[selector % m_targets.size()];
        // The item may have subscribed again (a new token URI); its latest subscription counts.
        std::uint32_t const id = m_rsi->lastSubscriptionId(target.match);
        if (m_rsi->pushData(id, payload) && !target.item->waitForQueue(WAIT_LIMIT_MS)) {
            std::abort();  // the item's queue hangs
        }
        if (!drainWorker(*m_wrapper)) {
            std::abort();
        }
    }

private:
    template <typename Item>
    std::shared_ptr<Item> make(char const* id) {
        return std::make_shared<Item>(m_logger, m_notifier, m_wrapper, id);
    }

    InMemoryRsiClient::Installation m_rsi;
    std::shared_ptr<qel::onlineservices::framework::FrameworkConfig> m_config =
        std::make_shared<qel::onlineservices::framework::FrameworkConfig>();
    std::shared_ptr<core::RSIClientWrapper> m_wrapper = std::make_shared<core::RSIClientWrapper>(m_config);
    std::shared_ptr<core::Notifier> m_notifier = std::make_shared<core::Notifier>(m_config);
    std::shared_ptr<Listener> m_listener = std::make_shared<Listener>();
    qel::common::logging::Logger m_logger{"fuzz"};
    core::RSISubscriptionCallback m_callback{[](bool) {}};
    std::vector<Target> m_targets;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    qel::fuzz::silenceLogging();
    if (size == 0) {
        return 0;
    }
    static std::unique_ptr<Rig> rig;
    static std::uint32_t runs = 0;
    if (rig == nullptr || ++runs % RUNS_PER_RIG == 0) {
        rig.reset();
        rig = std::make_unique<Rig>();
    }
    rig->run(data[0], std::string(reinterpret_cast<char const*>(data) + 1, size - 1));
    return 0;
}
