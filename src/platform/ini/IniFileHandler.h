// Read-only access to one ini file.
//
// Contract: the file is read once, at construction. A missing or malformed file is no error here:
// every lookup then reports "not found" and leaves its output alone. Section and key names are
// compared without regard to case.
#pragma once

#include <memory>
#include <string>

class INIReader;

namespace qel::onlineservices::common::ini {

class IniFileHandler {
public:
    explicit IniFileHandler(std::string const& fileName);
    ~IniFileHandler();
    IniFileHandler(IniFileHandler const&) = delete;
    IniFileHandler& operator=(IniFileHandler const&) = delete;

    // The name the handler was opened on.
    std::string const& filename() const { return m_fileName; }

    // True when the file was opened and parsed without error.
    bool isValid() const;

    // True when the key exists; `out` then holds its text, otherwise it is left alone.
    bool getValue(std::string const& section, std::string const& key, std::string& out) const;
    // True when the key exists and its whole text is an integer (decimal, or 0x hexadecimal)
    // within the range of int; otherwise `out` is left alone.
    bool getValue(std::string const& section, std::string const& key, int& out) const;

private:
    std::string m_fileName;
    std::unique_ptr<INIReader> m_reader;
};

}  // namespace qel::onlineservices::common::ini
