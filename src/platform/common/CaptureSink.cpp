#include "common/CaptureSink.h"

#include <algorithm>

namespace qel::common::logging {

void CaptureSink::write(LogEntry const& entry) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.push_back(CapturedEntry{entry.level, std::string(entry.context), std::string(entry.message)});
}

std::vector<CapturedEntry> CaptureSink::entries() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries;
}

void CaptureSink::clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.clear();
}

std::size_t CaptureSink::count(LogLevel level, std::string const& message) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<std::size_t>(std::count_if(m_entries.begin(), m_entries.end(), [&](CapturedEntry const& e) {
        return e.level == level && e.message == message;
    }));
}

std::size_t CaptureSink::countPrefix(LogLevel level, std::string const& prefix) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<std::size_t>(std::count_if(m_entries.begin(), m_entries.end(), [&](CapturedEntry const& e) {
        return e.level == level && e.message.compare(0, prefix.size(), prefix) == 0;
    }));
}

}  // namespace qel::common::logging
