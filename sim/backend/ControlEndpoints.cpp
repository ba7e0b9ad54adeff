#include "ControlEndpoints.h"

#include "BackendSimulator.h"
#include "SimServerContext.h"

namespace qel::sim::backend {
namespace {

using common::logging::LogLevel;
using Json = nlohmann::json;

std::string textOf(Json const& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

HttpAnswer ok(Json const& data = {{"status", "ok"}}) {
    return {200, textOf(data), {}};
}

HttpAnswer badRequest(std::string const& why) {
    return {400, textOf(Json{{"error", why}}), {}};
}

std::string stringOf(Json const& object, char const* key) {
    auto const member = object.find(key);
    return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
}

template <typename T>
T numberOf(Json const& object, char const* key, T fallback) {
    auto const member = object.find(key);
    return member != object.end() && member->is_number_unsigned() ? member->get<T>() : fallback;
}

HttpAnswer records(BackendSimulator& simulator, std::string const& what) {
    Json list = Json::array();
    if (what == "received") {
        for (auto const& message : simulator.received()) {
            list.push_back({{"channel", message.channel},
                            {"method", message.method},
                            {"target", message.target},
                            {"body", message.body}});
        }
    } else {
        for (auto const& acknowledgement : simulator.acknowledgements()) {
            list.push_back({{"jobId", acknowledgement.jobId}, {"state", acknowledgement.state}});
        }
    }
    return ok(list);
}

HttpAnswer control(BackendSimulator& simulator, std::string const& name, Json const& body) {
    if (name == "availability" && body.contains("available") && body["available"].is_boolean()) {
        simulator.setServiceAvailable(stringOf(body, "service"), body["available"].get<bool>());
        return ok();
    }
    if (name == "disableReasons") {
        std::vector<std::string> reasons;
        for (auto const& reason : body.value("reasons", Json::array())) {
            if (reason.is_string()) {
                reasons.push_back(reason.get<std::string>());
            }
        }
        return simulator.setDisableReasons(stringOf(body, "service"), reasons) ? ok() : badRequest("no such service");
    }
    if (name == "rotateToken") {
        std::string const token = simulator.rotateToken(stringOf(body, "token"), stringOf(body, "value"));
        return token.empty() ? badRequest("no such token") : ok({{"token", token}});
    }
    if (name == "pushJob") {
        std::string const id = simulator.pushJob(textOf(body));
        return id.empty() ? badRequest("a job is a JSON object") : ok({{"id", id}});
    }
    if (name == "kvs") {
        return simulator.setKvsValue(stringOf(body, "item"), stringOf(body, "value")) ? ok()
                                                                                       : badRequest("no such item");
    }
    if (name == "failNext" && body.contains("status")) {
        simulator.failNext(stringOf(body, "path"), numberOf<int>(body, "status", 500),
                           numberOf<std::uint32_t>(body, "count", 1));
        return ok();
    }
    if (name == "delay") {
        simulator.delayAnswers(stringOf(body, "path"), numberOf<std::uint32_t>(body, "ms", 0));
        return ok();
    }
    if (name == "closeWebSockets") {
        return ok({{"closed", simulator.closeAllWebSockets()}});
    }
    return {404, textOf(Json{{"error", "no such control endpoint or missing fields"}}), {}};
}

}  // namespace

HttpAnswer ControlEndpoints::handle(BackendSimulator& simulator, std::string const& method, std::string const& target,
                                    std::string const& body) {
    std::string name = target.substr(std::string(SimServerContext::CONTROL_PREFIX).size());
    name = name.substr(0, name.find('?'));
    HttpAnswer answer;
    if (method == "GET" && (name == "received" || name == "acknowledgements")) {
        answer = records(simulator, name);
    } else if (method != "POST") {
        answer = {405, textOf(Json{{"error", "control changes are POST requests"}}), {}};
    } else {
        Json const parsed = body.empty() ? Json::object() : Json::parse(body, nullptr, false);
        answer = parsed.is_object() ? control(simulator, name, parsed) : badRequest("the body must be a JSON object");
    }
    common::logging::Logger("backendsim") << LogLevel::Info << "Control " << method << " " << target << " -> "
                                          << answer.status;
    return answer;
}

}  // namespace qel::sim::backend
