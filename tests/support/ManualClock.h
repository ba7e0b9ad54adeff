// A time source that moves only when a test says so. Installed process-wide while it lives.
//
//   ManualClock clock;
//   clock.advance(10000);   // ten seconds pass at once
#pragma once

#include "common/Clock.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace qel::test {

class ManualClock {
public:
    explicit ManualClock(std::int64_t startMillis = 1'000'000);
    ~ManualClock();
    ManualClock(ManualClock const&) = delete;
    ManualClock& operator=(ManualClock const&) = delete;

    void advance(std::int64_t millis) { m_source->now += millis; }
    std::int64_t now() const { return m_source->now.load(); }

private:
    struct Source : common::system::TimeSource {
        explicit Source(std::int64_t start) : now(start) {}
        std::int64_t nowMillis() const override { return now.load(); }
        std::atomic<std::int64_t> now;
    };
    std::shared_ptr<Source> m_source;
};

}  // namespace qel::test
