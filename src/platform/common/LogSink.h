// Where finished log records go.
//
// Contract: `write` may be called from any thread at once; a sink does its own locking and must
// not log through a `Logger` itself (that would recurse).
#pragma once

#include "common/LogLevel.h"

#include <string_view>

namespace qel::common::logging {

struct LogEntry {
    LogLevel level;
    std::string_view context;  // the logger's context name
    std::string_view message;
};

class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void write(LogEntry const& entry) = 0;
};

}  // namespace qel::common::logging
