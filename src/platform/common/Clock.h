// Monotonic millisecond clock behind one replaceable time source.
//
// Contract: all framework timing (retry delays) reads `Clock`; tests install a manual source and
// move time by hand instead of sleeping. Blocking waits (`CondVar`, `Semaphore`) are not affected.
#pragma once

#include <cstdint>
#include <memory>

namespace qel::common::system {

class TimeSource {
public:
    virtual ~TimeSource() = default;
    // Milliseconds since an arbitrary, fixed origin; never decreasing.
    virtual std::int64_t nowMillis() const = 0;
};

class Clock {
public:
    using timeValue = std::int64_t;  // milliseconds on the source's time line

    static timeValue getSystemTimeValue();
    // Milliseconds from `since` until now; 0 if `since` lies in the future.
    static std::uint64_t getElapsedTimeMillis(timeValue since);

    // Installs `source` process-wide; null restores the steady clock.
    static void setTimeSource(std::shared_ptr<TimeSource const> source);
};

}  // namespace qel::common::system
