// The framework library's version, as "major.minor.patch".
#pragma once

#include <onlineservices/framework/Export.h>

namespace qel::onlineservices::framework {

QEL_OSF_EXPORT char const* frameworkVersion();

}  // namespace qel::onlineservices::framework
