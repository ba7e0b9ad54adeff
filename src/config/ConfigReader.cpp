#include "config/ConfigReader.h"

#include "ini/IniFileHandler.h"

#include <cstdint>

namespace qel::onlineservices::framework {

using qel::common::logging::LogLevel;

namespace {

char const* const SUBSCRIPTION_CONFIG = "SUBSCRIPTION_CONFIG";
char const* const RSI_SERVICE = "RSI_SERVICE";
char const* const RSI_CONFIG = "RSI_CONFIG";
char const* const TEST_CONFIG = "TEST_CONFIG";

char const* boolText(bool value) {
    return value ? "true" : "false";
}

}  // namespace

// 47 characters and the terminator: the path is part of the device's file layout.
static_assert(sizeof(ConfigReader::INIFILE_PATH_DEFAULT) == 48);

ConfigReader::ConfigReader() : ConfigReader(std::string()) {}

ConfigReader::ConfigReader(std::string const& path)
    : m_logger("framework.configReader"),
      m_subConfig(),
      m_iniFileHandler(std::make_unique<common::ini::IniFileHandler>(path.empty() ? INIFILE_PATH_DEFAULT : path)) {
    m_logger << LogLevel::Info << "Opening inifile " << m_iniFileHandler->filename() << ":";
    readConfig();
}

ConfigReader::~ConfigReader() = default;

FrameworkSubConfig ConfigReader::getSubConfig() const {
    return m_subConfig;
}

void ConfigReader::readConfig() {
    readIniValue(SUBSCRIPTION_CONFIG, "SKIP_SERVICE_SUBSCRIPTION", m_subConfig.skipServiceSubscription);
    readIniValue(SUBSCRIPTION_CONFIG, "SKIP_PRIVACY_SUBSCRIPTION", m_subConfig.skipPrivacySubscription);
    readIniValue(SUBSCRIPTION_CONFIG, "SKIP_TOKEN_SUBSCRIPTION", m_subConfig.skipTokenSubscription);
    readIniValue(SUBSCRIPTION_CONFIG, "SKIP_JOB_SUBSCRIPTION", m_subConfig.skipJobSubscription);
    // The KVS key has no "_SUBSCRIPTION" suffix in the file format.
    readIniValue(SUBSCRIPTION_CONFIG, "SKIP_KVS", m_subConfig.skipKVSSubscription);
    readIniValue(SUBSCRIPTION_CONFIG, "SKIP_CAPABILITIES", m_subConfig.skipCapabilities);
    readIniValue(SUBSCRIPTION_CONFIG, "SKIP_JOB_ENTRIES", m_subConfig.skipJobEntries);
    readIniValue(SUBSCRIPTION_CONFIG, "SKIP_OPERATION_ENTRIES", m_subConfig.skipOperationEntries);
    readIniValue(SUBSCRIPTION_CONFIG, "SKIP_NETWORKING_REGISTRATION", m_subConfig.skipNetworkingRegistration);

    readRsiServiceAddress();
    readRsiServicePort();
    readTryCounts();

    readIniValue(TEST_CONFIG, "IGNORE_DISABLE_REASONS", m_subConfig.ignoreDisableReasons);

    // A try count below 1 would mean "never try"; no upper bound is needed.
    if (m_subConfig.tryCountRequests < 1) {
        m_subConfig.tryCountRequests = 1;
    }
    if (m_subConfig.tryCountSubscriptions < 1) {
        m_subConfig.tryCountSubscriptions = 1;
    }
    m_logger << LogLevel::Info << "Using RSI request try count: " << m_subConfig.tryCountRequests;
    // The subscription count is reported under the request wording; log readers match this line as it is.
    m_logger << LogLevel::Info << "Using RSI request try count: " << m_subConfig.tryCountSubscriptions;
}

void ConfigReader::readRsiServiceAddress() {
    m_subConfig.rsiServiceIpAddress.clear();
    if (m_iniFileHandler->getValue(RSI_SERVICE, "IP_ADDRESS", m_subConfig.rsiServiceIpAddress) &&
        !m_subConfig.rsiServiceIpAddress.empty()) {
        m_logger << LogLevel::Info << "Read RSI Service IP successful: " << m_subConfig.rsiServiceIpAddress;
    }
}

void ConfigReader::readRsiServicePort() {
    m_subConfig.rsiServicePort = 0;
    int port = 0;
    if (m_iniFileHandler->getValue(RSI_SERVICE, "PORT", port)) {
        m_logger << LogLevel::Info << "Read RSI Port successful: " << port;
        // The field is 16 bits wide: larger numbers wrap, while the line above shows what the file says.
        m_subConfig.rsiServicePort = static_cast<std::uint16_t>(port);
    }
}

void ConfigReader::readTryCounts() {
    // A missing or non-numeric count leaves the default; the caller clamps.
    m_iniFileHandler->getValue(RSI_CONFIG, "TRY_COUNT_REQUESTS", m_subConfig.tryCountRequests);
    m_iniFileHandler->getValue(RSI_CONFIG, "TRY_COUNT_SUBSCRIPTIONS", m_subConfig.tryCountSubscriptions);
}

void ConfigReader::readIniValue(std::string const& section, std::string const& key, bool& value) const {
    std::string text;
    if (!m_iniFileHandler->getValue(section, key, text)) {
        m_logger << LogLevel::Info << "Failed to read value for " << key << ", using default value "
                 << boolText(value);
        return;
    }
    m_logger << LogLevel::Info << "Read value for " << key << " successful: " << text;
    // Only these two spellings mean true; "True", "1" or "yes" do not.
    value = text == "TRUE" || text == "true";
    m_logger << LogLevel::Debug << "Using bool value " << boolText(value);
}

}  // namespace qel::onlineservices::framework
