// The framework library's version, as "major.minor.patch".
#pragma once

#include <onlineservices/framework/Export.h>

namespace qel::onlineservices::framework {

// The version of the library loaded at run time (which may be newer than the headers); callable
// from any thread, at any time.
QEL_OSF_EXPORT char const* frameworkVersion();

}  // namespace qel::onlineservices::framework
