#include "common/DltSink.h"

#include <dlt/dlt.h>

#include <string>

namespace qel::common::logging {
namespace {

DltLogLevelType toDlt(LogLevel level) {
    switch (level) {
        case LogLevel::Trace: return DLT_LOG_VERBOSE;
        case LogLevel::Debug: return DLT_LOG_DEBUG;
        case LogLevel::Info: return DLT_LOG_INFO;
        case LogLevel::Warning: return DLT_LOG_WARN;
        case LogLevel::Error: return DLT_LOG_ERROR;
    }
    return DLT_LOG_INFO;
}

}  // namespace

struct DltSink::Impl {
    DltContext context{};
};

DltSink::DltSink() : m_impl(std::make_unique<Impl>()) {
    dlt_register_app("QOSF", "Online services framework");
    dlt_register_context(&m_impl->context, "FRMW", "Online services framework");
}

DltSink::~DltSink() {
    dlt_unregister_context(&m_impl->context);
    dlt_unregister_app();
}

void DltSink::write(LogEntry const& entry) {
    // DLT carries no context name of ours, so it leads the text.
    std::string text;
    text.reserve(entry.context.size() + entry.message.size() + 3);
    text.append("[").append(entry.context).append("] ").append(entry.message);
    dlt_log_string(&m_impl->context, toDlt(entry.level), text.c_str());
}

}  // namespace qel::common::logging
