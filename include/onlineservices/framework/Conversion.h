// Names of the framework's enumerations, for log and diagnostic output.
//
// Contract: `toString` looks the value up with `std::map::at`, so a value outside the table throws
// `std::out_of_range` ("map::at"); there is no fallback name. Callers pass only the named values
// of the enumeration, or catch the exception where they could hold anything else. The table is
// built at library load and only read afterwards, so any thread may call.
#pragma once

#include <onlineservices/framework/Export.h>
#include <onlineservices/framework/KVSUpdateStatus.h>

#include <map>
#include <string>

namespace qel::onlineservices::framework::utils {

// Names of enumeration values; see the file's contract.
class QEL_OSF_EXPORT Conversion {
public:
    // The status's name, for example "KVS_ITEM_NOT_FOUND" for 3; throws std::out_of_range for a
    // value outside the enumeration.
    static std::string toString(core::KVSUpdateStatus status);

    // Every status with its name, built at library load.
    static std::map<core::KVSUpdateStatus, std::string> const m_kvsUpdateStatusMap;
};

}  // namespace qel::onlineservices::framework::utils
