// Reads the framework's device-wide settings from its ini file.
//
// Contract: the constructor does all the reading, once; nothing is re-read later. A missing or
// unreadable file, section or key gives the defaults of `FrameworkSubConfig` and never fails the
// construction; only Boolean keys log their fallback. Try counts are at least 1 after reading.
// `getSubConfig()` hands out a copy, so the reader may go away once the factory has merged it.
// Used on one thread (the factory's); not meant to be shared.
#pragma once

#include "common/Logger.h"
#include "config/FrameworkConfig.h"

#include <memory>
#include <string>

namespace qel::onlineservices::common::ini {
class IniFileHandler;
}

namespace qel::onlineservices::framework {

class ConfigReader {
public:
    static constexpr char INIFILE_PATH_DEFAULT[] = "/etc/qel.onlineservices.framework/framework.ini";

    // Reads INIFILE_PATH_DEFAULT.
    ConfigReader();
    // Reads `path`; an empty path means INIFILE_PATH_DEFAULT.
    explicit ConfigReader(std::string const& path);
    ~ConfigReader();
    ConfigReader(ConfigReader const&) = delete;
    ConfigReader& operator=(ConfigReader const&) = delete;

    FrameworkSubConfig getSubConfig() const;

private:
    void readConfig();
    void readRsiServiceAddress();
    void readRsiServicePort();
    void readTryCounts();
    // `value` carries the default in and the result out.
    void readIniValue(std::string const& section, std::string const& key, bool& value) const;

    // Members are released in reverse order: the handler first, the logger last.
    qel::common::logging::Logger m_logger;
    FrameworkSubConfig m_subConfig;
    std::unique_ptr<common::ini::IniFileHandler> m_iniFileHandler;
};

}  // namespace qel::onlineservices::framework
