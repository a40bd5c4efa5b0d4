// A URL in parts (RFC 3986 in outline): scheme, host, port, path, query, fragment.
//
//   http://www.example.com:8080/a/b?x=1&y=2#end
//
// Percent escapes stay as they are, user information isn't recognised, and nothing but the port
// is validated.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class Url {
public:
    // Throws error::EParseError for an announced authority that isn't there, and for a port that
    // is no number. Any other text gives some URL.
    explicit Url(std::string_view text);

    // The text form. The pairs of the query come in the order of their keys.
    std::string toString() const;

    const std::string& host() const { return host_name; }
    std::uint16_t port() const { return port_number; }  // 0: none

    void setScheme(std::string text) { scheme = std::move(text); }
    void setHost(std::string text) { host_name = std::move(text); }
    void setPort(std::uint16_t number) { port_number = number; }
    void setRelative(bool value) { relative = value; }

private:
    // Give the position where the path or query that begins at `start` ends: that of a delimiter,
    // or std::string_view::npos for the end of the text.
    std::size_t parsePath(std::string_view text, std::size_t start);
    std::size_t parseQuery(std::string_view text, std::size_t start);

    std::string scheme;
    std::string host_name;          // the authority without its port
    std::uint16_t port_number = 0;  // a larger number is cut to its low 16 bits
    std::vector<std::string> path;  // segments without their slashes
    bool relative = false;          // the path didn't begin with "/"
    std::map<std::string, std::string> query;
    std::string fragment;
};
