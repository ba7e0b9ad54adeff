// Captures every log record for the lifetime of the object, at every level.
//
//   LogCapture log;
//   ... code under test ...
//   EXPECT_EQ(log.count(LogLevel::Error, "exact line"), 1u);
//
// Restores the previous threshold and removes its sink on destruction.
#pragma once

#include "common/CaptureSink.h"
#include "common/Logger.h"

#include <memory>
#include <string>
#include <vector>

namespace qel::test {

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

    using LogLevel = common::logging::LogLevel;

    std::size_t count(LogLevel level, std::string const& message) const { return m_sink->count(level, message); }
    std::size_t countPrefix(LogLevel level, std::string const& prefix) const {
        return m_sink->countPrefix(level, prefix);
    }
    bool contains(LogLevel level, std::string const& message) const { return count(level, message) > 0; }
    // Messages at `level` (any level when omitted), in order.
    std::vector<std::string> messages() const;
    std::vector<std::string> messages(LogLevel level) const;
    std::vector<common::logging::CapturedEntry> entries() const { return m_sink->entries(); }
    void clear() { m_sink->clear(); }

private:
    std::shared_ptr<common::logging::CaptureSink> m_sink;
    LogLevel m_previousThreshold;
};

}  // namespace qel::test
