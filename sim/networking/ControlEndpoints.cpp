#include "ControlEndpoints.h"

#include "NetworkingSimulator.h"
#include "common/Logger.h"

#include <nlohmann/json.hpp>

namespace qel::sim::networking {
namespace {

using common::logging::LogLevel;
using Json = nlohmann::json;

ControlAnswer answer(int status, Json const& data) {
    return {status, data.dump(-1, ' ', false, Json::error_handler_t::replace)};
}

ControlAnswer ok() {
    return answer(200, {{"status", "ok"}});
}

ControlAnswer badRequest(std::string const& why) {
    return answer(400, {{"error", why}});
}

std::uint32_t countOf(Json const& body) {
    auto const count = body.find("count");
    return count != body.end() && count->is_number_unsigned() ? count->get<std::uint32_t>() : 0;
}

// A call status by name ("REMOTE_ERROR") or number (4).
bool statusOf(Json const& body, CommonAPI::CallStatus& status) {
    auto const value = body.find("status");
    if (value == body.end()) {
        return false;
    }
    if (value->is_string()) {
        return CommonAPI::callStatusFromString(value->get<std::string>(), status);
    }
    if (value->is_number_integer() && value->get<int>() > 0 && value->get<int>() <= 8) {
        status = static_cast<CommonAPI::CallStatus>(value->get<int>());
        return true;
    }
    return false;
}

ControlAnswer state(NetworkingSimulator& simulator) {
    Json calls = Json::array();
    for (auto const& call : simulator.calls()) {
        calls.push_back({{"method", call.method}, {"service", call.serviceId}, {"outcome", call.outcome}});
    }
    return answer(200, {{"onBus", simulator.isOnBus()}, {"ocuAvailable", simulator.ocuAvailable()}, {"calls", calls}});
}

ControlAnswer control(NetworkingSimulator& simulator, std::string const& name, Json const& body) {
    std::string const service = body.value("service", std::string());
    bool const serviceOperation = name == "grant" || name == "grantEmpty" || name == "refuse" || name == "fail";
    if (serviceOperation && service.empty()) {
        return badRequest("\"service\" is missing");
    }
    if (name == "grant") {
        simulator.grant(service);
        return ok();
    }
    if (name == "grantEmpty") {
        simulator.grantEmpty(service, countOf(body));
        return ok();
    }
    if (name == "refuse") {
        int const code = body.value("code", 1);
        if (code <= 0) {
            return badRequest("\"code\" must be a result code above 0");
        }
        simulator.refuse(service, static_cast<ResultCodes_e>(code), countOf(body));
        return ok();
    }
    if (name == "fail") {
        CommonAPI::CallStatus status = CommonAPI::CallStatus::REMOTE_ERROR;
        if (body.contains("status") && !statusOf(body, status)) {
            return badRequest("\"status\" must name a call status other than SUCCESS");
        }
        simulator.fail(service, status, countOf(body));
        return ok();
    }
    if (name == "ocu" && body.contains("available") && body["available"].is_boolean()) {
        simulator.setOcuAvailable(body["available"].get<bool>());
        return ok();
    }
    if (name == "leave") {
        simulator.leaveBus();
        return ok();
    }
    if (name == "rejoin") {
        return simulator.rejoinBus() ? ok() : answer(409, {{"error", "could not rejoin the bus"}});
    }
    if (name == "clearCalls") {
        simulator.clearCalls();
        return ok();
    }
    return answer(404, {{"error", "no such control endpoint or missing fields"}});
}

}  // namespace

ControlAnswer ControlEndpoints::handle(NetworkingSimulator& simulator, std::string const& method,
                                       std::string const& target, std::string const& body) {
    std::string name = target.rfind(PREFIX, 0) == 0 ? target.substr(std::string(PREFIX).size()) : std::string();
    name = name.substr(0, name.find('?'));
    ControlAnswer result;
    if (method == "GET" && name == "state") {
        result = state(simulator);
    } else if (method != "POST") {
        result = answer(405, {{"error", "control changes are POST requests"}});
    } else {
        Json const parsed = body.empty() ? Json::object() : Json::parse(body, nullptr, false);
        result = parsed.is_object() ? control(simulator, name, parsed) : badRequest("the body must be a JSON object");
    }
    common::logging::Logger("networkingsim") << LogLevel::Info << "Control " << method << " " << target << " -> "
                                             << result.status;
    return result;
}

}  // namespace qel::sim::networking
