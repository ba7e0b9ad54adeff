#include "ControlEndpoints.h"

#include "NetworkingSimulator.h"
#include "common/Logger.h"
#include "ConsoleAssets.h"

#include <algorithm>

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

ControlAnswer notFound() {
    return answer(404, {{"error", "no such control endpoint"}});
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

Json addressOf(ClientData_s const& data) {
    return {{"address", data.getAddress()}, {"prefix", data.getPrefix()}, {"name", data.getName()}};
}

Json ruleOf(Rule const& rule) {
    static char const* const modes[] = {"grant", "grantEmpty", "refuse", "fail"};
    Json described{{"mode", modes[static_cast<int>(rule.mode)]}, {"remaining", rule.remaining}};
    if (rule.mode == Mode::REFUSE) {
        described["code"] = static_cast<std::int32_t>(rule.code);
    } else if (rule.mode == Mode::FAIL) {
        described["status"] = CommonAPI::toString(rule.status);
    }
    return described;
}

// Why the optional "count" cannot be used, or empty.
std::string countProblem(Json const& body) {
    auto const count = body.find("count");
    return count == body.end() || count->is_number_unsigned() ? std::string()
                                                               : "\"count\" must be a whole number (0: until changed)";
}

ControlAnswer control(NetworkingSimulator& simulator, std::string const& name, Json const& body) {
    auto const named = body.find("service");
    std::string const service = named != body.end() && named->is_string() ? named->get<std::string>() : std::string();
    bool const serviceOperation = name == "grant" || name == "grantEmpty" || name == "refuse" || name == "fail";
    if (serviceOperation && service.empty()) {
        return badRequest("\"service\" is missing");
    }
    if (serviceOperation && !countProblem(body).empty()) {
        return badRequest(countProblem(body));
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
        auto const given = body.find("code");
        if (given != body.end() && !given->is_number_integer()) {
            return badRequest("\"code\" must be a result code above 0");
        }
        int const code = given == body.end() ? 1 : given->get<int>();
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
    if (name == "ocu" && !(body.contains("available") && body["available"].is_boolean())) {
        return badRequest("\"available\" is missing or not true or false");
    }
    if (name == "ocu") {
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
    return notFound();
}

bool isControlChange(std::string const& name) {
    static char const* const changes[] = {"grant", "grantEmpty", "refuse", "fail",
                                          "ocu",   "leave",      "rejoin", "clearCalls"};
    return std::find(std::begin(changes), std::end(changes), name) != std::end(changes);
}

// The console's files; the page itself answers "/".
bool pageFile(std::string const& target, ControlAnswer& result) {
    console::ConsoleAsset asset;
    std::string const name = target == "/" ? "networking.html" : target.substr(1);
    if (target.empty() || target[0] != '/' || !console::ConsoleAssets::find(name, asset)) {
        return false;
    }
    result = {200, asset.body, asset.contentType};
    return true;
}

}  // namespace

ControlAnswer ControlEndpoints::handle(NetworkingSimulator& simulator, std::string const& method,
                                       std::string const& target, std::string const& body) {
    std::string name = target.rfind(PREFIX, 0) == 0 ? target.substr(std::string(PREFIX).size()) : std::string();
    name = name.substr(0, name.find('?'));
    ControlAnswer result;
    bool const isControl = target.rfind(PREFIX, 0) == 0;
    if (method == "GET" && isControl && name == "state") {
        result = {200, stateJson(simulator)};
    } else if (method == "GET" && pageFile(target, result)) {
        return result;  // not logged: a page load is not a control action
    } else if (!isControl || !isControlChange(name)) {
        result = name == "state" ? answer(405, {{"error", "the state is read with GET"}}) : notFound();
    } else if (method != "POST") {
        result = answer(405, {{"error", "control changes are POST requests"}});
    } else {
        Json const parsed = body.empty() ? Json::object() : Json::parse(body, nullptr, false);
        try {
            result = parsed.is_object() ? control(simulator, name, parsed)
                                        : badRequest("the body must be a JSON object");
        } catch (nlohmann::json::exception const& error) {  // a field of a type no check above foresaw
            result = badRequest(std::string("malformed field: ") + error.what());
        }
    }
    common::logging::Logger("networkingsim") << LogLevel::Info << "Control " << method << " " << target << " -> "
                                             << result.status;
    return result;
}

std::string ControlEndpoints::stateJson(NetworkingSimulator const& simulator) {
    Json calls = Json::array();
    for (auto const& call : simulator.calls()) {
        calls.push_back({{"method", call.method}, {"service", call.serviceId}, {"outcome", call.outcome}});
    }
    Json services = Json::array();
    for (auto const& view : simulator.services()) {
        services.push_back({{"service", view.serviceId},
                            {"ipv4", addressOf(view.ipv4)},
                            {"ipv6", addressOf(view.ipv6)},
                            {"rule", view.rule ? ruleOf(*view.rule) : Json()}});
    }
    Json const state{{"onBus", simulator.isOnBus()},
                     {"ocuAvailable", simulator.ocuAvailable()},
                     {"services", services},
                     {"calls", calls}};
    return state.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace qel::sim::networking
