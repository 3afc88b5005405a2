// The project's lists of exported symbols, so that a test table can prove that it names every one of a family.
#pragma once

#include <fstream>
#include <set>
#include <string>

namespace korla_test {

// The symbols of exports/<family>.txt.
inline std::set<std::string> exported_symbols(const std::string& family) {
    std::ifstream file(std::string(KORLA_EXPORTS_DIR) + "/" + family + ".txt");
    std::set<std::string> names;
    for (std::string line; std::getline(file, line);)
        if (!line.empty() && line[0] != '#')
            names.insert(line.substr(0, line.find(' ')));
    return names;
}

} // namespace korla_test
