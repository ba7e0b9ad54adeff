// Forwards records to the COVESA DLT daemon (built only when libdlt is available).
#pragma once

#include "common/LogSink.h"

#include <memory>

namespace qel::common::logging {

class DltSink : public LogSink {
public:
    // Registers the application "QOSF" and one context "FRMW" with the daemon.
    DltSink();
    ~DltSink() override;
    DltSink(DltSink const&) = delete;
    DltSink& operator=(DltSink const&) = delete;

    void write(LogEntry const& entry) override;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace qel::common::logging
