#include <onlineservices/framework/Conversion.h>

namespace qel::onlineservices::framework::utils {

std::map<core::KVSUpdateStatus, std::string> const Conversion::m_kvsUpdateStatusMap{
    {core::UPDATE_OK, "UPDATE_OK"},
    {core::KVS_SERVICE_UNAVAILABLE, "KVS_SERVICE_UNAVAILABLE"},
    {core::UPDATE_REQUEST_FAILED, "UPDATE_REQUEST_FAILED"},
    {core::KVS_ITEM_NOT_FOUND, "KVS_ITEM_NOT_FOUND"},
    {core::INTERNAL_ERROR, "INTERNAL_ERROR"},
};

std::string Conversion::toString(core::KVSUpdateStatus status) {
    return m_kvsUpdateStatusMap.at(status);
}

}  // namespace qel::onlineservices::framework::utils
