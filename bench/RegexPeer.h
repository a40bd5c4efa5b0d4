// The C library's matcher, behind names of its own: its header and common/regex.h don't go
// together.
#pragma once

#include <memory>
#include <string>

class RegexPeer {
public:
    explicit RegexPeer(const std::string& pattern);  // extended syntax, no positions
    ~RegexPeer();
    RegexPeer(const RegexPeer&) = delete;
    RegexPeer& operator=(const RegexPeer&) = delete;

    bool matches(const std::string& text) const;

private:
    struct Compiled;
    std::unique_ptr<Compiled> compiled;
};
