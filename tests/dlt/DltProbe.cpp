// An application for the DLT daemon test: logs on its own DLT context, then through the
// framework's loggers, then on its own context again.
//   qel-dlt-probe [--own-app ID]
// Without --own-app it registers nothing itself, so the framework chooses the app id.
#include <common/Logger.h>

#include <dlt/dlt.h>

#include <string>

using qel::common::logging::Logger;
using qel::common::logging::LogLevel;

int main(int argc, char** argv) {
    std::string ownApp = argc == 3 && std::string(argv[1]) == "--own-app" ? argv[2] : "";
    DltContext mainContext{};
    if (!ownApp.empty()) {
        dlt_register_app(ownApp.c_str(), "DLT probe");
        dlt_register_context(&mainContext, "MAIN", "the probe's own context");
        dlt_log_string(&mainContext, DLT_LOG_INFO, "before");
    }
    Logger notifier("qel.onlineservices.framework.notifier");
    Logger conditions("qel.onlineservices.framework.ConditionManager");
    notifier << LogLevel::Info << "framework info";
    notifier << LogLevel::Debug << "framework debug";
    notifier << LogLevel::Trace << "framework trace";
    conditions << LogLevel::Warning << "framework warning";
    if (!ownApp.empty()) {
        dlt_log_string(&mainContext, DLT_LOG_INFO, "after");
        dlt_unregister_context(&mainContext);
        dlt_unregister_app_flush_buffered_logs();
    }
    return 0;
}
