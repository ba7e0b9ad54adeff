// The RSI client wrapper's own cost per request: queueing, the worker hand-off, the job and the
// retry bookkeeping, with a client that answers at once. Later transports compare against it.
//   BM_WrapperRequest/<level>/<batch>          -> one request, also with thousands queued at once
//   BM_WrapperRequestWithSubscriptions/<n>     -> one request while n subscriptions are held
//   BM_WrapperSubscribeSetUp/<n>               -> making n subscriptions (time per subscription)
#include "common/Logger.h"
#include "rsi/RSIClientWrapper.h"
#include "rsi/SharedRsiClient.h"

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <string>

namespace {

using qel::common::logging::LogConfig;
using qel::common::logging::LogLevel;
using qel::onlineservices::framework::FrameworkConfig;
using qel::onlineservices::framework::core::RSIClientWrapper;
using namespace qel::rsi::client;

class InstantClient : public ISharedRsiClient {
public:
    RequestState request(Request const& request, Response& response) override {
        response.setStatus(200);
        response.setId(request.requestId);
        return RequestState(RequestStateSucceeded, "");
    }
    std::uint32_t subscribe(Request const&, Response&, RequestState& state, std::weak_ptr<EventHandler> const&,
                            std::uint32_t, std::uint32_t) override {
        state = RequestState(RequestStateSucceeded, "");
        return 1;
    }
    void unsubscribe(std::uint32_t) override {}
};

class CountingHandler : public ResponseHandler {
public:
    using ResponseHandler::handleResponse;
    void handleResponse(RequestState const&, Response const&) override {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            ++m_answered;
        }
        m_changed.notify_one();
    }
    void waitFor(std::uint64_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return m_answered >= count; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::uint64_t m_answered = 0;  // guarded by m_mutex
};

// Argument 0: the log threshold (3 formats the per-request info lines into no sink, 5 skips them).
// Argument 1: requests queued before waiting (1: one round trip at a time).
void BM_WrapperRequest(benchmark::State& state) {
    LogConfig::setSinks({});
    LogConfig::setThreshold(static_cast<LogLevel>(state.range(0)));
    SetSharedRsiClient(std::make_shared<InstantClient>());
    auto const wrapper = std::make_shared<RSIClientWrapper>(std::make_shared<FrameworkConfig>());
    auto const handler = std::make_shared<CountingHandler>();
    auto const request = std::make_shared<Request>();
    request->type = RequestTypeGetElement;
    request->service = "onlinekvs";
    request->resource = "items";
    request->element = "abc";
    wrapper->start();

    auto const batch = static_cast<std::uint64_t>(state.range(1));
    std::uint64_t sent = 0;
    for (auto _ : state) {
        for (std::uint64_t i = 0; i < batch; ++i) {
            wrapper->sendRequest(request, handler);
        }
        sent += batch;
        handler->waitFor(sent);
    }
    wrapper->stop();
    SetSharedRsiClient(nullptr);
    state.SetItemsProcessed(static_cast<std::int64_t>(sent));
}
BENCHMARK(BM_WrapperRequest)->ArgsProduct({{3, 5}, {1, 64}})->Args({5, 4096})->UseRealTime();

// Answers subscriptions and counts them; events are not part of these figures.
class CountingSubscriber : public CountingHandler, public EventHandler {};

std::shared_ptr<Request> subscriptionRequest(std::uint64_t index) {
    auto const request = std::make_shared<Request>();
    request->type = RequestTypeSubscribeElement;
    request->service = "onlinekvs";
    request->resource = "items";
    request->element = "item" + std::to_string(index);
    return request;
}

void subscribeMany(RSIClientWrapper& wrapper, std::shared_ptr<CountingSubscriber> const& subscriber,
                   std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) {
        wrapper.subscribe(subscriptionRequest(i), subscriber, subscriber);
    }
    subscriber->waitFor(count);
}

std::shared_ptr<RSIClientWrapper> quietWrapper() {
    LogConfig::setSinks({});
    LogConfig::setThreshold(LogLevel::Error);
    SetSharedRsiClient(std::make_shared<InstantClient>());
    auto wrapper = std::make_shared<RSIClientWrapper>(std::make_shared<FrameworkConfig>());
    wrapper->start();
    return wrapper;
}

// Argument 0: live subscriptions held by the wrapper while requests run one at a time.
void BM_WrapperRequestWithSubscriptions(benchmark::State& state) {
    auto const wrapper = quietWrapper();
    auto const subscriber = std::make_shared<CountingSubscriber>();
    subscribeMany(*wrapper, subscriber, static_cast<std::uint64_t>(state.range(0)));
    auto const handler = std::make_shared<CountingHandler>();
    auto const request = subscriptionRequest(0);
    request->type = RequestTypeGetElement;

    std::uint64_t sent = 0;
    for (auto _ : state) {
        wrapper->sendRequest(request, handler);
        handler->waitFor(++sent);
    }
    wrapper->stop();
    SetSharedRsiClient(nullptr);
    state.SetItemsProcessed(static_cast<std::int64_t>(sent));
}
BENCHMARK(BM_WrapperRequestWithSubscriptions)->Arg(0)->Arg(200)->Arg(2000)->UseRealTime();

// Argument 0: subscriptions made per iteration; linear set-up keeps the time per item flat.
void BM_WrapperSubscribeSetUp(benchmark::State& state) {
    auto const count = static_cast<std::uint64_t>(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        auto const wrapper = quietWrapper();
        auto const subscriber = std::make_shared<CountingSubscriber>();
        state.ResumeTiming();
        subscribeMany(*wrapper, subscriber, count);
        state.PauseTiming();
        wrapper->stop();
        state.ResumeTiming();
    }
    SetSharedRsiClient(nullptr);
    state.SetItemsProcessed(static_cast<std::int64_t>(count * state.iterations()));
}
BENCHMARK(BM_WrapperSubscribeSetUp)->Arg(200)->Arg(2000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
