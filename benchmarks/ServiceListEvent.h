// A realistic service-list event as the backend pushes it (about 2 KB), for benchmarks that
// parse, read or copy events.
#pragma once

#include <string_view>

namespace qel::benchmarks {

inline constexpr std::string_view SERVICE_LIST_EVENT = R"JSON({"type":"data","data":[
{"id":"3f2a9c4e-8b1d-4e7a-9f60-2c5d8e1b7a43","name":"nav","serviceHostSystem":"005F","baseUrl":"https://nav.services.example.com/api/v2","uri":"/services/nav","accessToken":{"uri":"/services/nav/accesstoken"},"disableReasons":[],"privacyGroups":["location","navigation-history"],"requires":["connectivity","position"],"type":["online","foreground"],"apnType":"internet","activeMonitoringService":true,"blocksDisabling":false,"version":"2.4.1","priority":3},
{"id":"a71e0b52-6c3f-4d89-b2e4-91f0d7c6a518","name":"trafficinfo","serviceHostSystem":"005F","baseUrl":"https://traffic.services.example.com/api/v1","uri":"/services/trafficinfo","accessToken":{"uri":"/services/trafficinfo/accesstoken"},"disableReasons":["privacy"],"privacyGroups":["location"],"requires":["connectivity","position","nav"],"type":["online"],"apnType":"internet","activeMonitoringService":false,"blocksDisabling":false,"version":"1.9.0","priority":5},
{"id":"c4d8f1a6-2e9b-47c3-8a15-6b0e3f9d2c71","name":"remotecontrol","serviceHostSystem":"0033","baseUrl":"https://rc.services.example.com/api/v3","uri":"/services/remotecontrol","accessToken":{"uri":"/services/remotecontrol/accesstoken"},"disableReasons":["license","user"],"privacyGroups":["vehicle-status","remote-access"],"requires":["connectivity"],"type":["online","background"],"apnType":"telematics","activeMonitoringService":true,"blocksDisabling":true,"version":"3.0.2","priority":1},
{"id":"5b9e2d70-f4a3-4c16-9e8d-0a7c1f6b3e95","name":"weather","serviceHostSystem":"005F","baseUrl":"https://weather.services.example.com/api/v1","uri":"/services/weather","accessToken":{"uri":"/services/weather/accesstoken"},"disableReasons":[],"privacyGroups":["location"],"requires":["connectivity","position"],"type":["online","foreground"],"apnType":"internet","activeMonitoringService":false,"blocksDisabling":false,"version":"1.2.7","priority":7},
{"id":"e8a3c6f9-1b7d-4a52-8c0e-4f9b2d6e1a38","name":"kvs","serviceHostSystem":"0033","baseUrl":"https://kvs.services.example.com/api/v1","uri":"/services/kvs","accessToken":{"uri":"/services/kvs/accesstoken"},"disableReasons":[],"privacyGroups":[],"requires":["connectivity"],"type":["online","background"],"apnType":"telematics","activeMonitoringService":false,"blocksDisabling":true,"version":"1.0.4","priority":2}
]})JSON";

}  // namespace qel::benchmarks
