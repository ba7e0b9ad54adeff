// The member walk that every backend record shares.
//
// Contract: `readObjectMembers` visits the member names of an object value in the order the
// library returns them and calls the reader registered under exactly that name (case matters);
// names without a reader are skipped silently. A null pointer or a value that is not an object
// reads nothing and logs one warning. No type test is made on the members: a reader gets a `Ref`
// and takes whatever its conversion gives.
#pragma once

#include "common/Logger.h"
#include "dataformats/Ref.h"
#include "dataformats/Value.h"

#include <map>
#include <string>
#include <vector>

namespace qel::onlineservices::framework::core::dataitems {

template <typename Record>
using MemberReaders = std::map<std::string, void (*)(Record&, qel::dataformats::data::Ref const&)>;

template <typename Record>
void readObjectMembers(Record& record, qel::dataformats::data::Value const* element,
                       MemberReaders<Record> const& readers, qel::common::logging::Logger const& logger) {
    qel::dataformats::data::Ref const object(element);
    if (object.kind() != qel::dataformats::data::Value::Kind::Object) {
        logger << qel::common::logging::LogLevel::Warning << "Nothing to deserialize: the value is not an object";
        return;
    }
    // Walks the members in place: a record is read for every event, so no list of names is made.
    auto const& members = static_cast<qel::dataformats::data::Object const*>(element)->members();
    for (auto const& [name, value] : members) {
        auto const reader = readers.find(name);
        if (reader != readers.end()) {
            reader->second(record, qel::dataformats::data::Ref(value.get()));
        }
    }
}

}  // namespace qel::onlineservices::framework::core::dataitems
