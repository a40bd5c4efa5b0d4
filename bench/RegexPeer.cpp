#include "RegexPeer.h"

#include <regex.h>

#include <stdexcept>

struct RegexPeer::Compiled {
    regex_t regex;
};

RegexPeer::RegexPeer(const std::string& pattern) : compiled(std::make_unique<Compiled>())
{
    if (regcomp(&compiled->regex, pattern.c_str(), REG_EXTENDED | REG_NOSUB) != 0)
        throw std::invalid_argument(pattern);
}

RegexPeer::~RegexPeer()
{
    regfree(&compiled->regex);
}

bool RegexPeer::matches(const std::string& text) const
{
    return regexec(&compiled->regex, text.c_str(), 0, nullptr, 0) == 0;
}
