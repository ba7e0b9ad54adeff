#include "commonapi/Runtime.h"

#include "common/Logger.h"

#include <dlfcn.h>

#include <cstdlib>
#include <map>
#include <mutex>

namespace CommonAPI {
namespace {

using qel::common::logging::LogLevel;

struct Bindings {
    std::mutex mutex;
    std::map<std::string, std::shared_ptr<Factory>> factories;  // guarded by mutex
};

// Destroyed at exit, so the bindings join their threads.
Bindings& bindings() {
    static Bindings instance;
    return instance;
}

qel::common::logging::Logger const& logger() {
    static qel::common::logging::Logger const instance("CommonAPI");
    return instance;
}

std::shared_ptr<Factory> registered(std::string const& name) {
    std::lock_guard<std::mutex> guard(bindings().mutex);
    auto const found = bindings().factories.find(name);
    return found != bindings().factories.end() ? found->second : nullptr;
}

}  // namespace

std::shared_ptr<Runtime> Runtime::get() {
    static auto const runtime = std::make_shared<Runtime>();
    return runtime;
}

bool Runtime::registerFactory(std::string const& bindingName, std::shared_ptr<Factory> const& factory) {
    if (!factory) {
        return false;
    }
    std::lock_guard<std::mutex> guard(bindings().mutex);
    return bindings().factories.emplace(bindingName, factory).second;
}

std::string Runtime::bindingName() {
    char const* const chosen = std::getenv(BINDING_VARIABLE);
    return chosen != nullptr && *chosen != '\0' ? chosen : DEFAULT_BINDING;
}

std::shared_ptr<Factory> Runtime::factory() {
    std::string const name = bindingName();
    if (auto found = registered(name)) {
        return found;
    }
    // A path names the library itself; a name follows the libraries' naming.
    std::string const library =
        name.find('/') != std::string::npos ? name : "libqel.commonapi." + name + ".so.1";
    std::map<std::string, std::shared_ptr<Factory>> before;
    {
        std::lock_guard<std::mutex> guard(bindings().mutex);
        before = bindings().factories;
    }
    // Kept loaded for the life of the process: its factory stays registered.
    if (dlopen(library.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        char const* const why = dlerror();
        logger() << LogLevel::Error << "CommonAPI binding " << name << " could not be loaded: "
                 << (why != nullptr ? why : "unknown error");
        return nullptr;
    }
    if (auto found = registered(name)) {
        return found;
    }
    // A library loaded by path registers under its own name: take the one it added.
    std::lock_guard<std::mutex> guard(bindings().mutex);
    for (auto const& [candidate, factory] : bindings().factories) {
        if (before.count(candidate) == 0) {
            auto const added = factory;
            bindings().factories.emplace(name, added);  // found by its path from now on
            return added;
        }
    }
    logger() << LogLevel::Error << "CommonAPI binding " << name << " did not register itself";
    return nullptr;
}

std::shared_ptr<Proxy> Runtime::createProxy(std::string const& domain, std::string const& interface,
                                            std::string const& instance, ConnectionId_t const& connectionId) {
    auto const binding = factory();
    return binding ? binding->createProxy(domain, interface, instance, connectionId) : nullptr;
}

bool Runtime::registerStub(std::string const& domain, std::string const& interface, std::string const& instance,
                           std::shared_ptr<StubBase> const& stub, ConnectionId_t const& connectionId) {
    auto const binding = factory();
    return binding && stub && binding->registerStub(domain, interface, instance, stub, connectionId);
}

bool Runtime::unregisterService(std::string const& domain, std::string const& interface,
                                std::string const& instance) {
    auto const binding = factory();
    return binding && binding->unregisterStub(domain, interface, instance);
}

}  // namespace CommonAPI
