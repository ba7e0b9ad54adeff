#include "commonapi/dbus/DBusNetworkingProxy.h"

#include "common/Logger.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/Types.h>

#include <chrono>
#include <mutex>

namespace CommonAPI::dbus {
namespace {

using qel::common::logging::LogLevel;
using v1::qel::networking::api::definitions::ClientData_s;
using v1::qel::networking::api::definitions::ResultCodes_e;
using AddressStruct = sdbus::Struct<std::string, std::int32_t, std::string>;

constexpr char const* BUS_NAME = "org.freedesktop.DBus";
constexpr char const* BUS_PATH = "/org/freedesktop/DBus";

qel::common::logging::Logger const& logger() {
    static qel::common::logging::Logger const instance("CommonAPI.dbus");
    return instance;
}

ClientData_s fromStruct(AddressStruct const& value) {
    return ClientData_s(std::get<0>(value), std::get<1>(value), std::get<2>(value));
}

std::chrono::milliseconds timeoutFor(CallInfo const* info) {
    return std::chrono::milliseconds(timeoutOf(info));
}

}  // namespace

std::shared_ptr<DBusNetworkingProxy> DBusNetworkingProxy::create(Address const& address,
                                                                 std::shared_ptr<EventDispatcher> const& dispatcher) {
    auto loop = DBusConnectionLoop::open("capi-dbus-loop");
    if (!loop) {
        return nullptr;
    }
    auto const proxy = std::make_shared<DBusNetworkingProxy>(address, dispatcher, std::move(loop));
    return proxy->connect() ? proxy : nullptr;
}

DBusNetworkingProxy::DBusNetworkingProxy(Address address, std::shared_ptr<EventDispatcher> dispatcher,
                                         std::unique_ptr<DBusConnectionLoop> loop)
    : m_address(std::move(address)),
      m_names(DBusNames::of(m_address)),
      m_dispatcher(std::move(dispatcher)),
      m_status(std::make_shared<Status>(AvailabilityStatus::UNKNOWN)),
      m_loop(std::move(loop)) {}

DBusNetworkingProxy::~DBusNetworkingProxy() {
    m_loop->stop();  // no handler runs from here on
    m_ownerMatch.reset();
    m_busProxy.reset();
    m_proxy.reset();
}

void DBusNetworkingProxy::applyStatus(std::weak_ptr<DBusNetworkingProxy> const& proxy, Status& status,
                                      EventDispatcher& dispatcher, AvailabilityStatus value) {
    if (status.exchange(value) == value) {
        return;
    }
    dispatcher.post([proxy, value] {
        if (auto const live = proxy.lock()) {
            live->m_statusEvent.fire(value);
        }
    });
}

bool DBusNetworkingProxy::connect() {
    std::weak_ptr<DBusNetworkingProxy> const weak = weak_from_this();
    // The status as the listener subscribed: a later change reaches it through `applyStatus`.
    m_statusEvent.setListenerAddedHook([weak, status = m_status, dispatcher = m_dispatcher](auto subscription) {
        AvailabilityStatus const current = status->load();
        if (current == AvailabilityStatus::UNKNOWN) {
            return;
        }
        dispatcher->post([weak, subscription, current] {
            if (auto const live = weak.lock()) {
                live->m_statusEvent.fireTo(subscription, current);
            }
        });
    });
    try {
        auto& connection = m_loop->connection();
        m_proxy = sdbus::createProxy(connection, m_names.busName, m_names.objectPath);
        m_proxy->uponSignal("ocuConnStateChange")
            .onInterface(m_names.interfaceName)
            .call([weak, dispatcher = m_dispatcher](bool available) {
                dispatcher->post([weak, available] {
                    if (auto const live = weak.lock()) {
                        live->m_ocuEvent.fire(available);
                    }
                });
            });
        m_proxy->finishRegistration();
        m_busProxy = sdbus::createProxy(connection, BUS_NAME, BUS_PATH);
        std::string const rule = "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
                                 "member='NameOwnerChanged',arg0='" +
                                 m_names.busName + "'";
        m_ownerMatch = connection.addMatch(
            rule, [weak, status = m_status, dispatcher = m_dispatcher](sdbus::Message& message) {
                std::string name;
                std::string oldOwner;
                std::string newOwner;
                message >> name >> oldOwner >> newOwner;
                applyStatus(weak, *status, *dispatcher,
                            newOwner.empty() ? AvailabilityStatus::NOT_AVAILABLE : AvailabilityStatus::AVAILABLE);
            });
        if (!m_loop->start()) {
            return false;
        }
        // Asked once the owner changes are watched, so no change slips between the two.
        m_busProxy->callMethodAsync("NameHasOwner")
            .onInterface(BUS_NAME)
            .withArguments(m_names.busName)
            .uponReplyInvoke([weak, status = m_status, dispatcher = m_dispatcher](sdbus::Error const* error,
                                                                                bool hasOwner) {
                if (error == nullptr) {
                    applyStatus(weak, *status, *dispatcher,
                                hasOwner ? AvailabilityStatus::AVAILABLE : AvailabilityStatus::NOT_AVAILABLE);
                }
            });
    } catch (sdbus::Error const& error) {
        logger() << LogLevel::Error << "D-Bus proxy for " << m_names.busName << " failed: " << error.what();
        return false;
    }
    return true;
}

void DBusNetworkingProxy::getInternetAccess(std::string _serviceId, CallStatus& _internalCallStatus,
                                            ClientData_s& _ipv4, ClientData_s& _ipv6, ResultCodes_e& _result,
                                            CallInfo const* _info) {
    AddressStruct ipv4;
    AddressStruct ipv6;
    std::int32_t result = 0;
    try {
        m_proxy->callMethod("getInternetAccess")
            .onInterface(m_names.interfaceName)
            .withTimeout(timeoutFor(_info))
            .withArguments(_serviceId)
            .storeResultsTo(ipv4, ipv6, result);
    } catch (sdbus::Error const& error) {
        _internalCallStatus = DBusNames::statusOfError(error.getName());
        logger() << LogLevel::Debug << "getInternetAccess(" << _serviceId << ") failed: " << error.what();
        return;
    }
    _internalCallStatus = CallStatus::SUCCESS;
    _ipv4 = fromStruct(ipv4);
    _ipv6 = fromStruct(ipv6);
    _result = static_cast<ResultCodes_e>(result);
}

std::future<CallStatus> DBusNetworkingProxy::dropInternetAccessAsync(std::string const& _serviceId,
                                                                     DropInternetAccessAsyncCallback _callback,
                                                                     CallInfo const* _info) {
    struct DropState {
        std::promise<CallStatus> promise;
        DropInternetAccessAsyncCallback callback;
        std::once_flag once;
        void complete(CallStatus status, ResultCodes_e result) {
            std::call_once(once, [&] {
                promise.set_value(status);
                if (callback) {
                    callback(status, result);
                }
            });
        }
    };
    auto const state = std::make_shared<DropState>();
    state->callback = std::move(_callback);
    auto future = state->promise.get_future();
    try {
        m_proxy->callMethodAsync("dropInternetAccess")
            .onInterface(m_names.interfaceName)
            .withTimeout(timeoutFor(_info))
            .withArguments(_serviceId)
            .uponReplyInvoke([state](sdbus::Error const* error, std::int32_t result) {
                if (error != nullptr) {
                    state->complete(DBusNames::statusOfError(error->getName()), ResultCodes_e::UNKNOWN_ERROR);
                } else {
                    state->complete(CallStatus::SUCCESS, static_cast<ResultCodes_e>(result));
                }
            });
    } catch (sdbus::Error const& error) {
        logger() << LogLevel::Error << "dropInternetAccess(" << _serviceId << ") not sent: " << error.what();
        state->complete(CallStatus::CONNECTION_FAILED, ResultCodes_e::UNKNOWN_ERROR);
    }
    return future;
}

}  // namespace CommonAPI::dbus
