#include "config/ClientEntries.h"

#include <onlineservices/framework/OnlineServiceClientFactory.h>

namespace qel::onlineservices::framework::core {

namespace {

using Factory = OnlineServiceClientFactory;

std::shared_ptr<RSIEntry> makeEntry(std::string description, std::string const& service, std::string const& resource,
                                    bool updateIfExisting, bool alwaysCreate) {
    auto entry = std::make_shared<RSIEntry>();
    entry->description = std::move(description);
    entry->service = service;
    entry->resource = resource;
    entry->updateIfExisting = updateIfExisting;
    entry->alwaysCreate = alwaysCreate;
    return entry;
}

void setEntryKeys(RSIEntry& entry, std::string const& name, std::string const& serviceId) {
    entry.keys["name"] = name;
    entry.keys["serviceHostSystem"] = Factory::DIAGNOSIS_ADDRESS_VOK;
    entry.keys["serviceId"] = serviceId;
}

}  // namespace

std::shared_ptr<RSIEntry> makeKvsEntry(std::string const& key, std::weak_ptr<IURIHandler> const& uriHandler) {
    auto entry = makeEntry("(KVS item) " + key, Factory::SERVICE_KVSITEM, Factory::RESOURCE_KVSITEM, false, true);
    entry->keys["name"] = key;
    entry->uriHandler = uriHandler;
    return entry;
}

std::shared_ptr<RSIEntry> makeJobEntry(JobEntry const& job) {
    auto entry = makeEntry("(Job Entry) " + job.name, Factory::SERVICE_BACKENDJOBS, Factory::RESOURCE_JOBENTRY, false,
                           true);
    setEntryKeys(*entry, job.name, job.serviceId);
    entry->values["protocol"] = "MQTT";
    entry->values["payloadFormat"] = "EXI";
    entry->values["payloadSchema"] = job.payloadSchema;
    return entry;
}

std::shared_ptr<RSIEntry> makeOperationEntry(OperationEntry const& operation) {
    auto entry = makeEntry("(OperationEntry) " + operation.name, Factory::SERVICE_BACKENDJOBS,
                           Factory::RESOURCE_OPERATIONENTRY, false, false);
    setEntryKeys(*entry, operation.name, operation.serviceId);
    // The vehicle state travels over the message broker; every other operation over HTTP.
    entry->values["protocol"] = operation.name == "vehicleState" ? "MQTT" : "HTTP";
    entry->values["payloadFormat"] = operation.payloadFormat;
    entry->values["payloadSchema"] = operation.payloadSchema;
    return entry;
}

std::shared_ptr<RSIEntry> CapabilityKeyParser::makeEntry(std::string const& key, std::string const& value) {
    auto const pieces = Factory::_split(key, '.');
    std::string name;
    if (pieces.size() > 0) {
        m_serviceHostSystem = pieces[0];
    }
    if (pieces.size() > 1) {
        m_serviceId = pieces[1];
    }
    for (std::size_t i = 2; i < pieces.size(); ++i) {
        name += (i > 2 ? "." : "") + pieces[i];
    }
    auto entry = core::makeEntry("(Capability) " + name, Factory::SERVICE_CAPABILITIES,
                                 Factory::RESOURCE_CAPABILITIES, true, true);
    entry->keys["name"] = name;
    entry->keys["serviceHostSystem"] = m_serviceHostSystem;
    entry->keys["serviceId"] = m_serviceId;
    entry->values["value"] = value;
    return entry;
}

}  // namespace qel::onlineservices::framework::core
