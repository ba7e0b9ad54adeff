#include "commonapi/dbus/DBusServiceEndpoint.h"

#include "common/Logger.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/MethodResult.h>
#include <sdbus-c++/Types.h>

namespace CommonAPI::dbus {
namespace {

using qel::common::logging::LogLevel;
using v1::qel::networking::api::networkingStub;
using v1::qel::networking::api::definitions::ClientData_s;
using v1::qel::networking::api::definitions::ResultCodes_e;
using AddressStruct = sdbus::Struct<std::string, std::int32_t, std::string>;

qel::common::logging::Logger const& logger() {
    static qel::common::logging::Logger const instance("CommonAPI.dbus");
    return instance;
}

AddressStruct toStruct(ClientData_s const& value) {
    return AddressStruct(value.getAddress(), value.getPrefix(), value.getName());
}

sdbus::Error failure(CallStatus status) {
    return sdbus::Error(DBusNames::errorName(status), "call failed by the service");
}

}  // namespace

std::shared_ptr<DBusServiceEndpoint> DBusServiceEndpoint::create(Address const& address,
                                                                 std::shared_ptr<networkingStub> const& stub) {
    auto loop = DBusConnectionLoop::open("capi-dbus-svc");
    if (!loop) {
        return nullptr;
    }
    auto const endpoint = std::make_shared<DBusServiceEndpoint>(address, std::move(loop));
    return endpoint->serve(stub) ? endpoint : nullptr;
}

DBusServiceEndpoint::DBusServiceEndpoint(Address const& address, std::unique_ptr<DBusConnectionLoop> loop)
    : m_names(DBusNames::of(address)), m_loop(std::move(loop)) {}

DBusServiceEndpoint::~DBusServiceEndpoint() {
    close();
}

bool DBusServiceEndpoint::serve(std::weak_ptr<networkingStub> const& stub) {
    try {
        auto object = sdbus::createObject(m_loop->connection(), m_names.objectPath);
        object->registerMethod("getInternetAccess")
            .onInterface(m_names.interfaceName)
            .withInputParamNames("serviceId")
            .withOutputParamNames("ipv4", "ipv6", "result")
            .implementedAs([stub](sdbus::Result<AddressStruct, AddressStruct, std::int32_t>&& result,
                                  std::string serviceId) {
                auto const reply = std::make_shared<sdbus::Result<AddressStruct, AddressStruct, std::int32_t>>(
                    std::move(result));
                auto const service = stub.lock();
                if (!service) {
                    reply->returnError(failure(CallStatus::NOT_AVAILABLE));
                    return;
                }
                service->getInternetAccess(
                    std::make_shared<ClientId>(), std::move(serviceId),
                    [reply](ClientData_s ipv4, ClientData_s ipv6, ResultCodes_e code) {
                        reply->returnResults(toStruct(ipv4), toStruct(ipv6), static_cast<std::int32_t>(code));
                    },
                    [reply](CallStatus status) { reply->returnError(failure(status)); });
            });
        object->registerMethod("dropInternetAccess")
            .onInterface(m_names.interfaceName)
            .withInputParamNames("serviceId")
            .withOutputParamNames("result")
            .implementedAs([stub](sdbus::Result<std::int32_t>&& result, std::string serviceId) {
                auto const reply = std::make_shared<sdbus::Result<std::int32_t>>(std::move(result));
                auto const service = stub.lock();
                if (!service) {
                    reply->returnError(failure(CallStatus::NOT_AVAILABLE));
                    return;
                }
                service->dropInternetAccess(
                    std::make_shared<ClientId>(), std::move(serviceId),
                    [reply](ResultCodes_e code) { reply->returnResults(static_cast<std::int32_t>(code)); },
                    [reply](CallStatus status) { reply->returnError(failure(status)); });
            });
        object->registerSignal("ocuConnStateChange").onInterface(m_names.interfaceName).withParameters<bool>("available");
        object->finishRegistration();
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_object = std::move(object);
        }
        // The name last: a proxy that sees it appear finds the object ready.
        m_loop->connection().requestName(m_names.busName);
    } catch (sdbus::Error const& error) {
        logger() << LogLevel::Error << "D-Bus service " << m_names.busName << " not registered: " << error.what();
        return false;
    }
    if (!m_loop->start()) {
        return false;
    }
    logger() << LogLevel::Info << "D-Bus service " << m_names.busName << " at " << m_names.objectPath << " ("
             << m_names.interfaceName << ")";
    return true;
}

void DBusServiceEndpoint::fireOcuConnStateChangeEvent(bool const& value) {
    std::lock_guard<std::mutex> guard(m_mutex);
    if (!m_object) {
        return;
    }
    try {
        m_object->emitSignal("ocuConnStateChange").onInterface(m_names.interfaceName).withArguments(value);
    } catch (sdbus::Error const& error) {
        logger() << LogLevel::Error << "OCU signal not sent: " << error.what();
    }
}

void DBusServiceEndpoint::close() {
    m_loop->stop();
    std::unique_ptr<sdbus::IObject> object;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        object = std::move(m_object);
    }
    if (!object) {
        return;
    }
    object.reset();
    try {
        m_loop->connection().releaseName(m_names.busName);
    } catch (sdbus::Error const& error) {
        logger() << LogLevel::Warning << "D-Bus name " << m_names.busName << " not released: " << error.what();
    }
}

}  // namespace CommonAPI::dbus
