// One entry of the backend's service list.
//
// Contract: created empty (every flag false), filled once by `deserialize` from the service entry,
// then handed to listeners as a shared pointer and only read from then on. Every setter also sets
// the field's flag. Getters of texts and lists return copies. The service id is the entry's
// "name"; the access token is the URI of the service's token resource, not a token.
//
// Threads: read it on any thread, for as long as you hold the pointer; never change a record
// you received, since other listeners share it.
#pragma once

#include <onlineservices/framework/Export.h>

#include "common/Logger.h"
#include "dataformats/Value.h"

#include <string>
#include <vector>

namespace qel::onlineservices::framework::dataitems {

class QEL_OSF_EXPORT ServiceObject {
public:
    ServiceObject();
    virtual ~ServiceObject();

    /// \cond INTERNAL
    // Reads the known members of an object value; other members, a non-object or a null pointer
    // leave the record as it is. A list member that is empty or not an array gives an empty list
    // and still sets its flag.
    void deserialize(qel::dataformats::data::Value const* element);
    /// \endcond

    // Each field has a getter, a setter (which also sets the flag) and its flag.

    //@{
    // "accessToken": the URI of the service's token resource (its "uri" member), not a token.
    std::string getAccessToken() const { return m_accessToken; }
    void setAccessToken(std::string const& accessToken);
    bool isAccessTokenSet() const { return m_isAccessTokenSet; }
    //@}

    //@{
    // "activeMonitoringService": whether the backend monitors the service actively.
    bool getActiveMonitoringService() const { return m_activeMonitoringService; }
    void setActiveMonitoringService(bool activeMonitoringService);
    bool isActiveMonitoringServiceSet() const { return m_isActiveMonitoringServiceSet; }
    //@}

    //@{
    // "apnType": the kind of access point the service's traffic uses.
    std::string getApnType() const { return m_apnType; }
    void setApnType(std::string const& apnType);
    bool isApnTypeSet() const { return m_isApnTypeSet; }
    //@}

    //@{
    // "baseUrl": where the service's backend resources live.
    std::string getBaseUrl() const { return m_baseUrl; }
    void setBaseUrl(std::string const& baseUrl);
    bool isBaseUrlSet() const { return m_isBaseUrlSet; }
    //@}

    //@{
    // "blocksDisabling": whether the service keeps others from being disabled.
    bool getBlocksDisabling() const { return m_blocksDisabling; }
    void setBlocksDisabling(bool blocksDisabling);
    bool isBlocksDisablingSet() const { return m_isBlocksDisablingSet; }
    //@}

    //@{
    // "disableReasons": why the backend disables the service; empty when it does not.
    std::vector<std::string> getDisableReasons() const { return m_disableReasons; }
    void setDisableReasons(std::vector<std::string> const& disableReasons);
    bool isDisableReasonsSet() const { return m_isDisableReasonsSet; }
    //@}

    //@{
    // "id": the entry's identifier in the service list.
    std::string getId() const { return m_id; }
    void setId(std::string const& id);
    bool isIdSet() const { return m_isIdSet; }
    //@}

    //@{
    // "privacyGroups": the privacy groups that govern the service.
    std::vector<std::string> getPrivacyGroups() const { return m_privacyGroups; }
    void setPrivacyGroups(std::vector<std::string> const& privacyGroups);
    bool isPrivacyGroupsSet() const { return m_isPrivacyGroupsSet; }
    //@}

    //@{
    // "requires": the services this one needs.
    std::vector<std::string> getRequires() const { return m_requiredServices; }
    void setRequires(std::vector<std::string> const& requiredServices);
    bool isRequiresSet() const { return m_isRequiresSet; }
    //@}

    //@{
    // "name": the service identifier.
    std::string getServiceId() const { return m_serviceId; }
    void setServiceId(std::string const& serviceId);
    bool isServiceIdSet() const { return m_isServiceIdSet; }
    //@}

    //@{
    // "type": the service's types.
    std::vector<std::string> getType() const { return m_type; }
    void setType(std::vector<std::string> const& type);
    bool isTypeSet() const { return m_isTypeSet; }
    //@}

    //@{
    // "uri": the entry's own resource.
    std::string getUri() const { return m_uri; }
    void setUri(std::string const& uri);
    bool isUriSet() const { return m_isUriSet; }
    //@}

private:
    qel::common::logging::Logger m_logger;

    std::string m_accessToken;
    bool m_isAccessTokenSet = false;
    bool m_activeMonitoringService = false;
    bool m_isActiveMonitoringServiceSet = false;
    std::string m_apnType;
    bool m_isApnTypeSet = false;
    std::string m_baseUrl;
    bool m_isBaseUrlSet = false;
    bool m_blocksDisabling = false;
    bool m_isBlocksDisablingSet = false;
    std::vector<std::string> m_disableReasons;
    bool m_isDisableReasonsSet = false;
    std::string m_id;
    bool m_isIdSet = false;
    std::vector<std::string> m_privacyGroups;
    bool m_isPrivacyGroupsSet = false;
    std::vector<std::string> m_requiredServices;
    bool m_isRequiresSet = false;
    std::string m_serviceId;
    bool m_isServiceIdSet = false;
    std::vector<std::string> m_type;
    bool m_isTypeSet = false;
    std::string m_uri;
    bool m_isUriSet = false;
};

}  // namespace qel::onlineservices::framework::dataitems
