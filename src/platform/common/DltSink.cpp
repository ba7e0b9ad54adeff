#include "common/DltSink.h"

#include "common/Logger.h"

#include <dlt/dlt.h>

#include <cctype>
#include <cstdint>
#include <map>
#include <mutex>
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

bool applicationRegistered() {
    char appId[DLT_ID_SIZE + 1] = {};
    return dlt_get_appid(appId) == DLT_RETURN_OK && appId[0] != '\0';
}

}  // namespace

struct DltSink::Impl {
    struct Context {
        std::once_flag registered;
        DltContext dlt{};
    };

    std::mutex mutex;
    // Node-based, so a context keeps its address for libdlt.
    std::map<std::string, Context, std::less<>> contexts;  // guarded by mutex
    bool ownsApp = false;

    DltContext* contextFor(std::string_view name) {
        Context* context = nullptr;
        {
            std::lock_guard<std::mutex> lock(mutex);
            auto found = contexts.find(name);
            context = found != contexts.end() ? &found->second : &contexts[std::string(name)];
        }
        // Registered outside the map's lock; a second writer of the same context waits here.
        std::call_once(context->registered, [&] {
            std::string const description(name);
            dlt_register_context_ll_ts(&context->dlt, DltSink::contextId(name).c_str(), description.c_str(),
                                       toDlt(LogConfig::threshold()), DLT_TRACE_STATUS_OFF);
        });
        return &context->dlt;
    }
};

DltSink::DltSink(std::string appId, std::string appDescription) : m_impl(std::make_unique<Impl>()) {
    if (!applicationRegistered()) {
        m_impl->ownsApp = dlt_register_app(appId.c_str(), appDescription.c_str()) == DLT_RETURN_OK;
    }
}

DltSink::~DltSink() {
    for (auto& entry : m_impl->contexts) {
        dlt_unregister_context(&entry.second.dlt);
    }
    if (m_impl->ownsApp) {
        dlt_unregister_app();
    }
}

void DltSink::write(LogEntry const& entry) {
    std::string text(entry.message);
    dlt_log_string(m_impl->contextFor(entry.context), toDlt(entry.level), text.c_str());
}

std::string DltSink::contextId(std::string_view contextName) {
    auto dot = contextName.rfind('.');
    std::string_view last = dot == std::string_view::npos ? contextName : contextName.substr(dot + 1);
    std::string id;
    for (char c : last) {
        if (id.size() < 2 && std::isalnum(static_cast<unsigned char>(c)) != 0) {
            id.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
        }
    }
    // FNV-1a: the same name gives the same id in every process and every run.
    std::uint32_t hash = 2166136261u;
    for (char c : contextName) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    }
    static char const digits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    while (id.size() < 4) {
        id.push_back(digits[hash % 36]);
        hash /= 36;
    }
    return id;
}

}  // namespace qel::common::logging
