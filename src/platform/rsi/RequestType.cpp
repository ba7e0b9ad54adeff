#include "rsi/RequestType.h"

#include "rsi/Request.h"

namespace qel::rsi::client {

char const* methodName(std::uint32_t type) {
    switch (type) {
        case RequestTypeGetResource:
        case RequestTypeGetElement:
        case RequestTypeGetService: return "GET";
        case RequestTypePostElement:
        case RequestTypePostResource: return "POST";
        case RequestTypeSubscribeElement:
        case RequestTypeSubscribeResource:
        case RequestTypeSubscribeRoot: return "SUBSCRIBE";
        default: return "UNKNOWN";
    }
}

std::string uriOf(Request const& request) {
    switch (request.type) {
        case RequestTypeGetResource:
        case RequestTypePostResource:
        case RequestTypeSubscribeResource: return request.service + "/" + request.resource;
        case RequestTypePostElement:
        case RequestTypeSubscribeElement:
        case RequestTypeGetElement: return request.service + "/" + request.resource + "/" + request.element;
        case RequestTypeGetService: return request.service + "/";
        case RequestTypeSubscribeRoot: return "/";
        default: return "<unknown uri>";
    }
}

bool hasBody(std::uint32_t type) {
    return type == RequestTypePostElement || type == RequestTypePostResource;
}

char const* requestTypeName(std::uint32_t type) {
    switch (type) {
        case RequestTypeGetResource: return "GET_RESOURCE";
        case RequestTypePostElement: return "POST_ELEMENT";
        case RequestTypeSubscribeElement: return "SUBSCRIBE_ELEMENT";
        case RequestTypeGetElement: return "GET_ELEMENT";
        case RequestTypePostResource: return "POST_RESOURCE";
        case RequestTypeSubscribeResource: return "SUBSCRIBE_RESOURCE";
        case RequestTypeGetService: return "GET_SERVICE";
        case RequestTypeSubscribeRoot: return "SUBSCRIBE_ROOT";
        default: return "UNKNOWN";
    }
}

}  // namespace qel::rsi::client
