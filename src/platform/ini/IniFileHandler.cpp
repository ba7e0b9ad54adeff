#include "ini/IniFileHandler.h"

#include "common/Logger.h"

#include <INIReader.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace qel::onlineservices::common::ini {

using qel::common::logging::LogLevel;
using qel::common::logging::Logger;

IniFileHandler::IniFileHandler(std::string const& fileName)
    : m_fileName(fileName), m_reader(std::make_unique<INIReader>(fileName)) {
    int const error = m_reader->ParseError();
    if (error < 0) {
        // One line for the file; the reader's callers then fall back to their defaults key by key.
        Logger("platform.ini") << LogLevel::Info << "Cannot open ini file " << m_fileName << "; using the defaults";
    } else if (error > 0) {
        // inih keeps the lines it could read, so the file is still used.
        Logger("platform.ini") << LogLevel::Warning << "Syntax error in " << m_fileName << " at line " << error
                               << "; the line is ignored";
    }
}

IniFileHandler::~IniFileHandler() = default;

bool IniFileHandler::isValid() const {
    return m_reader->ParseError() == 0;
}

bool IniFileHandler::getValue(std::string const& section, std::string const& key, std::string& out) const {
    if (!m_reader->HasValue(section, key)) {
        return false;
    }
    out = m_reader->Get(section, key, "");
    return true;
}

bool IniFileHandler::getValue(std::string const& section, std::string const& key, int& out) const {
    std::string text;
    if (!getValue(section, key, text) || text.empty()) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    long const value = std::strtol(text.c_str(), &end, 0);
    if (*end != '\0' || errno == ERANGE || value < INT_MIN || value > INT_MAX) {
        return false;
    }
    out = static_cast<int>(value);
    return true;
}

}  // namespace qel::onlineservices::common::ini
