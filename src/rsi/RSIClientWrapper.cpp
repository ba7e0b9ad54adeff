#include "rsi/RSIClientWrapper.h"

#include "dataformats/Json.h"
#include "rsi/RSIUnSubRequest.h"
#include "rsi/SharedRsiClient.h"

#include <algorithm>
#include <vector>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogConfig;
using qel::common::logging::LogLevel;
using qel::common::system::MutexGuard;
using qel::rsi::client::Request;

namespace {

std::string loggerNameOf(std::shared_ptr<FrameworkConfig> const& config) {
    return (config ? config->loggerName : std::string("framework")) + ".RSIClientWrapper";
}

}  // namespace

RSIClientWrapper::RSIClientWrapper(std::shared_ptr<FrameworkConfig> const& config)
    : Thread(loggerNameOf(config)),
      m_logger(loggerNameOf(config)),
      m_client(qel::rsi::client::GetSharedRsiClient()) {
    m_logger << LogLevel::Info << "created";
    if (!m_client) {
        m_logger << LogLevel::Error << "No RSI client available, every request will fail";
    }
}

RSIClientWrapper::~RSIClientWrapper() {
    m_logger << LogLevel::Info << "~RSIClientWrapper";
    stop();
}

void RSIClientWrapper::start() {
    m_logger << LogLevel::Info << "start";
    if (Thread::start()) {
        m_workerStarted.store(true);
    }
}

void RSIClientWrapper::stop() {
    if (m_stopped.load()) {
        return;
    }
    m_logger << LogLevel::Info << "stop";
    std::shared_ptr<IRSIJob> running;
    {
        MutexGuard guard(m_lock);
        cancelJobs();
        m_stopped.store(true);  // under the lock, so that no job is queued behind the final clear
        running = m_runningJob;
    }
    m_jobSignal.up();
    if (running) {
        running->requestCancel();
    }
    cancelWorkerCall();
    join();
}

void RSIClientWrapper::cancelWorkerCall() {
    if (!m_workerStarted.load() || !m_client) {
        return;
    }
    for (;;) {
        std::thread::id worker;
        {
            MutexGuard guard(m_lock);
            worker = m_workerThread;
        }
        if (worker == std::this_thread::get_id()) {
            return;  // stopped from a job's own callback: the worker ends after it
        }
        if (worker != std::thread::id()) {
            m_client->cancelCall(worker);
        }
        MutexGuard guard(m_loopMutex);
        if (m_loopDone.wait(m_loopMutex, CANCEL_REPEAT_MS, [this] { return m_workerFinished; })) {
            return;
        }
    }
}

void RSIClientWrapper::disconnect() {
    m_logger << LogLevel::Info << "disconnecting";
    SubscriptionMap dropped;
    {
        MutexGuard guard(m_lock);
        cancelJobs();
        dropped = takeAllSubscriptions();
        m_nextSubscriptionId.store(1);
    }
}

void RSIClientWrapper::run() {
    m_logger << LogLevel::Info << "Thread started";
    {
        MutexGuard guard(m_lock);
        m_workerThread = std::this_thread::get_id();
    }
    while (!m_stopped.load()) {
        m_jobSignal.down(JOB_WAIT_MS);
        if (m_stopped.load()) {
            break;
        }
        std::uint64_t const ticket = currentWakeTicket();
        processJob();
        retrySubscriptions();
        retryRequests();
        finishLoop(ticket);
    }
    clearJobs();
    removeAllSubscriptions();
    m_logger << LogLevel::Info << "Thread finished";
    {
        MutexGuard guard(m_loopMutex);
        m_workerFinished = true;
    }
    m_loopDone.broadcast();
}

void RSIClientWrapper::sendRequest(std::shared_ptr<Request> const& request,
                                   std::weak_ptr<qel::rsi::client::ResponseHandler> const& handler) {
    if (!request) {
        m_logger << LogLevel::Error << "sendRequest without a request";
        return;
    }
    if (m_stopped.load()) {
        m_logger << LogLevel::Warning << "sendRequest skipped because of shutdown: " << getRequestDescription(*request);
        return;
    }
    if (LogConfig::isEnabled(LogLevel::Info)) {
        m_logger << LogLevel::Info << "sendRequest " << getRequestDescription(*request);
    }
    auto const job = std::make_shared<RSIRequest>(request, m_client, handler, m_logger);
    watchRetries(job, 0);
    {
        MutexGuard guard(m_lock);
        m_unsettledRequests[request.get()] = job;
    }
    addJob(job);
}

