// Writes records to stderr: "<monotonic seconds> <LEVEL> [<context>] (<thread>) <message>".
#pragma once

#include "common/LogSink.h"

#include <mutex>

namespace qel::common::logging {

class ConsoleSink : public LogSink {
public:
    void write(LogEntry const& entry) override;

private:
    std::mutex m_mutex;  // keeps lines whole when threads log at once
};

}  // namespace qel::common::logging
