// One backend job, as the backend's job resource delivers it.
//
// Contract: created empty (every flag false), filled once by `deserialize` from the job element,
// then handed to listeners as a shared pointer and only read from then on. The backend carries the
// job's type in its "name" member, so `name` and `jobType` always hold the same text and are set
// together. A member of the wrong kind gives an empty value (0 for the identifier).
//
// Threads: read it on any thread, for as long as you hold the pointer; never change a record
// you received, since other listeners share it.
#pragma once

#include <onlineservices/framework/Export.h>

#include "common/Logger.h"
#include "dataformats/Value.h"

#include <cstdint>
#include <string>

namespace qel::onlineservices::framework::dataitems {

class QEL_OSF_EXPORT JobObject {
public:
    JobObject();
    virtual ~JobObject();

    /// \cond INTERNAL
    // Reads the members "id", "jobIdentifier", "jobPayload", "name" and "uri" of an object value;
    // other members, a non-object or a null pointer leave the record as it is.
    void deserialize(qel::dataformats::data::Value const* element);
    /// \endcond

    //@{
    // The members read by `deserialize`; each `is...Set` flag tells whether its member was there.
    std::string id;
    bool isIdSet = false;
    std::int32_t jobIdentifier = 0;
    bool isJobIdentifierSet = false;
    std::string jobPayload;
    bool isJobPayloadSet = false;
    std::string jobType;  // from "name"
    bool isJobTypeSet = false;
    std::string name;
    bool isNameSet = false;
    std::string uri;
    bool isUriSet = false;
    //@}

private:
    qel::common::logging::Logger m_logger;
};

}  // namespace qel::onlineservices::framework::dataitems
