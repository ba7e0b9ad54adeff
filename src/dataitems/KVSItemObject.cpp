#include <onlineservices/framework/KVSItemObject.h>

#include "dataitems/ObjectMemberReader.h"

namespace qel::onlineservices::framework::dataitems {

using qel::dataformats::data::Ref;
using core::dataitems::MemberReaders;

namespace {

MemberReaders<KVSItemObject> const& readers() {
    static MemberReaders<KVSItemObject> const table{
        {"id", [](KVSItemObject& record, Ref const& member) {
             record.id = member.asString();
             record.isIdSet = true;
         }},
        {"name", [](KVSItemObject& record, Ref const& member) {
             record.name = member.asString();
             record.isNameSet = true;
         }},
        {"uri", [](KVSItemObject& record, Ref const& member) {
             record.uri = member.asString();
             record.isUriSet = true;
         }},
        {"owner", [](KVSItemObject& record, Ref const& member) {
             record.owner = member.asString();
             record.isOwnerSet = true;
         }},
        {"value", [](KVSItemObject& record, Ref const& member) {
             record.value = member.asString();
             record.isValueSet = true;
         }},
        {"upToDate", [](KVSItemObject& record, Ref const& member) {
             record.upToDate = member.asBoolean();
             record.isUpToDateSet = true;
         }},
    };
    return table;
}

}  // namespace

KVSItemObject::KVSItemObject() : m_logger("itemObject") {}

KVSItemObject::~KVSItemObject() = default;

void KVSItemObject::deserialize(qel::dataformats::data::Value const* element) {
    core::dataitems::readObjectMembers(*this, element, readers(), m_logger);
}

}  // namespace qel::onlineservices::framework::dataitems
