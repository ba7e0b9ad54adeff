// Forwards records to the DLT daemon (built only when libdlt is available).
//
// The application owns its DLT identity: when it registered an app id before the sink's first
// record, every record goes out under that id. Otherwise the sink registers the app id given to
// it (from QEL_DLT_APP_ID or `LogConfig::setDltAppId`, default "QOSF"). Each logger context gets
// its own DLT context, registered on its first record, with the level of the framework's threshold.
#pragma once

#include "common/LogSink.h"

#include <memory>
#include <string>
#include <string_view>

namespace qel::common::logging {

class DltSink : public LogSink {
public:
    DltSink(std::string appId, std::string appDescription);
    ~DltSink() override;
    DltSink(DltSink const&) = delete;
    DltSink& operator=(DltSink const&) = delete;

    void write(LogEntry const& entry) override;

    // The stable 4-character DLT context id of a logger context: the first two letters or digits
    // of its last dotted part, upper case, then two characters of a hash of the whole name.
    static std::string contextId(std::string_view contextName);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace qel::common::logging
