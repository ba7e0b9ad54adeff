#include <onlineservices/framework/PrivacySettingsObject.h>

namespace qel::onlineservices::framework::dataitems {

PrivacySettingsObject::PrivacySettingsObject() : m_logger("onlsvc.framework.privacyobject") {}

PrivacySettingsObject::~PrivacySettingsObject() = default;

void PrivacySettingsObject::deserialize(qel::dataformats::data::Value const* /*element*/) {
    // Deliberately empty: listeners are told that the privacy group changed, not what it holds.
}

}  // namespace qel::onlineservices::framework::dataitems
