// The simplest check: the service accepts a TCP connection and, if wanted, closes it in answer to
// our end of the stream. What it sends meanwhile is thrown away.
//
//   state                   registered beside the timer   left by
//   connecting              connector                     the end of the attempt
//   waiting for the close   the socket's input stream     the end of the stream, or an error
#pragma once

#include "checks/NetCheck.h"

#include <memory>

class GenTCPNetCheck : public NetCheck {
public:
    using NetCheck::NetCheck;
    ~GenTCPNetCheck() override = default;

    void start() override;
    void ioReady(io::Selectable* s) override;

private:
    void connected();
    void readable();

    bool waitClose = true;  // the property connClose
    std::unique_ptr<io::SocketConnector> connector;
    std::unique_ptr<io::Socket> socket;
};
