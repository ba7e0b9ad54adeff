#include "core/Notifier.h"

#include "common/Clock.h"

#include <exception>

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::common::system::Clock;
using qel::common::system::MutexGuard;

namespace {

std::string loggerName(std::shared_ptr<FrameworkConfig> const& config) {
    return (config ? config->loggerName : FrameworkSubConfig().loggerName) + ".notifier";
}

// How long a waiting job caller sleeps between looks at its answer; the answer wakes it earlier.
constexpr std::uint32_t JOB_ANSWER_POLL_MS = 1000;

}  // namespace

// Why a queue and not the mutex held across the calls: a listener's work may take other locks
// of the framework (the client's disable-reason handling ends in the condition manager's
// listener lock), and the holder of such a lock may notify here (run states). Holding our mutex
// while calling would deadlock those two threads. Why queued notifications do not wait for
// their delivery: the delivering thread may be blocked on the very lock the notifier holds, so
// waiting would bring the same deadlock back. Only a backend job waits, because its caller
// needs the answer; the job item's queue thread holds no framework lock while it asks.
struct Notifier::JobAnswer {
    bool delivered = false;  // guarded by m_mutex
    bool notified = false;
    BackendJobAcknowledgeCode code = BackendJobAcknowledgeCode::UNKNOWN_ERROR;
    std::exception_ptr failure;
};

Notifier::Notifier(std::shared_ptr<FrameworkConfig> const& config) : m_logger(loggerName(config)) {}

template <typename Listener, typename Call>
auto Notifier::fanOut(std::vector<std::weak_ptr<Listener>>& listeners, char const* expiredMessage, Call call) {
    return [this, &listeners, expiredMessage, call = std::move(call)] {
        // Only the delivering thread erases, and additions go to the end: the positions before
        // `count` stay put while the lock is let go for each call.
        std::size_t count = 0;
        {
            MutexGuard guard(m_mutex);
            count = listeners.size();
        }
        for (std::size_t position = 0; position < count;) {
            std::shared_ptr<Listener> listener;
            {
                MutexGuard guard(m_mutex);
                listener = listeners[position].lock();
                if (!listener) {
                    m_logger << LogLevel::Info << expiredMessage;
                    listeners.erase(listeners.begin() + static_cast<std::ptrdiff_t>(position));
                    --count;
                    continue;
                }
            }
            ++position;
            try {
                call(*listener);
            } catch (std::exception const& error) {
                m_logger << LogLevel::Error << "Listener failed: " << error.what();
            } catch (...) {
                m_logger << LogLevel::Error << "Listener failed";
            }
        }
    };
}

template <typename Call>
void Notifier::deliver(Call&& call, bool runState) {
    {
        MutexGuard guard(m_mutex);
        if (m_closed && !runState) {
            return;
        }
        if (m_delivering) {
            // The delivering thread (perhaps this one, inside a listener) takes it in turn.
            m_deliveries.push_back(Queued{std::forward<Call>(call), !runState});
            return;
        }
        // Nobody delivers, so nothing is queued: delivering here keeps the order.
        m_delivering = true;
        m_deliveringThread = std::this_thread::get_id();
    }
    call();
    drain();
}

void Notifier::setListener(std::weak_ptr<IBackendJobListener> const& listener) {
    MutexGuard guard(m_mutex);
    m_backendJobListener = listener;
}

void Notifier::addListener(std::weak_ptr<IServiceDataListener> const& listener) {
    MutexGuard guard(m_mutex);
    m_serviceDataListeners.push_back(listener);
}

void Notifier::addListener(std::weak_ptr<IKVSListener> const& listener) {
    MutexGuard guard(m_mutex);
    m_kvsListeners.push_back(listener);
}

void Notifier::addListener(std::weak_ptr<IRunStateListener> const& listener) {
    MutexGuard guard(m_mutex);
    m_runStateListeners.push_back(listener);
}

void Notifier::notifyServiceData(std::string const& serviceId,
                                 std::shared_ptr<dataitems::ServiceObject> const& service) {
    m_logger << LogLevel::Info << "notifyServiceData";
    deliver(fanOut(m_serviceDataListeners, "Service Data listener expired, removing!",
                   [serviceId, service](IServiceDataListener& listener) {
                       listener.onServiceDataChanged(serviceId, service);
                   }));
}

void Notifier::notifyDisableReason(std::string const& serviceId, std::vector<std::string> const& disableReasons) {
    m_logger << LogLevel::Info << "notifyDisableReasons";
    deliver(fanOut(m_serviceDataListeners, "Disable Reason listener expired, removing!",
                   [serviceId, disableReasons](IServiceDataListener& listener) {
                       listener.onDisableReasonChanged(serviceId, disableReasons);
                   }));
}

void Notifier::notifyBaseURL(std::string const& serviceId, std::string const& baseUrl) {
    m_logger << LogLevel::Info << "notifyBaseUrl";
    deliver(fanOut(m_serviceDataListeners, "Base URL listener expired, removing!",
                   [serviceId, baseUrl](IServiceDataListener& listener) {
                       listener.onBaseURLChanged(serviceId, baseUrl);
                   }));
}

