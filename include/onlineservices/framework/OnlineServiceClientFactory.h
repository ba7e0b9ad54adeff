// The application's entry point: builds one fully wired client from its description.
//
// Contract: every call builds a fresh, independent client and reads the framework ini file
// again. Nothing is shared between clients and the factory keeps no state. Failures never throw:
// the result is then null and a level-5 log line says why. In every case, success or not, the
// effective configuration is logged as a block of information lines.
//
// Threads: call it on the application's thread. The returned client has already started its
// RSI worker thread; nothing reaches the backend before the application calls `startup`.
#pragma once

#include <onlineservices/framework/Export.h>
#include <onlineservices/framework/IOnlineServiceClient.h>
#include <onlineservices/framework/OnlineServiceClientConfig.h>

#include <memory>
#include <string>
#include <vector>

namespace qel::common::logging {
class Logger;
}

namespace qel::onlineservices::framework {
struct FrameworkConfig;
}

namespace qel::onlineservices::framework::core {

class QEL_OSF_EXPORT OnlineServiceClientFactory {
public:
    // Backend service of capability entries: "capabilitiesmanagement".
    static std::string const SERVICE_CAPABILITIES;
    // Backend resource of capability entries: "capabilities".
    static std::string const RESOURCE_CAPABILITIES;
    // Backend service of job and operation entries: "backendjobs".
    static std::string const SERVICE_BACKENDJOBS;
    // Backend resource of job entries: "jobEntries".
    static std::string const RESOURCE_JOBENTRY;
    // Backend resource of operation entries: "operationEntries".
    static std::string const RESOURCE_OPERATIONENTRY;
    // Backend service of KVS item entries: "onlinekvs".
    static std::string const SERVICE_KVSITEM;
    // Backend resource of KVS item entries: "items".
    static std::string const RESOURCE_KVSITEM;
    // The serviceHostSystem of every job and operation entry: "005F".
    static std::string const DIAGNOSIS_ADDRESS_VOK;

    // Builds a client for `config`: null when `config` has no service id or holds a null job or
    // operation entry. The application owns the result; listeners are registered on it before
    // `startup`.
    static std::shared_ptr<IOnlineServiceClient> createOnlineServiceClient(OnlineServiceClientConfig const& config);

    /// \cond INTERNAL
    // The factory's own helpers, public for its tests; no part of an application's contract.
    // Logs the effective configuration, one information line per row.
    static void printConfig(qel::common::logging::Logger& logger, std::shared_ptr<FrameworkConfig> const& config);
    // "<none>" for an empty list, else the values joined by ", ".
    static std::string serialize(std::vector<std::string> const& values);
    // The pieces between delimiters, empty pieces kept ("a..b" gives "a", "", "b"); a trailing
    // delimiter adds no piece; an empty text gives no piece.
    static std::vector<std::string> _split(std::string const& text, char delimiter);
    /// \endcond

    // Only static operations: nothing to construct.
    OnlineServiceClientFactory() = delete;
};

}  // namespace qel::onlineservices::framework::core
