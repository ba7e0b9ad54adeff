#include "common/Clock.h"

#include "common/NoDestructor.h"

#include <atomic>
#include <chrono>

namespace qel::common::system {
namespace {

class SteadySource : public TimeSource {
public:
    std::int64_t nowMillis() const override {
        auto const now = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    }
};

std::shared_ptr<TimeSource const> g_source;  // accessed only through std::atomic_load/store

std::shared_ptr<TimeSource const> currentSource() {
    // Never destroyed, like the log sinks: threads may read the clock while the process exits.
    static NoDestructor<std::shared_ptr<TimeSource const>> steady(std::make_shared<SteadySource const>());
    auto source = std::atomic_load(&g_source);
    return source ? source : steady.get();
}

}  // namespace

Clock::timeValue Clock::getSystemTimeValue() {
    return currentSource()->nowMillis();
}

std::uint64_t Clock::getElapsedTimeMillis(timeValue since) {
    auto const now = getSystemTimeValue();
    return now > since ? static_cast<std::uint64_t>(now - since) : 0U;
}

void Clock::setTimeSource(std::shared_ptr<TimeSource const> source) {
    std::atomic_store(&g_source, std::move(source));
}

}  // namespace qel::common::system