unsigned int RSIClientWrapper::subscribe(std::shared_ptr<Request> const& request,
                                         std::weak_ptr<qel::rsi::client::ResponseHandler> const& responseHandler,
                                         std::weak_ptr<qel::rsi::client::EventHandler> const& eventHandler) {
    if (!request) {
        m_logger << LogLevel::Error << "subscribe without a request";
        return 0;
    }
    if (m_stopped.load()) {
        m_logger << LogLevel::Warning << "subscribe skipped because of shutdown: " << getRequestDescription(*request);
        return 0;
    }
    if (LogConfig::isEnabled(LogLevel::Info)) {
        m_logger << LogLevel::Info << "subscribe " << getRequestDescription(*request);
    }
    unsigned int const id = m_nextSubscriptionId.fetch_add(1);
    auto const subscription =
        std::make_shared<RSISubscription>(request, m_client, responseHandler, eventHandler, id, m_logger);
    watchRetries(subscription, id);
    addJob(subscription);
    addSubscription(id, subscription);
    return id;
}

void RSIClientWrapper::unsubscribe(unsigned int subscriptionId) {
    MutexGuard guard(m_lock);
    if (m_stopped.load()) {
        return;
    }
    m_logger << LogLevel::Trace << "unsubscribe";
    if (!isSubscriptionExisting(subscriptionId)) {
        m_logger << LogLevel::Warning << "no subscription found <wrapper> " << subscriptionId;
        return;
    }
    auto const& subscription = m_subscriptions.at(subscriptionId);
    m_logger << LogLevel::Info << "Removing subscription: <wrapper> " << subscriptionId << " <rsiClient> "
             << (subscription ? subscription->subIdClient() : 0U);
    // The job holds the last reference, so the client is unsubscribed on the worker thread.
    addJob(std::make_shared<RSIUnSubRequest>(subscription, m_logger));
    m_subscriptions.erase(subscriptionId);
}

void RSIClientWrapper::cancelRequest(std::shared_ptr<Request> const& request) {
    std::shared_ptr<IRSIJob> job;
    {
        MutexGuard guard(m_lock);
        auto const found = m_unsettledRequests.find(request.get());
        if (found != m_unsettledRequests.end()) {
            job = found->second.lock();
            m_unsettledRequests.erase(found);
        }
    }
    if (!job) {
        return;  // answered or ended already
    }
    if (LogConfig::isEnabled(LogLevel::Info)) {
        m_logger << LogLevel::Info << "cancelRequest " << getRequestDescription(*request);
    }
    job->requestCancel();
}

void RSIClientWrapper::addJob(std::shared_ptr<IRSIJob> const& job) {
    m_logger << LogLevel::Trace << "addJob";
    {
        MutexGuard guard(m_lock);
        if (m_stopped.load()) {
            m_logger << LogLevel::Warning << "addJob skipped, already stopped";
            return;
        }
        m_jobs.push_back(job);
    }
    m_jobSignal.up();
}

void RSIClientWrapper::addSubscription(unsigned int id, std::shared_ptr<RSISubscription> const& subscription) {
    MutexGuard guard(m_lock);
    m_subscriptions[id] = subscription;
}

bool RSIClientWrapper::isSubscriptionExisting(unsigned int id) const {
    MutexGuard guard(m_lock);
    return m_subscriptions.count(id) > 0;
}

bool RSIClientWrapper::isRegisteredAs(unsigned int id, IRSIJob const* job) const {
    MutexGuard guard(m_lock);
    auto const it = m_subscriptions.find(id);
    return it != m_subscriptions.end() && static_cast<IRSIJob const*>(it->second.get()) == job;
}

void RSIClientWrapper::watchRetries(std::shared_ptr<IRSIJob> const& job, unsigned int subscriptionId) {
    std::weak_ptr<RSIRetryQueue> const queue = subscriptionId == 0 ? m_requestRetries : m_subscriptionRetries;
    std::weak_ptr<IRSIJob> const weakJob = job;
    job->setRetryArmedHook([queue, weakJob, subscriptionId](qel::common::system::Clock::timeValue due) {
        if (auto const retries = queue.lock()) {
            // A request has no other owner while it waits; a subscription has the registry.
            retries->arm({subscriptionId == 0 ? weakJob.lock() : nullptr, weakJob, subscriptionId, due});
        }
    });
}

void RSIClientWrapper::processJob() {
    m_logger << LogLevel::Trace << "process";
    std::shared_ptr<IRSIJob> job;
    {
        MutexGuard guard(m_lock);
        if (m_jobs.empty() || m_stopped.load()) {
            return;
        }
        job = std::move(m_jobs.front());
        m_jobs.pop_front();
        m_runningJob = job;
    }
    if (!job) {
        m_logger << LogLevel::Error << "RsiClientWrapper: RSI job is invalid";
        return;
    }
    job->process();
    endRunning();
    if (std::dynamic_pointer_cast<RSIRequest>(job)) {
        settleRequest(job);
    }
}

bool RSIClientWrapper::beginRunning(std::shared_ptr<IRSIJob> const& job) {
    MutexGuard guard(m_lock);
    if (m_stopped.load()) {
        return false;
    }
    m_runningJob = job;
    return true;
}

void RSIClientWrapper::endRunning() {
    MutexGuard guard(m_lock);
    m_runningJob.reset();
}

void RSIClientWrapper::retrySubscriptions() {
    retryDue(*m_subscriptionRetries);
}

void RSIClientWrapper::retryRequests() {
    retryDue(*m_requestRetries);
}

