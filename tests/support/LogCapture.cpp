#include "support/LogCapture.h"

namespace qel::test {

using common::logging::LogConfig;

LogCapture::LogCapture()
    : m_sink(std::make_shared<common::logging::CaptureSink>()), m_previousThreshold(LogConfig::threshold()) {
    LogConfig::addSink(m_sink);
    LogConfig::setThreshold(LogLevel::Trace);
}

LogCapture::~LogCapture() {
    LogConfig::setThreshold(m_previousThreshold);
    LogConfig::removeSink(m_sink);
}

std::vector<std::string> LogCapture::messages() const {
    std::vector<std::string> result;
    for (auto const& entry : m_sink->entries()) {
        result.push_back(entry.message);
    }
    return result;
}

std::vector<std::string> LogCapture::messages(LogLevel level) const {
    std::vector<std::string> result;
    for (auto const& entry : m_sink->entries()) {
        if (entry.level == level) {
            result.push_back(entry.message);
        }
    }
    return result;
}

}  // namespace qel::test
