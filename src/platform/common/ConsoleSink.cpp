#include "common/ConsoleSink.h"

#include <pthread.h>

#include <chrono>
#include <cstdio>

namespace qel::common::logging {

void ConsoleSink::write(LogEntry const& entry) {
    auto const now = std::chrono::steady_clock::now().time_since_epoch();
    auto const millis = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    char thread[16] = "?";
    pthread_getname_np(pthread_self(), thread, sizeof(thread));

    std::lock_guard<std::mutex> lock(m_mutex);
    std::fprintf(stderr, "%lld.%03lld %-5s [%.*s] (%s) %.*s\n", static_cast<long long>(millis / 1000),
                 static_cast<long long>(millis % 1000), toString(entry.level), static_cast<int>(entry.context.size()),
                 entry.context.data(), thread, static_cast<int>(entry.message.size()), entry.message.data());
}

}  // namespace qel::common::logging
