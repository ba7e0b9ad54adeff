#include <onlineservices/framework/AccessTokenObject.h>

#include "dataitems/ObjectMemberReader.h"

namespace qel::onlineservices::framework::dataitems {

using qel::dataformats::data::Ref;
using core::dataitems::MemberReaders;

namespace {

MemberReaders<AccessTokenObject> const& readers() {
    static MemberReaders<AccessTokenObject> const table{
        {"id", [](AccessTokenObject& record, Ref const& member) {
             record.id = member.asString();
             record.isIdSet = true;
         }},
        {"name", [](AccessTokenObject& record, Ref const& member) {
             record.name = member.asString();
             record.isNameSet = true;
         }},
        {"token", [](AccessTokenObject& record, Ref const& member) {
             record.token = member.asString();
             record.isTokenSet = true;
         }},
        {"uri", [](AccessTokenObject& record, Ref const& member) {
             record.uri = member.asString();
             record.isUriSet = true;
         }},
    };
    return table;
}

}  // namespace

AccessTokenObject::AccessTokenObject() : m_logger("accessTokenObject") {}

AccessTokenObject::~AccessTokenObject() = default;

void AccessTokenObject::deserialize(qel::dataformats::data::Value const* element) {
    core::dataitems::readObjectMembers(*this, element, readers(), m_logger);
}

}  // namespace qel::onlineservices::framework::dataitems
