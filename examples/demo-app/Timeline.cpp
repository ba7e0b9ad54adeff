#include "Timeline.h"

#include <cstdio>

void Timeline::print(std::string const& what) {
    auto const elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_start).count();
    std::lock_guard<std::mutex> guard(m_mutex);
    std::printf("[%7lld ms] %s\n", static_cast<long long>(elapsed), what.c_str());
    std::fflush(stdout);
}
