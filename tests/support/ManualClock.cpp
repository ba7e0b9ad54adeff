#include "support/ManualClock.h"

namespace qel::test {

ManualClock::ManualClock(std::int64_t startMillis) : m_source(std::make_shared<Source>(startMillis)) {
    common::system::Clock::setTimeSource(m_source);
}

ManualClock::~ManualClock() {
    common::system::Clock::setTimeSource(nullptr);
}

}  // namespace qel::test
