// What the checks of HTTP in a run ask for beside their URLs, and the request that comes of it.
//
// The worker sends the URL of an HTTP/1.0 request as it is, without any header. For HTTP/1.1 it
// takes the URL apart, makes the Host header of its host and port, and puts path and query
// together again: the pairs of the query by key, each key once, "b=" for "b"; a piece with two "="
// is lost, and so is a "/" right before the "?". The settings here make the Host header right and
// tell what would become of path and query.
#pragma once

#include "parent/Target.h"

#include <string>

namespace parent {

struct HttpOptions {
    bool version11 = true;     // else HTTP/1.0
    std::string statusRegex;   // for the digits of the status; empty: "^2.."
    std::string contentRegex;  // for the whole reply; empty: none
    std::string userAgent;     // empty: no such header
    std::string hostHeader;    // HOST[:PORT]; empty: those of the target
};

// Sets what the worker needs for a target whose kind takes a URL.
void setHttpProperties(const Target& target, const HttpOptions& options,
                       tql::property_map* properties);

// Path and query as the worker asks for them.
std::string requestedUrl(const Target& target, const HttpOptions& options);

// Whether two URLs without scheme and host differ in nothing but the order of what they ask for,
// in pieces that ask for nothing, and in "b" for "b=".
bool asksForTheSame(const std::string& a, const std::string& b);

// False if the request has no room in the 4096 bytes that the worker sends in one piece.
bool requestFits(const Target& target, const HttpOptions& options);

// What is wrong with a pattern; empty if nothing is.
std::string regexProblem(const std::string& pattern);

}  // namespace parent
