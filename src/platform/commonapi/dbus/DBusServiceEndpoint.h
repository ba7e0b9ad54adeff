// A networking service registered on D-Bus: its own connection owning the bus name, the object
// with the two methods and the OCU signal, and the loop thread ("capi-dbus-svc") that calls the
// service.
//
// Contract: proxies see the service once `create` returned and lose it at `close` (the bus name
// goes away with the connection). Each call is answered once, through the service's reply or
// failure; a failure travels as the error "qel.CommonAPI.Error.<STATUS>".
#pragma once

#include "commonapi/dbus/DBusConnectionLoop.h"
#include "commonapi/dbus/DBusNames.h"
#include "commonapi/networking/networkingStub.h"

#include <sdbus-c++/IObject.h>

#include <memory>
#include <mutex>

namespace CommonAPI::dbus {

// Hidden like its connection loop: only this binding makes one.
class __attribute__((visibility("hidden"))) DBusServiceEndpoint
    : public v1::qel::networking::api::networkingStubAdapter {
public:
    // Null (and a log line) when the bus cannot be reached or the name is taken.
    static std::shared_ptr<DBusServiceEndpoint> create(
        Address const& address, std::shared_ptr<v1::qel::networking::api::networkingStub> const& stub);
    DBusServiceEndpoint(Address const& address, std::unique_ptr<DBusConnectionLoop> loop);
    ~DBusServiceEndpoint() override;

    void fireOcuConnStateChangeEvent(bool const& value) override;
    // Leaves the bus; idempotent.
    void close();

private:
    bool serve(std::weak_ptr<v1::qel::networking::api::networkingStub> const& stub);

    DBusNames const m_names;
    std::mutex m_mutex;  // guards the object against `close` while a signal goes out
    std::unique_ptr<DBusConnectionLoop> m_loop;
    std::unique_ptr<sdbus::IObject> m_object;  // guarded by m_mutex
};

}  // namespace CommonAPI::dbus
