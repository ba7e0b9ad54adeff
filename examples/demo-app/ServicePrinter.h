// Prints what the backend and the platform say about the application's services.
//
// Each operation is called on a framework thread (the service list's, the token's, the privacy
// setup's or the networking retry thread), never on the application's own thread, and holds that
// thread up while it runs. Print, copy what you need, signal your own thread; never call back
// into the client or register listeners from here.
#pragma once

#include "Timeline.h"

#include <onlineservices/framework/IServiceDataListener.h>
#include <onlineservices/framework/ServiceObject.h>

#include <commonapi/networking/networkingTypes.h>

#include <string>
#include <vector>

class ServicePrinter : public qel::onlineservices::framework::core::IServiceDataListener {
public:
    explicit ServicePrinter(Timeline& timeline) : m_timeline(timeline) {}

    void onServiceDataChanged(std::string const& serviceId,
                              std::shared_ptr<qel::onlineservices::framework::dataitems::ServiceObject> const&
                                  service) override {
        m_timeline.print("service " + serviceId + " data" + (service ? " id " + service->getId() : ""));
    }
    void onBaseURLChanged(std::string const& serviceId, std::string const& baseUrl) override {
        m_timeline.print("baseurl " + serviceId + " " + baseUrl);
    }
    void onDisableReasonChanged(std::string const& serviceId, std::vector<std::string> const& reasons) override {
        m_timeline.print("disable " + serviceId + " [" + join(reasons) + "]");
    }
    void onTokenChanged(std::string const& serviceId, std::string const& token) override {
        m_timeline.print("token " + serviceId + " " + token);
    }
    void onPrivacySetupChanged(
        std::string const& serviceId,
        std::shared_ptr<qel::onlineservices::framework::dataitems::PrivacySettingsObject> const&) override {
        m_timeline.print("privacy " + serviceId + " changed");
    }

    void onNetworkInterfaceChanged(
        std::string const& serviceId,
        std::shared_ptr<v1::qel::networking::api::definitions::ClientData_s> const& ipv4,
        std::shared_ptr<v1::qel::networking::api::definitions::ClientData_s> const& ipv6) override {
        m_timeline.print("network " + serviceId + " ipv4 " + address(ipv4) + " ipv6 " + address(ipv6));
    }

private:
    static std::string address(std::shared_ptr<v1::qel::networking::api::definitions::ClientData_s> const& data) {
        if (!data || data->getAddress().empty()) {
            return "-";
        }
        return data->getAddress() + "/" + std::to_string(data->getPrefix());
    }
    static std::string join(std::vector<std::string> const& values) {
        std::string text;
        for (auto const& value : values) {
            text += (text.empty() ? "" : ",") + value;
        }
        return text;
    }

    Timeline& m_timeline;
};
