// The options that set what is asked of services, beside the targets themselves.
//
// Each goes with some kinds of targets. One that goes with none of those given is refused: it
// would do nothing, and the user believes that it does.
#pragma once

#include "parent/Check.h"

#include <optional>
#include <string>
#include <vector>

namespace parent {

// As the user gave them; absent: not given.
struct CheckOptions {
    std::optional<std::string> httpVersion = {};
    std::optional<std::string> statusRegex = {};
    std::optional<std::string> contentRegex = {};
    std::optional<std::string> userAgent = {};
    std::optional<std::string> hostHeader = {};
    std::optional<std::string> passwordFile = {};
};

// What came of the options. Texts are fit to be shown.
struct OptionsVerdict {
    std::vector<std::string> reasons;  // why they can't be followed; empty if they can
    std::vector<std::string> notes;    // what the user should know
};

// Gives the checks what the options say. Reads the password file.
OptionsVerdict applyOptions(const CheckOptions& options, std::vector<Check>* checks);

// The names of the kinds that take a URL, and of those that take a user: "http, https".
std::string urlKinds();
std::string loginKinds();

}  // namespace parent
