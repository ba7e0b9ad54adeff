#include <onlineservices/framework/Version.h>

namespace qel::onlineservices::framework {

char const* frameworkVersion() {
    return QEL_OSF_VERSION;
}

}  // namespace qel::onlineservices::framework
