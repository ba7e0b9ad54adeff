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

private:
    static std::string join(std::vector<std::string> const& values) {
        std::string text;
        for (auto const& value : values) {
            text += (text.empty() ? "" : ",") + value;
        }
        return text;
    }

    Timeline& m_timeline;
};
