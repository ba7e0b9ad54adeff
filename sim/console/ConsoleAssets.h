// The console pages' files, built into the program so that a simulator serves its console with
// nothing installed and no network.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace qel::sim::console {

struct ConsoleAsset {
    std::string contentType;
    std::string body;
};

class ConsoleAssets {
public:
    // The file called `name` ("backend.js"); false when there is none. Only plain names are
    // served, so a path with a directory or "..", or a query, never matches.
    static bool find(std::string const& name, ConsoleAsset& asset);

private:
    static std::vector<std::pair<char const*, char const*>> const& table();
};

}  // namespace qel::sim::console
