#include "OriginCheck.h"

namespace qel::sim::console {

bool OriginCheck::allows(std::string const& origin, std::string const& host) {
    if (origin.empty()) {
        return true;
    }
    for (char const* scheme : {"http://", "https://"}) {
        if (origin == scheme + host) {
            return true;
        }
    }
    return false;
}

}  // namespace qel::sim::console
