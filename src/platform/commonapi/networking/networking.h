// The networking interface's name and version, shared by proxy and service side.
#pragma once

namespace v1::qel::networking::api {

class networking {
public:
    static char const* getInterface() { return "qel.networking.api.networking:v1_0"; }
};

}  // namespace v1::qel::networking::api
