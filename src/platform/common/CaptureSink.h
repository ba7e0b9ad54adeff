// Keeps records in memory so that tests can assert on what was logged.
#pragma once

#include "common/LogSink.h"

#include <mutex>
#include <string>
#include <vector>

namespace qel::common::logging {

struct CapturedEntry {
    LogLevel level;
    std::string context;
    std::string message;
};

class CaptureSink : public LogSink {
public:
    void write(LogEntry const& entry) override;

    std::vector<CapturedEntry> entries() const;
    void clear();

    // Number of records at `level` whose message equals `message` exactly.
    std::size_t count(LogLevel level, std::string const& message) const;
    // Number of records at `level` whose message starts with `prefix`.
    std::size_t countPrefix(LogLevel level, std::string const& prefix) const;

private:
    mutable std::mutex m_mutex;
    std::vector<CapturedEntry> m_entries;  // guarded by m_mutex
};

}  // namespace qel::common::logging
