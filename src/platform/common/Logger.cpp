#include "common/Logger.h"

#include "common/ConsoleSink.h"
#include "common/NoDestructor.h"
#ifdef QEL_HAVE_DLT
#include "common/DltSink.h"
#endif

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

namespace qel::common::logging {
namespace {

// Settings are read before any sink exists, so a bad one is said straight on stderr.
int thresholdFromEnvironment() {
    char const* text = std::getenv("QEL_LOG_LEVEL");
    if (text == nullptr || text[0] == '\0') {
        return static_cast<int>(LogLevel::Info);
    }
    if (text[0] >= '1' && text[0] <= '5' && text[1] == '\0') {
        return text[0] - '0';
    }
    std::fprintf(stderr, "qel logging: QEL_LOG_LEVEL \"%s\" is not 1..5, using 3\n", text);
    return static_cast<int>(LogLevel::Info);
}

struct DltIdentity {
    std::mutex mutex;
    std::string appId;        // guarded by mutex; empty: not chosen by the application
    std::string description;  // guarded by mutex
};

DltIdentity& dltIdentity() {
    static qel::common::system::NoDestructor<DltIdentity> instance;
    return instance.get();
}

using SinkList = std::vector<std::shared_ptr<LogSink>>;

#ifdef QEL_HAVE_DLT
std::shared_ptr<LogSink> dltSink() {
    std::string appId;
    std::string description;
    {
        std::lock_guard<std::mutex> lock(dltIdentity().mutex);
        appId = dltIdentity().appId;
        description = dltIdentity().description;
    }
    if (appId.empty()) {
        char const* fromEnvironment = std::getenv("QEL_DLT_APP_ID");
        appId = fromEnvironment != nullptr && fromEnvironment[0] != '\0' ? fromEnvironment : "QOSF";
        description = "Online services framework";
    }
    return std::make_shared<DltSink>(appId, description);
}
#endif

SinkList sinksFromEnvironment() {
    char const* text = std::getenv("QEL_LOG_SINK");
    if (text == nullptr || text[0] == '\0' || std::strcmp(text, "console") == 0) {
        return {std::make_shared<ConsoleSink>()};
    }
    if (std::strcmp(text, "none") == 0) {
        return {};
    }
#ifdef QEL_HAVE_DLT
    if (std::strcmp(text, "dlt") == 0) {
        return {dltSink()};
    }
    std::fprintf(stderr, "qel logging: unknown QEL_LOG_SINK \"%s\" (console, dlt or none), using console\n", text);
#else
    std::fprintf(stderr, "qel logging: unknown QEL_LOG_SINK \"%s\" (console or none; built without DLT), using console\n",
                 text);
#endif
    return {std::make_shared<ConsoleSink>()};
}

// The sink list is replaced as a whole so that dispatch only copies a pointer under the lock.
struct SinkRegistry {
    std::mutex mutex;
    std::shared_ptr<SinkList const> sinks = std::make_shared<SinkList const>(sinksFromEnvironment());  // guarded by mutex
};

// Never destroyed: a thread that logs while the process exits must still find its sinks.
SinkRegistry& registry() {
    static qel::common::system::NoDestructor<SinkRegistry> instance;
    return instance.get();
}

}  // namespace

std::atomic<int> LogConfig::s_threshold{thresholdFromEnvironment()};

char const* toString(LogLevel level) {
    switch (level) {
        case LogLevel::Trace: return "TRACE";
        case LogLevel::Debug: return "DEBUG";
        case LogLevel::Info: return "INFO";
        case LogLevel::Warning: return "WARN";
        case LogLevel::Error: return "ERROR";
    }
    return "?";
}

void LogConfig::setDltAppId(std::string appId, std::string description) {
    std::lock_guard<std::mutex> lock(dltIdentity().mutex);
    dltIdentity().appId = std::move(appId);
    dltIdentity().description = std::move(description);
}

void LogConfig::setThreshold(LogLevel level) {
    s_threshold.store(static_cast<int>(level), std::memory_order_relaxed);
}

void LogConfig::setSinks(std::vector<std::shared_ptr<LogSink>> sinks) {
    auto list = std::make_shared<SinkList const>(std::move(sinks));
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().sinks = std::move(list);
}

void LogConfig::addSink(std::shared_ptr<LogSink> const& sink) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    auto list = std::make_shared<SinkList>(*registry().sinks);
    list->push_back(sink);
    registry().sinks = std::move(list);
}

void LogConfig::removeSink(std::shared_ptr<LogSink> const& sink) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    auto list = std::make_shared<SinkList>();
    for (auto const& existing : *registry().sinks) {
        if (existing != sink) {
            list->push_back(existing);
        }
    }
    registry().sinks = std::move(list);
}

void LogConfig::dispatch(LogEntry const& entry) {
    std::shared_ptr<SinkList const> sinks;
    {
        std::lock_guard<std::mutex> lock(registry().mutex);
        sinks = registry().sinks;
    }
    for (auto const& sink : *sinks) {
        sink->write(entry);
    }
}

void LogRecord::flush() {
    LogConfig::dispatch(LogEntry{m_level, m_logger.context(), m_text});
}

ScopedLogger::ScopedLogger(Logger const& logger, std::string name) : m_logger(logger), m_name(std::move(name)) {
    m_logger << LogLevel::Trace << "> " << m_name;
}

ScopedLogger::~ScopedLogger() {
    m_logger << LogLevel::Trace << "< " << m_name;
}

}  // namespace qel::common::logging
