#include "ControlEndpoints.h"

#include "BackendSimulator.h"
#include "SimServerContext.h"
#include "ConsoleAssets.h"

#include <algorithm>
#include <initializer_list>

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

HttpAnswer notFound() {
    return {404, textOf(Json{{"error", "no such control endpoint"}}), {}};
}

std::string stringOf(Json const& object, char const* key) {
    auto const member = object.find(key);
    return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
}

// Why `key` cannot be used as a non-empty string, or empty when it can.
std::string needString(Json const& body, char const* key) {
    return stringOf(body, key).empty() ? "\"" + std::string(key) + "\" is missing or not a non-empty string"
                                       : std::string();
}

// Why `key` cannot be used as a whole number up to `limit`, or empty when it can (or, if
// `optional`, when it is absent).
std::string needNumber(Json const& body, char const* key, std::uint64_t limit, bool optional = false) {
    auto const member = body.find(key);
    if (member == body.end() && optional) {
        return {};
    }
    if (member == body.end() || !member->is_number_unsigned() || member->get<std::uint64_t>() > limit) {
        return "\"" + std::string(key) + "\" is missing or not a whole number up to " + std::to_string(limit);
    }
    return {};
}

template <typename T>
T numberOf(Json const& object, char const* key, T fallback) {
    auto const member = object.find(key);
    return member != object.end() && member->is_number_unsigned() ? member->get<T>() : fallback;
}

// The first complaint in `checks`, or empty.
std::string firstOf(std::initializer_list<std::string> checks) {
    for (auto const& check : checks) {
        if (!check.empty()) {
            return check;
        }
    }
    return {};
}

HttpAnswer records(BackendSimulator& simulator, std::string const& what) {
    if (what == "state") {
        return {200, simulator.stateJson(), {}};
    }
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

constexpr std::uint64_t MAX_COUNT = 1000000;
constexpr std::uint64_t MAX_DELAY_MS = 600000;

HttpAnswer availability(BackendSimulator& simulator, Json const& body) {
    std::string problem = needString(body, "service");
    if (problem.empty() && !(body.contains("available") && body["available"].is_boolean())) {
        problem = "\"available\" is missing or not true or false";
    }
    if (!problem.empty()) {
        return badRequest(problem);
    }
    simulator.setServiceAvailable(stringOf(body, "service"), body["available"].get<bool>());
    return ok();
}

HttpAnswer disableReasons(BackendSimulator& simulator, Json const& body) {
    auto const list = body.find("reasons");
    bool const listOk = list != body.end() && list->is_array() &&
                        std::all_of(list->begin(), list->end(), [](Json const& reason) { return reason.is_string(); });
    std::string const problem =
        firstOf({needString(body, "service"), listOk ? "" : "\"reasons\" is missing or not a list of texts"});
    if (!problem.empty()) {
        return badRequest(problem);
    }
    return simulator.setDisableReasons(stringOf(body, "service"), list->get<std::vector<std::string>>())
               ? ok()
               : badRequest("no such service");
}

HttpAnswer control(BackendSimulator& simulator, std::string const& name, Json const& body) {
    if (name == "availability") {
        return availability(simulator, body);
    }
    if (name == "disableReasons") {
        return disableReasons(simulator, body);
    }
    if (name == "rotateToken") {
        if (auto const problem = needString(body, "token"); !problem.empty()) {
            return badRequest(problem);
        }
        std::string const token = simulator.rotateToken(stringOf(body, "token"), stringOf(body, "value"));
        return token.empty() ? badRequest("no such token") : ok({{"token", token}});
    }
    if (name == "pushJob") {
        if (auto const problem = needString(body, "name"); !problem.empty()) {
            return badRequest(problem);
        }
        return ok({{"id", simulator.pushJob(textOf(body))}});
    }
    if (name == "kvs") {
        if (auto const problem = firstOf({needString(body, "item"), body.contains("value") && body["value"].is_string()
                                                                        ? ""
                                                                        : "\"value\" is missing or not a text"});
            !problem.empty()) {
            return badRequest(problem);
        }
        return simulator.setKvsValue(stringOf(body, "item"), stringOf(body, "value")) ? ok()
                                                                                       : badRequest("no such item");
    }
    if (name == "failNext") {
        std::string problem = firstOf({needString(body, "path"), needNumber(body, "status", 599),
                                       needNumber(body, "count", MAX_COUNT, true)});
        if (problem.empty() && body["status"].get<int>() < 100) {
            problem = "\"status\" must be an HTTP status from 100 to 599";
        }
        if (!problem.empty()) {
            return badRequest(problem);
        }
        simulator.failNext(stringOf(body, "path"), body["status"].get<int>(),
                           numberOf<std::uint32_t>(body, "count", 1));
        return ok();
    }
    if (name == "delay") {
        if (auto const problem = firstOf({needString(body, "path"), needNumber(body, "ms", MAX_DELAY_MS)});
            !problem.empty()) {
            return badRequest(problem);
        }
        simulator.delayAnswers(stringOf(body, "path"), body["ms"].get<std::uint32_t>());
        return ok();
    }
    if (name == "closeWebSockets") {
        return ok({{"closed", simulator.closeAllWebSockets()}});
    }
    return notFound();
}

bool isControlChange(std::string const& name) {
    static char const* const changes[] = {"availability", "disableReasons", "rotateToken", "pushJob",
                                          "kvs",          "failNext",       "delay",       "closeWebSockets"};
    return std::find(std::begin(changes), std::end(changes), name) != std::end(changes);
}

// The console's files; the page itself answers the bare prefix.
bool pageFile(std::string const& name, HttpAnswer& answer) {
    console::ConsoleAsset asset;
    if (!console::ConsoleAssets::find(name.empty() ? "backend.html" : name, asset)) {
        return false;
    }
    answer = {200, asset.body, {}, asset.contentType};
    return true;
}

}  // namespace

HttpAnswer ControlEndpoints::handle(BackendSimulator& simulator, std::string const& method, std::string const& target,
                                    std::string const& body) {
    std::string name = target.substr(std::string(SimServerContext::CONTROL_PREFIX).size());
    name = name.substr(0, name.find('?'));
    bool const isRecord = name == "received" || name == "acknowledgements" || name == "state";
    HttpAnswer answer;
    if (method == "GET" && isRecord) {
        answer = records(simulator, name);
    } else if (method == "GET" && pageFile(name, answer)) {
        return answer;  // not logged: a page load is not a control action
    } else if (!isRecord && !isControlChange(name)) {
        answer = notFound();
    } else if (method != "POST" || isRecord) {
        answer = {405, textOf(Json{{"error", "control changes are POST requests"}}), {}};
    } else {
        Json const parsed = body.empty() ? Json::object() : Json::parse(body, nullptr, false);
        try {
            answer = parsed.is_object() ? control(simulator, name, parsed)
                                        : badRequest("the body must be a JSON object");
        } catch (nlohmann::json::exception const& error) {  // a field of a type no check above foresaw
            answer = badRequest(std::string("malformed field: ") + error.what());
        }
    }
    common::logging::Logger("backendsim") << LogLevel::Info << "Control " << method << " " << target << " -> "
                                          << answer.status;
    return answer;
}

}  // namespace qel::sim::backend