void RSIClientWrapper::retryDue(RSIRetryQueue& retries) {
    auto due = retries.takeDue(qel::common::system::Clock::getSystemTimeValue());
    for (auto& entry : due) {
        retry(retries, entry);
    }
}

void RSIClientWrapper::retry(RSIRetryQueue& retries, RSIRetryQueue::Entry& entry) {
    auto const job = entry.job.lock();
    bool const isRequest = entry.subscriptionId == 0;
    if (!job || (!isRequest && !isRegisteredAs(entry.subscriptionId, job.get()))) {
        return;  // unsubscribed or dropped meanwhile
    }
    if (!beginRunning(job)) {
        return;  // stopping: no new call to the client
    }
    bool const mayStay = job->canBeRetriedNow();
    endRunning();
    if (!mayStay) {
        if (isRequest) {
            m_logger << LogLevel::Trace << "Deleting RSI request";
            forgetRequest(job);
        } else {
            unsubscribe(entry.subscriptionId);
        }
        return;
    }
    if (job->isRetryActive() && job->retryDueTime() == entry.due) {
        retries.arm(std::move(entry));  // not due yet by the job's own reading of the clock
    } else if (isRequest) {
        settleRequest(job);
    }
}

void RSIClientWrapper::settleRequest(std::shared_ptr<IRSIJob> const& request) {
    auto const sent = std::static_pointer_cast<RSIRequest>(request)->isSent();
    if (sent) {
        m_logger << LogLevel::Trace << "Deleting RSI request";
        forgetRequest(request);
    } else if (!request->isRetryActive()) {
        m_endedRequests.push_back(request);
        forgetRequest(request);
    }
}

void RSIClientWrapper::forgetRequest(std::shared_ptr<IRSIJob> const& request) {
    MutexGuard guard(m_lock);
    auto const found = m_unsettledRequests.find(std::static_pointer_cast<RSIRequest>(request)->request().get());
    // A request object sent again belongs to its newer job.
    if (found != m_unsettledRequests.end() && found->second.lock() == request) {
        m_unsettledRequests.erase(found);
    }
}

void RSIClientWrapper::cancelJobs() {
    MutexGuard guard(m_lock);
    for (auto const& job : m_jobs) {
        if (job) {
            job->requestCancel();
        }
    }
}

void RSIClientWrapper::clearJobs() {
    std::deque<std::shared_ptr<IRSIJob>> dropped;
    MutexGuard guard(m_lock);
    dropped.swap(m_jobs);
}

void RSIClientWrapper::removeAllSubscriptions() {
    SubscriptionMap const dropped = takeAllSubscriptions();
}

RSIClientWrapper::SubscriptionMap RSIClientWrapper::takeAllSubscriptions() {
    MutexGuard guard(m_lock);
    m_logger << LogLevel::Info << "Removing all subscriptions";
    for (auto const& [id, subscription] : m_subscriptions) {
        m_logger << LogLevel::Info << "Removing subscription: <wrapper> " << id << " <rsiClient> "
                 << (subscription ? subscription->subIdClient() : 0U);
    }
    SubscriptionMap taken;
    taken.swap(m_subscriptions);
    return taken;
}

std::string RSIClientWrapper::getRequestDescription(std::shared_ptr<Request> const& request) {
    return request ? getRequestDescription(*request) : std::string();
}

std::string RSIClientWrapper::getRequestDescription(Request const& request) {
    std::string description = qel::rsi::client::methodName(request.type);
    description += ' ';
    description += qel::rsi::client::uriOf(request);
    char separator = '?';
    for (auto const& [key, value] : request.queryParameters) {
        description += separator;
        description += key;
        description += '=';
        description += value;
        separator = '&';
    }
    description += "   ";
    if (qel::rsi::client::hasBody(request.type)) {
        description += qel::dataformats::json::jsonStringFromValue(request.data.get());
    }
    return description;
}

std::size_t RSIClientWrapper::queuedJobCount() const {
    MutexGuard guard(m_lock);
    return m_jobs.size();
}

std::uint64_t RSIClientWrapper::wakeWorker() {
    std::uint64_t ticket = 0;
    {
        MutexGuard guard(m_loopMutex);
        ticket = ++m_wakeTickets;
    }
    m_jobSignal.up();
    return ticket;
}

bool RSIClientWrapper::waitForWorkerLoop(std::uint64_t ticket, std::uint32_t timeoutMs) {
    MutexGuard guard(m_loopMutex);
    return m_loopDone.wait(m_loopMutex, timeoutMs, [this, ticket] { return m_finishedTicket >= ticket; });
}

std::uint64_t RSIClientWrapper::currentWakeTicket() {
    MutexGuard guard(m_loopMutex);
    return m_wakeTickets;
}

void RSIClientWrapper::finishLoop(std::uint64_t ticket) {
    {
        MutexGuard guard(m_loopMutex);
        m_finishedTicket = std::max(m_finishedTicket, ticket);
    }
    m_loopDone.broadcast();
}

}  // namespace qel::onlineservices::framework::core
