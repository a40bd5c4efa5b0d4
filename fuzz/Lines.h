// What all that is shown to people must hold.
#pragma once

#include "common/shown.h"

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

inline void require(bool holds, const char* what)
{
    if (!holds) {
        std::cerr << what << '\n';
        std::abort();
    }
}

// No control character in any line, and an object in each line if it is JSON.
inline void requireLines(const std::string& shown, bool isJson)
{
    std::istringstream lines(shown);
    for (std::string line; std::getline(lines, line);) {
        require(line == printable(line), "a control character");
        require(!isJson || nlohmann::json::accept(line), "no JSON");
    }
}
