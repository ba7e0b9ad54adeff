// The access token of one service, as the backend's token resource delivers it.
//
// Contract: created empty (every flag false), filled once by `deserialize` from the token element,
// then handed to listeners as a shared pointer and only read from then on. A field whose member
// was absent stays empty with its flag false; a member of the wrong kind gives an empty value.
//
// Threads: read it on any thread, for as long as you hold the pointer; never change a record
// you received, since other listeners share it.
#pragma once

#include <onlineservices/framework/Export.h>

#include "common/Logger.h"
#include "dataformats/Value.h"

#include <string>

namespace qel::onlineservices::framework::dataitems {

class QEL_OSF_EXPORT AccessTokenObject {
public:
    AccessTokenObject();
    virtual ~AccessTokenObject();

    /// \cond INTERNAL
    // Reads the members "id", "name", "token" and "uri" of an object value; other members, a
    // non-object or a null pointer leave the record as it is.
    void deserialize(qel::dataformats::data::Value const* element);
    /// \endcond

    //@{
    // The members read by `deserialize`; each `is...Set` flag tells whether its member was there.
    std::string id;
    bool isIdSet = false;
    std::string name;
    bool isNameSet = false;
    std::string token;
    bool isTokenSet = false;
    std::string uri;
    bool isUriSet = false;
    //@}

private:
    qel::common::logging::Logger m_logger;
};

}  // namespace qel::onlineservices::framework::dataitems
