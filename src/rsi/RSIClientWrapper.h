// The RSI client wrapper: a FIFO of jobs, a worker thread that runs them one at a time, the jobs
// waiting for a retry and the registry of live subscriptions.
//
// Contract: every call into the RSI client happens on the worker thread, never under the
// wrapper's lock, so callers on any thread return at once. The worker waits at most 1000 ms for a
// job, then runs at most one job and the retries that have fallen due. Jobs waiting for a retry
// are kept apart, ordered by due time, so a loop costs the work that is due, not the number of
// subscriptions or requests held. `stop` cancels queued work and the job running, cuts the
// client call it is blocked in short (so `stop` never waits out a stalled backend), ends and joins
// the worker, which drops the queue and the subscriptions (unsubscribing them at the client); the
// job cut short reports as cancelled, and no handler is called after `stop` returned. `disconnect` drops the subscriptions, cancels queued
// work and restarts the subscription ids at 1 while the worker goes on. Call `stop` before the
// last reference goes: the destructor stops too, but must not run on the worker thread itself.
//
// For tests, `wakeWorker` and `waitForWorkerLoop` let a caller that moved the clock see one full
// loop (job and retry passes) run afterwards; they queue nothing and change nothing else.
#pragma once

#include "common/CondVar.h"
#include "common/Logger.h"
#include "common/Mutex.h"
#include "common/Semaphore.h"
#include "common/Thread.h"
#include "config/FrameworkConfig.h"
#include "rsi/IRSIClientWrapper.h"
#include "rsi/IRSIJob.h"
#include "rsi/ISharedRsiClient.h"
#include "rsi/RSIRequest.h"
#include "rsi/RSIRetryQueue.h"
#include "rsi/RSISubscription.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>

namespace qel::onlineservices::framework::core {

class RSIClientWrapper : public qel::common::system::Thread, public IRSIClientWrapper {
public:
    static constexpr std::uint32_t JOB_WAIT_MS = 1000;
    // How often `stop` repeats cutting the worker's client call short, for a call that began just
    // after the previous cut.
    static constexpr std::uint32_t CANCEL_REPEAT_MS = 50;

    explicit RSIClientWrapper(std::shared_ptr<FrameworkConfig> const& config);
    ~RSIClientWrapper() override;

    void run() override;

    void sendRequest(std::shared_ptr<qel::rsi::client::Request> const& request,
                     std::weak_ptr<qel::rsi::client::ResponseHandler> const& handler) override;
    unsigned int subscribe(std::shared_ptr<qel::rsi::client::Request> const& request,
                           std::weak_ptr<qel::rsi::client::ResponseHandler> const& responseHandler,
                           std::weak_ptr<qel::rsi::client::EventHandler> const& eventHandler) override;
    void unsubscribe(unsigned int subscriptionId) override;
    void disconnect() override;
    void start() override;
    void stop() override;
    void cancelRequest(std::shared_ptr<qel::rsi::client::Request> const& request) override;

    // "METHOD uri?query   body" on one line.
    static std::string getRequestDescription(qel::rsi::client::Request const& request);
    static std::string getRequestDescription(std::shared_ptr<qel::rsi::client::Request> const& request);

    // The worker's own steps, public so that a test can drive them by hand. processJob and the
    // retries run jobs: call them on the worker, or by hand only while no worker runs (before
    // `start`); the others lock and may be called from any thread.
    void addJob(std::shared_ptr<IRSIJob> const& job);
    void addSubscription(unsigned int id, std::shared_ptr<RSISubscription> const& subscription);
    bool isSubscriptionExisting(unsigned int id) const;
    void processJob();
    // Run the retries of their kind that have fallen due; the others are not looked at.
    void retrySubscriptions();
    void retryRequests();
    void cancelJobs();
    void clearJobs();
    void removeAllSubscriptions();

    std::size_t queuedJobCount() const;
    // Wakes the worker for one more loop; returns a ticket for `waitForWorkerLoop`.
    std::uint64_t wakeWorker();
    // True once a loop that began after `wakeWorker` returned `ticket` has finished.
    bool waitForWorkerLoop(std::uint64_t ticket, std::uint32_t timeoutMs);

private:
    using SubscriptionMap = std::map<unsigned int, std::shared_ptr<RSISubscription>>;

    // True while `job` is the subscription registered under `id` (ids restart after a disconnect).
    bool isRegisteredAs(unsigned int id, IRSIJob const* job) const;
    // Files every retry `job` arms in the retry queue; `subscriptionId` 0 marks a request.
    void watchRetries(std::shared_ptr<IRSIJob> const& job, unsigned int subscriptionId);

    // Marks `job` as the one the worker runs; false (and nothing marked) once stopped.
    bool beginRunning(std::shared_ptr<IRSIJob> const& job);
    void endRunning();
    // Until the worker has ended: cancels the client call it may be blocked in.
    void cancelWorkerCall();
    void retryDue(RSIRetryQueue& retries);
    void retry(RSIRetryQueue& retries, RSIRetryQueue::Entry& entry);
    // After a request ran: drops it when sent; keeps one that ended unsent and without retry.
    void settleRequest(std::shared_ptr<IRSIJob> const& request);
    // The request can no longer be cancelled: it was answered or has ended.
    void forgetRequest(std::shared_ptr<IRSIJob> const& request);
    // Empties the registry under the lock; the caller drops the result outside it, since the last
    // reference of a subscription unsubscribes it at the client.
    SubscriptionMap takeAllSubscriptions();

    std::uint64_t currentWakeTicket();
    void finishLoop(std::uint64_t ticket);

    qel::common::logging::Logger const m_logger;
    // Declared before the containers so that jobs released with the wrapper still reach it.
    std::shared_ptr<qel::rsi::client::ISharedRsiClient> const m_client;
    std::deque<std::shared_ptr<IRSIJob>> m_jobs;            // guarded by m_lock
    SubscriptionMap m_subscriptions;                        // guarded by m_lock
    // The request jobs that may still be sent, by their request (a job owns its request, so the
    // address is unique while the job lives); guarded by m_lock.
    std::map<qel::rsi::client::Request const*, std::weak_ptr<IRSIJob>> m_unsettledRequests;
    // Requests that ended neither sent nor retried (504, cancelled, client gone): kept, never run
    // again, until the wrapper goes. Worker thread only.
    std::list<std::shared_ptr<IRSIJob>> m_endedRequests;
    // Shared with the jobs' retry hooks, which may outlive the wrapper on the client's threads.
    std::shared_ptr<RSIRetryQueue> const m_subscriptionRetries = std::make_shared<RSIRetryQueue>();
    std::shared_ptr<RSIRetryQueue> const m_requestRetries = std::make_shared<RSIRetryQueue>();
    qel::common::system::Semaphore m_jobSignal{0};
    mutable qel::common::system::Mutex m_lock;
    std::atomic<bool> m_stopped{false};  // written under m_lock, read anywhere
    std::shared_ptr<IRSIJob> m_runningJob;  // guarded by m_lock
    std::thread::id m_workerThread;         // guarded by m_lock
    std::atomic<bool> m_workerStarted{false};
    std::atomic<unsigned int> m_nextSubscriptionId{1};

    qel::common::system::Mutex m_loopMutex;
    qel::common::system::CondVar m_loopDone;
    std::uint64_t m_wakeTickets = 0;     // guarded by m_loopMutex
    std::uint64_t m_finishedTicket = 0;  // guarded by m_loopMutex
    bool m_workerFinished = false;       // guarded by m_loopMutex
};

}  // namespace qel::onlineservices::framework::core