void Notifier::notifyAccessToken(std::string const& serviceId,
                                 std::shared_ptr<dataitems::AccessTokenObject> const& token) {
    m_logger << LogLevel::Info << "notifyAccessToken";
    deliver(fanOut(m_serviceDataListeners, "Access Token listener expired, removing!",
                   // The record is not changed after it was handed here: its text is not copied.
                   [serviceId, token](IServiceDataListener& listener) {
                       static std::string const none;
                       listener.onTokenChanged(serviceId, token ? token->token : none);
                   }));
}

void Notifier::notifyPrivacySettings(std::string const& serviceId,
                                     std::shared_ptr<dataitems::PrivacySettingsObject> const& privacy) {
    m_logger << LogLevel::Info << "notifyPrivacySettings";
    deliver(fanOut(m_serviceDataListeners, "Privacy Setup listener expired, removing!",
                   [serviceId, privacy](IServiceDataListener& listener) {
                       listener.onPrivacySetupChanged(serviceId, privacy);
                   }));
}

void Notifier::notifyNetworkInterface(std::string const& serviceId, std::shared_ptr<ClientData> const& ipv4,
                                      std::shared_ptr<ClientData> const& ipv6) {
    m_logger << LogLevel::Info << "notifyNetworkInterface";
    deliver(fanOut(m_serviceDataListeners, "Networking listener expired, removing!",
                   [serviceId, ipv4, ipv6](IServiceDataListener& listener) {
                       listener.onNetworkInterfaceChanged(serviceId, ipv4, ipv6);
                   }));
}

void Notifier::notifyKVSItem(std::string const& key, std::string const& value) {
    deliver(fanOut(m_kvsListeners, "KVS listener expired, removing!",
                   [key, value](IKVSListener& listener) { listener.onKVSItemChanged(key, value); }));
}

void Notifier::notifyRunState(RunState state) {
    {
        MutexGuard guard(m_mutex);
        m_logger << LogLevel::Info << "notifyRunState ";
    }
    deliver(fanOut(m_runStateListeners, "Runstate listener expired, removing!",
                   [state](IRunStateListener& listener) { listener.onRunStateChanged(state); }),
            true);
}

bool Notifier::notifyBackendJob(std::shared_ptr<dataitems::JobObject> const& job, BackendJobAcknowledgeCode& ack) {
    m_logger << LogLevel::Info << "notifyBackendJob";
    auto const answer = std::make_shared<JobAnswer>();
    bool deliverHere = false;
    {
        MutexGuard guard(m_mutex);
        if (m_closed) {
            m_logger << LogLevel::Warning << "notifyBackendJob after shutdown refused";
            return false;
        }
        if (m_delivering && m_deliveringThread == std::this_thread::get_id()) {
            // Our own delivery would come only after the listener we are inside returned.
            m_logger << LogLevel::Error << "notifyBackendJob from inside a listener refused";
            return false;
        }
        // Kept even when closed: its caller waits for the answer.
        m_deliveries.push_back(Queued{[this, job, answer] { answerJob(job, *answer); }, false});
        deliverHere = !m_delivering;
        if (deliverHere) {
            m_delivering = true;
            m_deliveringThread = std::this_thread::get_id();
        }
    }
    if (deliverHere) {
        drain();
    } else {
        MutexGuard guard(m_mutex);
        while (!answer->delivered) {
            m_jobAnswered.wait(m_mutex, JOB_ANSWER_POLL_MS);
        }
    }
    if (answer->failure) {
        std::rethrow_exception(answer->failure);
    }
    if (answer->notified) {
        ack = answer->code;
    }
    return answer->notified;
}

void Notifier::answerJob(std::shared_ptr<dataitems::JobObject> const& job, JobAnswer& answer) {
    // An expired job listener stays in place: the next `setListener` replaces it.
    std::shared_ptr<IBackendJobListener> listener;
    {
        MutexGuard guard(m_mutex);
        listener = m_backendJobListener.lock();
    }
    bool notified = false;
    auto code = BackendJobAcknowledgeCode::UNKNOWN_ERROR;
    std::exception_ptr failure;
    if (listener) {
        try {
            code = listener->onBackendJobReceived(job);
            notified = true;
        } catch (...) {
            failure = std::current_exception();
        }
    }
    MutexGuard guard(m_mutex);
    answer.notified = notified;
    answer.code = code;
    answer.failure = failure;
    answer.delivered = true;
    m_jobAnswered.broadcast();
}

void Notifier::close(std::uint32_t dropAfterMs) {
    MutexGuard guard(m_mutex);
    if (!m_closed) {
        m_closed = true;
        m_dropFrom = Clock::getSystemTimeValue() + dropAfterMs;
    }
}

void Notifier::drain() {
    std::size_t dropped = 0;
    for (;;) {
        Delivery next;
        {
            MutexGuard guard(m_mutex);
            bool const dropping = m_closed && Clock::getSystemTimeValue() >= m_dropFrom;
            while (dropping && !m_deliveries.empty() && m_deliveries.front().droppable) {
                m_deliveries.pop_front();
                ++dropped;
            }
            if (m_deliveries.empty()) {
                m_delivering = false;
                m_deliveringThread = std::thread::id();
                break;
            }
            next = std::move(m_deliveries.front().call);
            m_deliveries.pop_front();
        }
        next();
    }
    if (dropped > 0) {
        m_logger << LogLevel::Warning << "Shutdown: " << dropped << " queued notifications dropped";
    }
}

}  // namespace qel::onlineservices::framework::core
