// Log levels of the platform logging facility.
//
// Contract: levels run from 1 (most verbose) to 5 (errors). A record below the process-wide
// threshold costs one comparison and formats nothing.
#pragma once

#include <cstdint>

namespace qel::common::logging {

enum class LogLevel : std::uint8_t {
    Trace = 1,    // job processing, retry countdown
    Debug = 2,    // chosen defaults, state-change banner
    Info = 3,     // progress, events
    Warning = 4,  // skips, work-arounds, refused requests
    Error = 5,    // failures, invalid events, missing wiring
};

// "TRACE", "DEBUG", "INFO", "WARN", "ERROR"; "?" for a value outside the range.
char const* toString(LogLevel level);

}  // namespace qel::common::logging
