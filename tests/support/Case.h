// A row of a table of cases.
#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <string>

namespace support {

// Runs the body under the name of its row. What it throws, a passed limit above all, fails the
// row and lets the next one run.
template <class Body>
void runCase(const std::string& name, Body&& body)
{
    SCOPED_TRACE(name);
    try {
        body();
    } catch (const std::exception& e) {
        ADD_FAILURE() << e.what();
    }
}

}  // namespace support
