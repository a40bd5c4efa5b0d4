#include "checks/GenTCPNetCheck.h"

#include "common/assertion.h"
#include "io/Stream.h"
#include "types/vocabulary.h"

#include <optional>
#include <string>

namespace {

const ConnectionTexts connectionTexts = {
    .refused = "TCP connection failed",
    .failed = "Failed to create TCP connection: ",
};

}  // namespace

void GenTCPNetCheck::start()
{
    readProperty(tql::property::connClose, waitClose);
    stopWatch.restart();
    connect(connector);
}

void GenTCPNetCheck::ioReady(io::Selectable* s)
{
    if (s == connector.get())
        connected();
    else if (socket != nullptr && s == &socket->istream)
        readable();
    else
        assertion("Unknown selectable");
}

void GenTCPNetCheck::connected()
{
    socket = makeSocket<io::Socket>(connector.get(), connectionTexts);
    if (socket == nullptr) {
        finishWith(services::RESULT_CONNECT_FAILED);
        return;
    }
    if (traceWanted())
        log("TCP connection esteblished", logTrace);
    if (!waitClose) {
        finish();
        return;
    }
    if (traceWanted())
        log("Will wait for remote peer to close connection", logTrace);
    socket->ostream.close();
    selector->add(&socket->istream, this);
}

void GenTCPNetCheck::readable()
{
    std::optional<std::string> failure;
    try {
        char* data = nullptr;
        socket->istream.readCommit(socket->istream.readBegin(&data));
        return;
    } catch (const io::EEndOfStream&) {
        failure.reset();
    } catch (const error::Exception& e) {
        failure = e.text();
    }

    if (failure) {
        log("Error waiting for connection close: " + *failure, logOrdinary);
        selector->remove(&socket->istream);
        finishWith(services::RESULT_CLOSE_FAILED);
        return;
    }
    if (traceWanted())
        log("TCP connection closed", logTrace);
    selector->remove(&socket->istream);
    finish();
}
