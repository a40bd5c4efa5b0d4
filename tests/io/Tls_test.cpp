// TLS sockets against servers of every conduct, driven by a selector as checks drive them.
#include "common/systemError.h"
#include "io/Tls.h"
#include "tests/io/Fakes.h"
#include "tests/support/ScriptedServer.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <list>

namespace {

using fakes::put;
using fakes::take;
using fakes::thrown;
using support::ScriptedServer;
using support::step;
using support::Tls;

constexpr std::uint32_t loopback = 0x0100007f;  // 127.0.0.1 as it lies on the wire
constexpr Tls versions[] = {Tls::v12, Tls::v13};
const support::Step expectHello = step::expectThrough("\x16\x03\x01");

struct Client {
    explicit Client(std::uint16_t port) : connector(loopback, port) {}

    io::SocketConnector connector;
    io::SSLSocket socket{(connector.waitReady(), connector)};
    io::SSLSocket::SSL_Socket_IStream& in = socket.istream;
    io::SSLSocket::SSL_Socket_OStream& out = socket.ostream;
};

TEST(Tls, ShowsAGreetingThatComesWithTheHandshakeUntilItIsClosed)
{
    for (const Tls version : versions) {
        // Two records, in the segment of the server's last bytes of the handshake.
        ScriptedServer server({step::send("greeting", 4), step::silence()}, version);
        Client client(server.port());
        client.out.issueOverlapped();  // starts the handshake, which then goes on by itself
        client.in.waitReady();
        EXPECT_EQ(server.waitFor(0, "", [](auto&) { return true; }).version,
                  version == Tls::v12 ? "TLSv1.2" : "TLSv1.3");
        EXPECT_EQ(take(client.in), "gree");
        client.in.waitReady();
        EXPECT_EXIT(client.in.readCommit(9), testing::KilledBySignal(SIGABRT),
                    "Overcommit in Socket_IStream 9 is 5 bytes past end of buffer\n$");
        EXPECT_EXIT(client.out.writeCommit(4099), testing::KilledBySignal(SIGABRT),
                    "Overcommit in SSL_Socket_OStream 4099 is 3 bytes past end of buffer\n$");
        EXPECT_TRUE(client.in.isReady() && client.out.isReady());
        version == Tls::v12 ? client.in.close() : client.out.close();
        client.out.issueOverlapped();  // with nothing to send
        EXPECT_FALSE(client.in.isReady() || client.out.isReady());
        EXPECT_EQ(take(client.in), "ting");
    }
}

// Writes the request, then reads to the end or to a failure.
struct Dialogue {
    std::unique_ptr<Client> client;
    std::string request, reply;
    std::string end;  // what is thrown
    std::string received = {};
};

// One that ends in its handshake leaves errors behind that no other socket may take for its own.
TEST(Tls, CarriesAllDataAndThenTheEndWhileOthersFail)
{
    // A size, and how much of it is shown if the server closes without a word: what the buffer has
    // no room for comes out with what follows, and nothing does.
    const std::pair<std::size_t, std::size_t> rows[] = {{1, 1},        {4095, 4095},  {4096, 4096},
                                                        {4097, 4096},  {10000, 4096}, {16384, 4096},
                                                        {40000, 36864}};
    ScriptedServer resetting({expectHello, step::reset()});
    ScriptedServer silent({step::silence()});
    std::list<ScriptedServer> servers;
    std::list<Client> stalled;
    std::list<Dialogue> dialogues;
    io::Selector<Dialogue*> selector;
    std::string bytes;
    for (int i = 0; i < 28; ++i) {
        const auto& [size, sizeShownThen] = rows[i / 4];
        while (bytes.size() < size)
            bytes += std::to_string(bytes.size());
        bytes.resize(size);
        const std::size_t shown = i % 2 == 0 ? size : sizeShownThen;
        const support::Script script = {step::expect(bytes), step::send(bytes),
                                        i % 2 == 0 ? step::closeNotify() : step::halfClose(),
                                        step::expectEnd()};
        const auto port = servers.emplace_back(script, versions[i / 2 % 2]).port();
        dialogues.push_back(
            {std::make_unique<Client>(port), bytes, bytes.substr(0, shown),
             "EOS from SSL_Socket_IStream(127.0.0.1:" + std::to_string(port) + ")"});
        dialogues.push_back({std::make_unique<Client>(resetting.port()), bytes, "",
                             "SSL_Socket_OStream: " + systemErrorText(10054)});
        stalled.emplace_back(silent.port()).out.issueOverlapped();
    }
    for (Dialogue& dialogue : dialogues)
        selector.add(&dialogue.client->out, &dialogue);
    for (std::size_t left = dialogues.size(); left != 0;) {
        const auto polled = selector.poll();
        Dialogue& d = *polled.second;
        const std::string end = thrown([&] {
            if (polled.first == &d.client->in) {
                d.received += take(d.client->in);
            } else if (!d.request.empty()) {
                d.request.erase(0, put(d.client->out, d.request));
            } else {
                selector.remove(&d.client->out);
                selector.add(&d.client->in, &d);
            }
        });
        if (end.empty())
            continue;
        EXPECT_EQ(end, d.end);
        EXPECT_TRUE(d.received == d.reply) << d.reply.size();
        selector.remove(polled.first);
        if (left-- % 2 == 0)
            stalled.pop_back();
    }
}

TEST(Tls, TellsBothStreamsWhatWentWrong)
{
    const support::RefusingPort refusing;
    EXPECT_THROW(Client(refusing.port()), io::EConnection);
    const std::string reset = systemErrorText(10054);
    const std::string handshake = "SSL Connect/Accept failed:";
    const std::string badVersion = "error:0A00010B:SSL routines::wrong version number";
    const struct {
        std::string failure;  // empty: reset
        support::Script script;
        Tls tls = Tls::none;
    } cases[] = {
        {"SSL connect failed:Other end closed connection (EOS)",
         {expectHello, step::halfClose(), step::silence()}},
        {handshake + badVersion, {step::send("220 hello, but not in TLS\r\n"), step::silence()}},
        {handshake + "error:0A000410:SSL routines::sslv3 alert handshake failure",
         {expectHello, step::send({"\x15\x03\x03\x00\x02\x02\x28", 7})}},
        {"", {expectHello, step::reset()}},
        {"", {step::expect("x"), step::reset()}, Tls::v12},
        {badVersion, {step::expect("x"), step::sendBare("hello"), step::silence()}, Tls::v13},
    };
    for (const auto& [failure, script, tls] : cases) {
        SCOPED_TRACE(failure);
        ScriptedServer server(script, tls);
        Client client(server.port());
        io::Selectable *const in = &client.in, *const out = &client.out;
        for (io::Selectable* next : {out, out, in, out}) {
            next->waitReady();
            thrown([&] { put(client.out, std::string(4096, 'x')); });
        }
        const std::uint64_t started = platform::operationsStarted();
        for (const bool closes : {false, true}) {
            in->issueOverlapped();
            out->issueOverlapped();
            EXPECT_TRUE(in->isReady() && out->isReady());
            EXPECT_EQ(thrown([&] { closes ? client.in.close() : void(take(client.in)); }),
                      failure.empty() ? "IO error on SSL_Socket_IStream: " + reset
                                      : "SSL_Socket_IStream: " + failure);
            EXPECT_EQ(thrown([&] { closes ? client.out.close() : void(put(client.out, "z")); }),
                      failure.empty() ? "SSL_Socket_OStream: " + reset : failure);
        }
        EXPECT_EQ(platform::operationsStarted(), started);
    }
}

TEST(Tls, CanBeDestroyedAtAnyMoment)
{
    ScriptedServer server({step::expect("x"), step::send(std::string(9000, '.')), step::silence()},
                          Tls::v12);
    for (std::size_t moment = 0; moment < 8; ++moment) {
        Client client(server.port());
        const std::function<void()> steps[] = {
            [&] { client.out.issueOverlapped(); },  // has sent, and not been told so
            [&] { platform::sleepEx(platform::INFINITE); },
            // In the midst of the handshake.
            [&] { client.out.issueOverlapped(), platform::sleepEx(platform::INFINITE); },
            [&] { client.out.waitReady(); },
            [&] { put(client.out, "x"), client.out.issueOverlapped(); },
            [&] { server.waitFor(moment, "x", [](auto& talk) { return talk.received == "x"; }); },
            [&] { client.in.issueOverlapped(); },  // has received, and not been told so
        };
        for (std::size_t i = 0; i < moment; ++i)
            steps[i]();
    }
}

TEST(Tls, ReadsNoConfigurationFile)
{
    const std::string file = testing::TempDir() + "openssl_" + std::to_string(getpid());
    std::ofstream(file) << "openssl_conf=a\n[a]\nssl_conf=b\n[b]\nsystem_default=c\n"
                           "[c]\nMaxProtocol=TLSv1.2\n";
    setenv("OPENSSL_CONF", file.c_str(), 1);
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // in a process that has not used OpenSSL
    const auto connectNewest = [&] {
        io::loadOpenSsl();
        ScriptedServer server({step::silence()}, Tls::v13);
        Client(server.port()).out.waitReady();
        std::filesystem::remove(file);
        _exit(server.waitForPeerEnd().version == "TLSv1.3" ? 0 : 1);
    };
    EXPECT_EXIT(connectNewest(), testing::ExitedWithCode(0), "");
    unsetenv("OPENSSL_CONF");
    std::filesystem::remove(file);
}

}  // namespace
