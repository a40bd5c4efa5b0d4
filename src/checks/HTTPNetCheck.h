// Fetches one URL with a GET (RFC 1945, RFC 9112), over TCP or TLS, and judges the reply: the
// status code must match a pattern, and the reply as a whole another one, if there is one.
//
//   phase        registered beside the timer   left by
//   connecting   connector                     the end of the attempt
//   sending      out                           room: the request is committed
//   draining     out                           the request has left
//   reading      in                            the verdict, or a failure
//
// Without a content pattern, the first chunk of the reply is judged. With one, the check reads
// until the server closes or 1 MiB has come. Redirects aren't followed, and nothing is decoded.
//
// The connection goes to the address of the request, whatever the URL says, and TLS is a matter
// of useSsl, not of the scheme: the URL only fills the request.
#pragma once

#include "checks/Exchange.h"
#include "common/regex.h"

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

// The digits of the status code of a reply, which can be none; nothing if the reply doesn't begin
// like a status line.
std::optional<std::string> httpStatusCode(std::string_view reply);

// The header lines of a reply, the status line first, up to the empty line. Each keeps its line
// end; a folded header is one line.
std::list<std::string> httpHeaderLines(std::string_view reply);

class HTTPNetCheck : public NetCheck {
public:
    using NetCheck::NetCheck;
    ~HTTPNetCheck() override;

    // Throws error::EParseError for a pattern that doesn't compile.
    void start() override;
    void ioReady(io::Selectable* s) override;

private:
    void connected();
    std::string request() const;
    void received();
    void evaluate();
    bool statusIsGood() const;

    std::unique_ptr<io::SocketConnector> connector;
    std::unique_ptr<io::Socket> socket;
    std::unique_ptr<io::SSLSocket> sslSocket;
    io::IStream* in = nullptr;
    io::OStream* out = nullptr;
    bool useSsl = false;
    bool matchContent = false;
    std::uint32_t version = 0;       // the property httpVersion; 1: HTTP/1.1, else HTTP/1.0
    std::list<std::string> headers;  // to send, without line ends
    tv_regex_t statusPattern = {};
    tv_regex_t contentPattern = {};
    std::string url;
    std::string reply;
    Exchange exchange{this, httpTexts};
};
