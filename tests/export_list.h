// The project's lists of exported symbols, so that a test table can prove that it names every one of a family.
#pragma once

#include <fstream>
#include <map>
#include <set>
#include <string>

namespace korla_test {

// The symbols of exports/<family>.txt: functions (F) and data (D).
inline std::map<std::string, char> exported_kinds(const std::string& family) {
    std::ifstream file(std::string(KORLA_EXPORTS_DIR) + "/" + family + ".txt");
    std::map<std::string, char> kinds;
    for (std::string line; std::getline(file, line);)
        if (const size_t end = line.find(' '); !line.starts_with('#') && end != std::string::npos)
            kinds[line.substr(0, end)] = line[end + 1];
    return kinds;
}

inline std::set<std::string> exported_symbols(const std::string& family) {
    std::set<std::string> names;
    for (const auto& [name, kind] : exported_kinds(family))
        names.insert(name);
    return names;
}

} // namespace korla_test
