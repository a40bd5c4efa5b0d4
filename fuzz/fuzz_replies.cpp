// Replies of services, in chunks, as the checks of SMTP, FTP, HTTP, POP3 and IMAP read them.
//
// The first byte picks the length of the chunks. Whatever comes, reading a reply that is complete
// gives the same verdict however its lines were cut into chunks, and what is told about a reply
// lies within it.
#include "checks/FTPNetCheck.h"
#include "checks/HTTPNetCheck.h"
#include "checks/IMAPNetCheck.h"
#include "checks/POP3NetCheck.h"
#include "checks/SMTPNetCheck.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace {

using Kind = ReplyVerdict::Kind;

void require(bool holds)
{
    if (!holds)
        std::abort();
}

void checkVerdict(const ReplyVerdict& verdict, std::string_view reply)
{
    require((verdict.kind == Kind::bad) == (verdict.line != nullptr));
    if (!verdict.code.empty()) {
        require(verdict.kind == Kind::complete && verdict.code.size() == 3);
        require(verdict.code.data() >= reply.data());
        require(verdict.code.data() + 3 <= reply.data() + reply.size());
    }
}

bool same(const ReplyVerdict& a, const ReplyVerdict& b)
{
    return a.kind == b.kind && a.code == b.code &&
           std::string_view(a.line == nullptr ? "" : a.line) == (b.line == nullptr ? "" : b.line);
}

// Reads a growing reply at each line end that a chunk brings, once with what earlier reading has
// left and once from the start.
void readByChunks(ReplyVerdict (*read)(std::string_view, std::size_t*), std::string_view reply,
                  std::size_t chunk)
{
    std::size_t judged = 0;
    for (std::size_t end = std::min(chunk, reply.size());;
         end = std::min(end + chunk, reply.size())) {
        const std::string_view soFar = reply.substr(0, end);
        if (soFar.substr(end - std::min(chunk, end)).ends_with("\r\n")) {
            const ReplyVerdict next = read(soFar, &judged);
            std::size_t none = 0;
            checkVerdict(next, soFar);
            require(same(next, read(soFar, &none)));
            require(judged <= end);
            if (next.kind != Kind::incomplete)
                return;
        }
        if (end == reply.size())
            return;
    }
}

void readHttp(std::string_view reply)
{
    if (const auto code = httpStatusCode(reply))
        require(reply.find(*code) != reply.npos);
    // The header lines are the beginning of the reply, cut into pieces.
    std::string joined;
    for (const std::string& line : httpHeaderLines(reply)) {
        require(!line.empty());
        joined += line;
    }
    require(reply.starts_with(joined));
    const std::string_view rest = reply.substr(joined.size());
    require(rest.empty() || (joined.ends_with("\r\n") && rest.starts_with("\r\n")));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    if (size < 2)
        return 0;
    const std::size_t chunk = bytes[0] % 64U + 1;
    // A block of its own of just this size, so that any look beyond its end is seen.
    const std::unique_ptr<char[]> copy(new char[size - 1]);
    std::copy(bytes + 1, bytes + size, copy.get());
    const std::string_view reply(copy.get(), size - 1);

    readByChunks(readFtpReply, reply, chunk);
    readByChunks(readImapReply, reply, chunk);
    std::size_t continuationLines = 0;
    checkVerdict(readSmtpReply(reply, &continuationLines), reply);
    require(continuationLines * 4 <= reply.size());
    checkVerdict(readPop3Reply(reply), reply);
    readHttp(reply);
    return 0;
}
