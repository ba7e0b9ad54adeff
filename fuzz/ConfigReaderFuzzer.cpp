// Arbitrary bytes as the framework's ini file, read by the configuration reader and by the host
// client's endpoint rule (both read the same file). Whatever the file says, the try counts stay
// at least 1; a sanitizer report is a finding.
#include "FuzzQuiet.h"
#include "config/ConfigReader.h"
#include "rsi/host/RsiEndpoint.h"

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// One file per fuzzing process, rewritten for every input and removed at exit.
class IniFile {
public:
    IniFile() {
        char const* directory = std::getenv("TMPDIR");
        std::string pattern = std::string(directory != nullptr ? directory : "/tmp") + "/qel-fuzz-ini-XXXXXX";
        int const descriptor = ::mkstemp(pattern.data());
        if (descriptor < 0) {
            std::abort();
        }
        ::close(descriptor);
        m_path = pattern;
    }
    ~IniFile() { std::remove(m_path.c_str()); }

    std::string const& write(std::uint8_t const* data, std::size_t size) {
        std::FILE* file = std::fopen(m_path.c_str(), "wb");
        if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) {
            std::abort();
        }
        return m_path;
    }

private:
    std::string m_path;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    qel::fuzz::silenceLogging();
    static IniFile file;
    std::string const& path = file.write(data, size);

    qel::onlineservices::framework::ConfigReader const reader(path);
    auto const config = reader.getSubConfig();
    if (config.tryCountRequests < 1 || config.tryCountSubscriptions < 1) {
        std::abort();
    }
    auto const endpoint = qel::rsi::client::host::RsiEndpoint::resolve(path);
    if (endpoint.host.empty() || endpoint.port == 0) {
        std::abort();  // an unusable value counts as absent, so the default stands
    }
    return 0;
}
