#include <onlineservices/framework/JobObject.h>

#include "dataitems/ObjectMemberReader.h"

namespace qel::onlineservices::framework::dataitems {

using qel::dataformats::data::Ref;
using core::dataitems::MemberReaders;

namespace {

MemberReaders<JobObject> const& readers() {
    static MemberReaders<JobObject> const table{
        {"id", [](JobObject& record, Ref const& member) {
             record.id = member.asString();
             record.isIdSet = true;
         }},
        {"jobIdentifier", [](JobObject& record, Ref const& member) {
             record.jobIdentifier = static_cast<std::int32_t>(member.asInteger());
             record.isJobIdentifierSet = true;
         }},
        {"jobPayload", [](JobObject& record, Ref const& member) {
             record.jobPayload = member.asString();
             record.isJobPayloadSet = true;
         }},
        // The backend names a job by its type: "name" fills both fields.
        {"name", [](JobObject& record, Ref const& member) {
             record.name = member.asString();
             record.isNameSet = true;
             record.jobType = record.name;
             record.isJobTypeSet = true;
         }},
        {"uri", [](JobObject& record, Ref const& member) {
             record.uri = member.asString();
             record.isUriSet = true;
         }},
    };
    return table;
}

}  // namespace

JobObject::JobObject() : m_logger("onlsvc.framework.jobobject") {}

JobObject::~JobObject() = default;

void JobObject::deserialize(qel::dataformats::data::Value const* element) {
    core::dataitems::readObjectMembers(*this, element, readers(), m_logger);
}

}  // namespace qel::onlineservices::framework::dataitems
