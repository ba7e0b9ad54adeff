// What an application tells the framework about itself.
//
// Contract: filled by the application before it asks the factory for a client; the factory
// copies it, so the application may change or drop it afterwards.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qel::onlineservices::framework::core {

// A job the application can execute on behalf of the backend.
struct JobEntry {
    std::string name;           // the job's name, as the backend sends it with each job
    std::string payloadSchema;  // the schema of the job's payload
    std::string serviceId;      // the service the job belongs to
};

// An operation the application offers to the backend.
struct OperationEntry {
    std::string name;           // the operation's name
    std::string payloadFormat;  // the format of the operation's payload
    std::string payloadSchema;  // the schema of the operation's payload
    std::string serviceId;      // the service the operation belongs to
};

// The application's description of itself, handed to the factory.
struct OnlineServiceClientConfig {
    // The application's service identifiers; at least one. The first one names the loggers.
    std::vector<std::string> serviceIds;
    // Carried along unchanged.
    std::vector<std::string> auxiliaryIds;
    // Job entries to post; no element may be null.
    std::vector<std::shared_ptr<JobEntry>> jobEntries;
    // Operation entries to post; no element may be null.
    std::vector<std::shared_ptr<OperationEntry>> operationEntries;
    // Capabilities to post: key `<serviceHostSystem>.<serviceId>.<name>` and value.
    std::vector<std::pair<std::string, std::string>> capabilities;
    // Keys of the key-value-storage items the application owns.
    std::vector<std::string> kvsItems;
    // Path of the framework ini file; empty means "/etc/qel.onlineservices.framework/framework.ini".
    std::string iniFilePath;
};

}  // namespace qel::onlineservices::framework::core
