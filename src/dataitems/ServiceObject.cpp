#include <onlineservices/framework/ServiceObject.h>

#include "dataitems/ArrayVisitor.h"
#include "dataitems/ObjectMemberReader.h"

namespace qel::onlineservices::framework::dataitems {

using qel::dataformats::data::Ref;
using core::dataitems::MemberReaders;

namespace {

// An empty or non-array member gives an empty list.
std::vector<std::string> readStrings(Ref const& member) {
    core::dataitems::ArrayVisitor visitor;
    if (member.get() != nullptr) {
        member.get()->accept(visitor);
    }
    return visitor.getVector();
}

MemberReaders<ServiceObject> const& readers() {
    static MemberReaders<ServiceObject> const table{
        {"accessToken",
         [](ServiceObject& record, Ref const& member) { record.setAccessToken(member("uri").asString()); }},
        {"activeMonitoringService",
         [](ServiceObject& record, Ref const& member) { record.setActiveMonitoringService(member.asBoolean()); }},
        {"apnType", [](ServiceObject& record, Ref const& member) { record.setApnType(member.asString()); }},
        {"baseUrl", [](ServiceObject& record, Ref const& member) { record.setBaseUrl(member.asString()); }},
        {"blocksDisabling",
         [](ServiceObject& record, Ref const& member) { record.setBlocksDisabling(member.asBoolean()); }},
        {"disableReasons",
         [](ServiceObject& record, Ref const& member) { record.setDisableReasons(readStrings(member)); }},
        {"id", [](ServiceObject& record, Ref const& member) { record.setId(member.asString()); }},
        {"privacyGroups",
         [](ServiceObject& record, Ref const& member) { record.setPrivacyGroups(readStrings(member)); }},
        {"requires", [](ServiceObject& record, Ref const& member) { record.setRequires(readStrings(member)); }},
        // The backend names a service entry by its service id.
        {"name", [](ServiceObject& record, Ref const& member) { record.setServiceId(member.asString()); }},
        {"type", [](ServiceObject& record, Ref const& member) { record.setType(readStrings(member)); }},
        {"uri", [](ServiceObject& record, Ref const& member) { record.setUri(member.asString()); }},
    };
    return table;
}

}  // namespace

ServiceObject::ServiceObject() : m_logger("onlsvc.framework.serviceobject") {}

ServiceObject::~ServiceObject() = default;

void ServiceObject::deserialize(qel::dataformats::data::Value const* element) {
    core::dataitems::readObjectMembers(*this, element, readers(), m_logger);
}

void ServiceObject::setAccessToken(std::string const& accessToken) {
    m_accessToken = accessToken;
    m_isAccessTokenSet = true;
}

void ServiceObject::setActiveMonitoringService(bool activeMonitoringService) {
    m_activeMonitoringService = activeMonitoringService;
    m_isActiveMonitoringServiceSet = true;
}

void ServiceObject::setApnType(std::string const& apnType) {
    m_apnType = apnType;
    m_isApnTypeSet = true;
}

void ServiceObject::setBaseUrl(std::string const& baseUrl) {
    m_baseUrl = baseUrl;
    m_isBaseUrlSet = true;
}

void ServiceObject::setBlocksDisabling(bool blocksDisabling) {
    m_blocksDisabling = blocksDisabling;
    m_isBlocksDisablingSet = true;
}

void ServiceObject::setDisableReasons(std::vector<std::string> const& disableReasons) {
    m_disableReasons = disableReasons;
    m_isDisableReasonsSet = true;
}

void ServiceObject::setId(std::string const& id) {
    m_id = id;
    m_isIdSet = true;
}

void ServiceObject::setPrivacyGroups(std::vector<std::string> const& privacyGroups) {
    m_privacyGroups = privacyGroups;
    m_isPrivacyGroupsSet = true;
}

void ServiceObject::setRequires(std::vector<std::string> const& requiredServices) {
    m_requiredServices = requiredServices;
    m_isRequiresSet = true;
}

void ServiceObject::setServiceId(std::string const& serviceId) {
    m_serviceId = serviceId;
    m_isServiceIdSet = true;
}

void ServiceObject::setType(std::vector<std::string> const& type) {
    m_type = type;
    m_isTypeSet = true;
}

void ServiceObject::setUri(std::string const& uri) {
    m_uri = uri;
    m_isUriSet = true;
}

}  // namespace qel::onlineservices::framework::dataitems
