#include "ConsoleAssets.h"

namespace qel::sim::console {
namespace {

std::string contentTypeOf(std::string const& name) {
    auto const dot = name.rfind('.');
    std::string const extension = dot == std::string::npos ? std::string() : name.substr(dot + 1);
    if (extension == "html") {
        return "text/html; charset=utf-8";
    }
    if (extension == "js") {
        return "text/javascript; charset=utf-8";
    }
    if (extension == "css") {
        return "text/css; charset=utf-8";
    }
    return "application/octet-stream";
}

}  // namespace

bool ConsoleAssets::find(std::string const& name, ConsoleAsset& asset) {
    for (auto const& [assetName, body] : table()) {
        if (name == assetName) {
            asset = {contentTypeOf(name), body};
            return true;
        }
    }
    return false;
}

}  // namespace qel::sim::console
