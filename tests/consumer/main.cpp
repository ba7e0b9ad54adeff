// A first program against the installed framework: prints the library's version, reads one
// backend record and uses the utilities offered to applications, so that the public headers,
// the platform headers they include and every library behind them are found from the install
// prefix alone.
#include <onlineservices/framework/CommonApiConnector.h>
#include <onlineservices/framework/Conversion.h>
#include <onlineservices/framework/RunState.h>
#include <onlineservices/framework/ServiceObject.h>
#include <onlineservices/framework/Version.h>

#include "dataformats/Json.h"

#include <iostream>

using namespace qel::onlineservices::framework;

int main() {
    std::cout << "qel online services framework " << frameworkVersion() << "\n";

    auto entry = qel::dataformats::json::parse(R"({"name":"demoservice","baseUrl":"https://demo.invalid"})");
    dataitems::ServiceObject service;
    service.deserialize(entry.get());
    std::cout << service.getServiceId() << " at " << service.getBaseUrl() << ", run state "
              << static_cast<unsigned>(core::RunState::RESUMED) << "\n";
    utils::CommonApiConnector const connector("local", "", "networking", 0, 500);
    std::cout << "networking " << connector.proxyDescription() << ", update status "
              << utils::Conversion::toString(core::KVS_ITEM_NOT_FOUND) << "\n";
    return service.getBaseUrl() == "https://demo.invalid" ? 0 : 1;
}
