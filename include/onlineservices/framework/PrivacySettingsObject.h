// The privacy settings handed to privacy listeners.
//
// Contract: the record only tells a listener that the privacy group of its service changed; it
// does not say what the group now holds. `deserialize` therefore reads nothing, and every field
// reaches the listener empty with its flag false. The fields exist so that the record keeps the
// shape of the other records. Handed to listeners as a shared pointer and only read from then on.
//
// Threads: read it on any thread, for as long as you hold the pointer; never change a record
// you received, since other listeners share it.
#pragma once

#include <onlineservices/framework/Export.h>

#include "common/Logger.h"
#include "dataformats/Value.h"

#include <string>

namespace qel::onlineservices::framework::dataitems {

class QEL_OSF_EXPORT PrivacySettingsObject {
public:
    PrivacySettingsObject();
    virtual ~PrivacySettingsObject();

    /// \cond INTERNAL
    // Reads nothing: a change notice carries no content.
    void deserialize(qel::dataformats::data::Value const* element);
    /// \endcond

    //@{
    // Never filled (see above).
    std::string groupId;
    bool isGroupIdSet = false;
    std::string groupName;
    bool isGroupNameSet = false;
    std::string status;
    bool isStatusSet = false;
    //@}

private:
    qel::common::logging::Logger m_logger;
};

}  // namespace qel::onlineservices::framework::dataitems
