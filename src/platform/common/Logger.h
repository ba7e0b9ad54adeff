// Streaming logger of the platform.
//
// Contract:
//   logger << LogLevel::Info << "Opening inifile " << path << ":";
// writes one record when the statement ends (the temporary `LogRecord` flushes in its
// destructor). A level below the process-wide threshold costs one comparison: nothing is
// formatted and no sink is called. A `Logger` is a cheap copyable value (its context name); all
// loggers share the threshold and the sinks configured in `LogConfig`.
#pragma once

#include "common/LogLevel.h"
#include "common/LogSink.h"

#include <atomic>
#include <charconv>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace qel::common::logging {

// Process-wide logging settings. The defaults come from the environment once, at first use:
//   QEL_LOG_LEVEL = 1..5 (default 3)
//   QEL_LOG_SINK  = console (default) | dlt | none
//   QEL_DLT_APP_ID = the DLT app id to register when the application registered none and did not
//                    choose one with `setDltAppId` (default "QOSF")
class LogConfig {
public:
    // The DLT app id (up to 4 characters) to register if the process has registered none when the
    // DLT sink starts, that is before the first record. Ignored when DLT is not the sink.
    static void setDltAppId(std::string appId, std::string description);

    static LogLevel threshold() { return static_cast<LogLevel>(s_threshold.load(std::memory_order_relaxed)); }
    static bool isEnabled(LogLevel level) {
        return static_cast<int>(level) >= s_threshold.load(std::memory_order_relaxed);
    }
    static void setThreshold(LogLevel level);

    // Replaces all sinks. An empty list silences logging without changing the threshold.
    static void setSinks(std::vector<std::shared_ptr<LogSink>> sinks);
    static void addSink(std::shared_ptr<LogSink> const& sink);
    static void removeSink(std::shared_ptr<LogSink> const& sink);

    // Hands one finished record to every sink (outside any lock).
    static void dispatch(LogEntry const& entry);

private:
    static std::atomic<int> s_threshold;  // initialised from QEL_LOG_LEVEL
};

class Logger;

// One record in the making; created by `Logger::operator<<(LogLevel)`.
class LogRecord {
public:
    // Inline so that a disabled record costs the one comparison and no call.
    LogRecord(Logger const& logger, LogLevel level)
        : m_logger(logger), m_level(level), m_enabled(LogConfig::isEnabled(level)) {}
    LogRecord(LogRecord const&) = delete;
    LogRecord& operator=(LogRecord const&) = delete;
    ~LogRecord() {
        if (m_enabled) {
            flush();
        }
    }

    template <typename T>
    LogRecord& operator<<(T const& piece) {
        if (m_enabled) {
            append(piece);
        }
        return *this;
    }

private:
    void flush();
    void append(std::string_view text) { m_text.append(text); }
    void append(std::string const& text) { m_text.append(text); }
    void append(char const* text) { m_text.append(text != nullptr ? text : "(null)"); }
    void append(char c) { m_text.push_back(c); }
    void append(bool value) { m_text.append(value ? "1" : "0"); }
    template <typename T>
    void append(T const& value) {
        if constexpr (std::is_integral_v<T>) {
            char buffer[24];
            auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
            m_text.append(buffer, result.ptr);
        } else if constexpr (std::is_enum_v<T>) {
            append(static_cast<std::underlying_type_t<T>>(value));
        } else {
            std::ostringstream stream;
            stream << value;
            m_text.append(stream.str());
        }
    }

    Logger const& m_logger;
    LogLevel m_level;
    bool m_enabled;
    std::string m_text;
};

class Logger {
public:
    explicit Logger(std::string context = "default") : m_context(std::move(context)) {}

    std::string const& context() const { return m_context; }

    LogRecord operator<<(LogLevel level) const { return LogRecord(*this, level); }

private:
    std::string m_context;
};

// Logs "> name" on construction and "< name" on destruction at trace level.
class ScopedLogger {
public:
    ScopedLogger(Logger const& logger, std::string name);
    ScopedLogger(ScopedLogger const&) = delete;
    ScopedLogger& operator=(ScopedLogger const&) = delete;
    ~ScopedLogger();

private:
    Logger const& m_logger;
    std::string m_name;
};

}  // namespace qel::common::logging
