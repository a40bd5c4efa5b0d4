// The two streams drive each other: the output stream starts the handshake and, with it, the
// first receive; each receive that completes takes the handshake or the decryption on, and starts
// the send of what comes out of that. So whatever changes one stream may change the other, and the
// selectors are told of both.
//
// One SSL_read follows each receive, so a receive must not bring in more than SSL_read gives out.
// It therefore ends where a TLS record does: first the header of a record is received, then its
// body, in parts if it is long. What a long record leaves in OpenSSL comes out byte by byte of the
// record behind it.
//
// OpenSSL's queue of errors belongs to the thread, not to the socket: what one socket leaves there
// reads as a failure of the next. It is emptied before each call whose result is judged.
#include "io/Tls.h"

#include "common/assertion.h"
#include "common/systemError.h"
#include "io/Selector.h"
#include "platform/ErrorCode.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <typeinfo>

namespace io {
namespace {

[[maybe_unused]] const bool registered = [] {
    registerManagedClass(typeid(SSLSocket::SSL_Socket_IStream));
    registerManagedClass(typeid(SSLSocket::SSL_Socket_OStream));
    return true;
}();

constexpr std::uint32_t recordHeaderSize = 5;  // RFC 8446, 5.1: type, version, length

// The text of a code of OpenSSL's, copied out of a buffer that the next call overwrites.
std::string opensslText(unsigned long code)
{
    return ERR_error_string(code, nullptr);
}

// The text of the first error in the queue, or the other text if the queue is empty.
std::string firstErrorOr(const std::string& otherwise)
{
    const unsigned long code = ERR_get_error();
    return code != 0 ? opensslText(code) : otherwise;
}

BIO* newMemoryBio(const char* stream)
{
    loadOpenSsl();
    ERR_clear_error();
    BIO* const bio = BIO_new(BIO_s_mem());
    if (!bio)
        throw error::ESystemError(std::string("No BIO for ") + stream + ": " +
                                  opensslText(ERR_get_error()));
    return bio;
}

// All sockets share what is set up alike for all, since making it takes as long as the rest of a
// socket. Null, with an error in the queue, if it can't be made.
SSL_CTX* sharedContext()
{
    static SSL_CTX* shared = nullptr;
    if (shared == nullptr)
        shared = SSL_CTX_new(SSLv23_client_method());
    if (shared != nullptr)
        SSL_CTX_up_ref(shared);
    return shared;
}

}  // namespace

// The first preparation decides for good whether a configuration file is read, so this one comes
// before any other use of OpenSSL. Where it fails, so does what is made afterwards.
void loadOpenSsl()
{
    OPENSSL_init_ssl(OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_LOAD_SSL_STRINGS |
                         OPENSSL_INIT_LOAD_CRYPTO_STRINGS,
                     nullptr);
}

// ---- The socket ----------------------------------------------------------------------------

SSLSocket::SSLSocket(SocketConnector& connector)
    : istream(this, &ostream),
      ostream(this, &istream),
      peer_address(connector.targetAddress()),
      peer_port(connector.targetPort())
{
    loadOpenSsl();
    socket = connector.takeSocket();
    connect_pending = true;
    peer = endpointText(peer_address, peer_port);

    // No destructor runs for a socket that was not made to its end.
    const auto giveUp = [this](const std::string& step) {
        const std::string text = "Unable to connect: " + step + ": " + opensslText(ERR_get_error());
        SSL_CTX_free(ctx);
        platform::closeSocket(socket);
        throw error::ESystemError(text);
    };
    ERR_clear_error();
    ctx = sharedContext();
    if (!ctx)
        giveUp("SSL_CTX_new()");
    ssl = SSL_new(ctx);
    if (!ssl)
        giveUp("SSL_new()");
    SSL_set_bio(ssl, istream.bio, ostream.bio);
    SSL_ctrl(ssl, SSL_CTRL_MODE, SSL_MODE_AUTO_RETRY, nullptr);
}

SSLSocket::~SSLSocket()
{
    // What this makes stays unsent. A handshake under way leaves an error in the queue.
    SSL_shutdown(ssl);
    ERR_clear_error();
    SSL_free(ssl);
    istream.bio = ostream.bio = nullptr;
    SSL_CTX_free(ctx);
    if (socket == platform::SocketHandle::invalid)
        assertion("Socket handle invalid in socket destructor");
    platform::shutdown(socket, platform::SD_BOTH);
    platform::closeSocket(socket);
    socket = platform::SocketHandle::invalid;
}

void SSLSocket::prepareSubProcess()
{
    assertion("SSLSocket cannot prepareSubProcess");
}

void SSLSocket::changed()
{
    istream.changed();
    ostream.changed();
}

void SSLSocket::fail(const std::string& text)
{
    if (failure.empty())
        failure = text;
    changed();
}

// Without new input a step does nothing, so it may be taken at any time.
void SSLSocket::stepHandshake(Side side)
{
    ERR_clear_error();
    const int r = connect_pending ? SSL_connect(ssl) : SSL_accept(ssl);
    const int result = SSL_get_error(ssl, r);
    if (r > 1)
        assertion("Unknown return code from SSL connect/accept");
    if (r == 1) {
        connect_pending = accept_pending = false;
        changed();
    } else if (result == SSL_ERROR_WANT_READ) {
        if (side == Side::output) {
            ostream.want_read = true;
            istream.issueOverlapped();
            // No answer can come any more, and it is the output stream that is waited for.
            if (istream.error != 0) {
                ostream.error = istream.error;
                changed();
            }
        }
    } else if (result == SSL_ERROR_WANT_WRITE) {
        if (side == Side::input)
            istream.want_write = true;
    } else {
        const std::string where =
            side == Side::input ? "SSL Connect/Accept failed:" : "Connect/Accept failed:";
        if (const unsigned long code = ERR_get_error(); code != 0)
            fail(where + opensslText(code));
        else if (result != SSL_ERROR_SYSCALL)
            fail(where + "Non-syscall SSL error");
        else if (r != 0)
            fail(where + lastSystemErrorText());
        else
            fail(where + "Other end closed connection (EOS)");
    }
}

// ---- Receiving -----------------------------------------------------------------------------

SSLSocket::SSL_Socket_IStream::SSL_Socket_IStream(SSLSocket* owningSocket,
                                                  SSL_Socket_OStream* counterpart)
    : owner(owningSocket),
      other(counterpart),
      bio(newMemoryBio("IStream")),
      header_left(recordHeaderSize)
{
    overlapped.event = this;
}

SSLSocket::SSL_Socket_IStream::~SSL_Socket_IStream()
{
    BIO_free(bio);
    while (read_pending)
        platform::sleepEx(platform::INFINITE);
}

std::string SSLSocket::SSL_Socket_IStream::name() const
{
    return "SSL_Socket_IStream(" + owner->peer + ")";
}

bool SSLSocket::SSL_Socket_IStream::isReady()
{
    if (error != 0 || !owner->failure.empty() || at_end)
        return true;
    return read_pos != end_pos && !owner->isHeldUp();
}

void SSLSocket::SSL_Socket_IStream::issueOverlapped()
{
    if (error != 0 || !owner->failure.empty())
        return;
    if (read_pos != end_pos && !other->want_read)
        return;
    if (want_write) {
        want_write = false;
        other->issueOverlapped();
        return;
    }
    if (read_pending)
        return;
    const std::uint32_t failed =
        startError(platform::wsaRecv(owner->socket, cipher, receiveSize(), &overlapped, received));
    if (failed != 0) {
        error = failed;
        owner->changed();
        return;
    }
    read_pending = true;
}

std::uint32_t SSLSocket::SSL_Socket_IStream::receiveSize() const
{
    if (SSL_pending(owner->ssl) > 0)
        return 1;
    return header_left != 0 ? header_left : std::min<std::uint32_t>(record_left, sizeof cipher);
}

// Keeps track of the records. What was received lies within a header or within a body.
void SSLSocket::SSL_Socket_IStream::countReceived(std::uint32_t n)
{
    if (header_left != 0) {
        // The length of the body is in the last two bytes of the header.
        for (std::uint32_t i = 0; i < n; ++i)
            record_left = (record_left << 8 | static_cast<unsigned char>(cipher[i])) & 0xFFFF;
        header_left -= n;
    } else {
        record_left -= n;
    }
    if (header_left == 0 && record_left == 0)
        header_left = recordHeaderSize;
}

void SSLSocket::SSL_Socket_IStream::received(std::uint32_t e, std::uint32_t n,
                                             platform::Overlapped* overlapped)
{
    auto* const stream = static_cast<SSL_Socket_IStream*>(overlapped->event);
    if (!stream->read_pending)
        assertion("Unsolicited callback in SSL_Socket_IStream");
    stream->read_pending = false;
    // In the destructor, the state of TLS and the other stream are gone already.
    if (stream->owner->socket == platform::SocketHandle::invalid)
        return;
    stream->error = e;
    stream->owner->changed();
    if (e == 0)
        stream->takeCipherText(n);
}

void SSLSocket::SSL_Socket_IStream::takeCipherText(std::uint32_t n)
{
    if (n == 0) {
        if (owner->connect_pending)
            owner->fail("SSL connect failed:Other end closed connection (EOS)");
        else
            at_end = true;
        return;
    }
    countReceived(n);
    ERR_clear_error();
    const int written = BIO_write(bio, cipher, static_cast<int>(n));
    if (written < 1)
        return owner->fail(opensslText(ERR_get_error()));
    if (static_cast<std::uint32_t>(written) != n)
        assertion("Mismatch in BIO write");
    if (owner->inHandshake())
        owner->stepHandshake(Side::input);
    else
        decrypt();
    if (BIO_ctrl_pending(other->bio) != 0)
        other->issueOverlapped();
}

void SSLSocket::SSL_Socket_IStream::decrypt()
{
    // A buffer that is full has its next turn with the next receive.
    const auto room = static_cast<int>(buffer + sizeof buffer - end_pos);
    if (room == 0)
        return;
    ERR_clear_error();
    const int r = SSL_read(owner->ssl, end_pos, room);
    switch (SSL_get_error(owner->ssl, r)) {
    case SSL_ERROR_NONE:
        end_pos += r;
        break;
    case SSL_ERROR_WANT_READ:
        break;
    case SSL_ERROR_WANT_WRITE:
        want_write = true;
        break;
    case SSL_ERROR_ZERO_RETURN:
        at_end = true;
        break;
    default:
        owner->fail(firstErrorOr("Non SSL error on IStream"));
    }
}

void SSLSocket::SSL_Socket_IStream::check()
{
    if (read_pos != end_pos)
        return;
    if (at_end)
        throw EEndOfStream(this, "");
    if (error != 0)
        throwSystemError(error, "IO error on SSL_Socket_IStream");
    if (!owner->failure.empty())
        throw error::ESystemError("SSL_Socket_IStream: " + owner->failure);
}

std::uint64_t SSLSocket::SSL_Socket_IStream::readBegin(char** data)
{
    check();
    *data = read_pos;
    return static_cast<std::uint64_t>(end_pos - read_pos);
}

void SSLSocket::SSL_Socket_IStream::readCommit(std::uint64_t count)
{
    const auto unread = static_cast<std::uint64_t>(end_pos - read_pos);
    if (count > unread)
        overcommit("Socket_IStream", count, count - unread);
    read_pos += count;
    if (read_pos == end_pos)
        read_pos = end_pos = buffer;
    owner->changed();
}

void SSLSocket::SSL_Socket_IStream::close()
{
    check();
    owner->shutdown_pending = true;
    owner->changed();
}

// ---- Sending -------------------------------------------------------------------------------

SSLSocket::SSL_Socket_OStream::SSL_Socket_OStream(SSLSocket* owningSocket,
                                                  SSL_Socket_IStream* counterpart)
    : owner(owningSocket), other(counterpart), bio(newMemoryBio("OStream"))
{
    overlapped.event = this;
}

SSLSocket::SSL_Socket_OStream::~SSL_Socket_OStream()
{
    BIO_free(bio);
    while (write_pending)
        platform::sleepEx(platform::INFINITE);
}

std::string SSLSocket::SSL_Socket_OStream::name() const
{
    return "SSL_Socket_OStream(" + owner->peer + ")";
}

bool SSLSocket::SSL_Socket_OStream::isReady()
{
    if (!owner->failure.empty() || error != 0)
        return true;
    if (BIO_ctrl_pending(bio) != 0 || send_pos != fill_pos)
        return false;
    return !owner->isHeldUp();
}

void SSLSocket::SSL_Socket_OStream::issueOverlapped()
{
    if (error != 0 || !owner->failure.empty())
        return;
    if (send_pos == fill_pos && BIO_ctrl_pending(bio) == 0 && !other->want_write &&
        !owner->isHeldUp())
        return;
    if (write_pending)
        return;
    if (BIO_ctrl_pending(bio) == 0 && owner->inHandshake()) {
        want_read = false;
        owner->stepHandshake(Side::output);
    }
    if (cipher_pos != cipher_end)
        assertion("Send buffer not empty in SSL_Socket_OStream::issueOverlapped");
    if (BIO_ctrl_pending(bio) == 0 && !owner->inHandshake())
        encrypt();
    if (BIO_ctrl_pending(bio) == 0)
        return;

    ERR_clear_error();
    const int taken = BIO_read(bio, cipher, sizeof cipher);
    if (taken == 0)
        return;
    if (taken < 0)
        return owner->fail("Error reading from BIO in SSL_Socket_OStream");
    cipher_end = cipher + taken;
    issueSocketWrite();
}

void SSLSocket::SSL_Socket_OStream::encrypt()
{
    want_read = false;
    if (send_pos == fill_pos)
        return;
    ERR_clear_error();
    const int r = SSL_write(owner->ssl, send_pos, static_cast<int>(fill_pos - send_pos));
    switch (SSL_get_error(owner->ssl, r)) {
    case SSL_ERROR_NONE:
        send_pos += r;
        if (send_pos == fill_pos)
            send_pos = fill_pos = buffer;
        break;
    case SSL_ERROR_WANT_READ:
        want_read = true;
        other->issueOverlapped();
        break;
    case SSL_ERROR_WANT_WRITE:
        break;
    default:
        owner->fail(firstErrorOr("Non-SSL error in SSL_Socket_OStream::issueOverlapped"));
    }
}

void SSLSocket::SSL_Socket_OStream::issueSocketWrite()
{
    if (write_pending)
        assertion("SSL_Socket_OStream::issueSocketWrite called with a write already issued");
    const std::uint32_t failed = startError(
        platform::wsaSend(owner->socket, cipher_pos,
                          static_cast<std::uint32_t>(cipher_end - cipher_pos), &overlapped, sent));
    if (failed != 0) {
        error = failed;
        owner->changed();
        return;
    }
    write_pending = true;
}

void SSLSocket::SSL_Socket_OStream::sent(std::uint32_t e, std::uint32_t n,
                                         platform::Overlapped* overlapped)
{
    auto* const stream = static_cast<SSL_Socket_OStream*>(overlapped->event);
    if (!stream->write_pending)
        assertion("Unsolicited callback in SSL_Socket_OStream");
    stream->write_pending = false;
    if (stream->owner->socket == platform::SocketHandle::invalid)
        return;
    stream->error = e;
    stream->owner->changed();
    if (e != 0)
        return;
    stream->cipher_pos += n;
    if (stream->cipher_pos == stream->cipher_end)
        stream->cipher_pos = stream->cipher_end = stream->cipher;
    else
        stream->issueSocketWrite();
}

void SSLSocket::SSL_Socket_OStream::check()
{
    if (error != 0)
        throwSystemError(error, "SSL_Socket_OStream");
    if (!owner->failure.empty())
        throw error::ESystemError(owner->failure);
}

std::uint64_t SSLSocket::SSL_Socket_OStream::writeBegin(char** space)
{
    check();
    *space = fill_pos;
    return static_cast<std::uint64_t>(buffer + sizeof buffer - fill_pos);
}

void SSLSocket::SSL_Socket_OStream::writeCommit(std::uint64_t count)
{
    const auto room = static_cast<std::uint64_t>(buffer + sizeof buffer - fill_pos);
    if (count > room)
        overcommit("SSL_Socket_OStream", count, count - room);
    fill_pos += count;
    owner->changed();
}

void SSLSocket::SSL_Socket_OStream::close()
{
    check();
    owner->shutdown_pending = true;
    owner->changed();
}

}  // namespace io
