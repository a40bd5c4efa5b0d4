#include "parent/CheckOptions.h"

#include "common/errors.h"
#include "common/shown.h"
#include "common/text.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <utility>

namespace parent {

namespace {

std::string namesOf(bool (*belongs)(const TargetKind&))
{
    std::string names;
    for (const TargetKind& kind : targetKinds()) {
        if (belongs(kind))
            names += (names.empty() ? "" : ", ") + std::string(kind.name);
    }
    return names;
}

bool takesUrl(const TargetKind& kind)
{
    return kind.path == TargetPath::url;
}

bool takesLogin(const TargetKind& kind)
{
    return kind.login;
}

bool lacksPassword(const Check& check)
{
    return !check.target.user.empty() && !check.target.password;
}

bool isHostHeader(const std::string& text)
{
    if (text.find_first_of("/?#@%") != std::string::npos)
        return false;
    try {
        parseTarget("http://" + text);
        return true;
    } catch (const error::EParseError&) {
        return false;
    }
}

// What a header can hold: no control characters, and something.
bool isHeaderText(const std::string& text)
{
    return !text.empty() && std::none_of(text.begin(), text.end(), [](unsigned char byte) {
        return byte < 0x20 || byte == 0x7F;
    });
}

// The first line of the file, without its line end. Throws error::EParseError with what is wrong.
std::string readPassword(const std::string& path)
{
    std::error_code why;
    const auto status = std::filesystem::status(path, why);
    if (why)
        throw error::EParseError(why.message());
    if (std::filesystem::is_directory(status))
        throw error::EParseError("it is a directory");
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw error::EParseError("it can't be read");

    // Room for the longest password, a carriage return and the closing zero byte.
    std::array<char, maximumLoginText + 2> line{};
    file.getline(line.data(), line.size());
    if (file.bad())
        throw error::EParseError("it can't be read");
    if (file.fail() && file.gcount() != 0)
        throw error::EParseError("the password has more than " + sizeToString(maximumLoginText) +
                                 " bytes");
    // The line end counts as read, but isn't stored.
    const auto length = static_cast<std::size_t>(file.gcount()) - (file.eof() ? 0 : 1);
    std::string password(line.data(), file.fail() ? 0 : length);
    if (password.ends_with('\r'))
        password.pop_back();
    if (password.empty())
        throw error::EParseError("its first line is empty");
    const std::string problem = loginProblem(password);
    if (!problem.empty())
        throw error::EParseError("the password " + problem);
    return password;
}

class Applying {
public:
    Applying(const CheckOptions& given, std::vector<Check>* all) : options(given), checks(*all) {}

    OptionsVerdict run()
    {
        applyHttp();
        applyPassword();
        return verdict;
    }

private:
    void refuse(const std::string& option, const std::string& why)
    {
        verdict.reasons.push_back(option + ": " + why);
    }

    // Whether the option was given, and can do something.
    bool isOn(const char* option, const std::optional<std::string>& value, bool needs11 = false)
    {
        const bool useful = std::any_of(checks.begin(), checks.end(), [](const Check& check) {
            return takesUrl(*check.target.kind);
        });
        if (value && !useful)
            refuse(option, "goes with targets of the kinds " + urlKinds() + ", and there is none");
        else if (value && needs11 && !http.version11)
            refuse(option, "a request of HTTP/1.0 is sent without headers");
        return value && useful;
    }

    void applyHttp()
    {
        if (isOn("--http-version", options.httpVersion)) {
            http.version11 = *options.httpVersion != "1.0";
            if (http.version11 && *options.httpVersion != "1.1")
                refuse("--http-version", quoted(*options.httpVersion) + " is neither 1.0 nor 1.1");
        }
        takePattern("--status-regex", options.statusRegex, &http.statusRegex);
        takePattern("--content-regex", options.contentRegex, &http.contentRegex);
        if (isOn("--user-agent", options.userAgent, true)) {
            http.userAgent = *options.userAgent;
            if (!isHeaderText(http.userAgent))
                refuse("--user-agent",
                       quoted(http.userAgent) + " is empty or holds control characters");
        }
        if (isOn("--host-header", options.hostHeader, true)) {
            http.hostHeader = *options.hostHeader;
            if (!isHostHeader(http.hostHeader))
                refuse("--host-header", quoted(http.hostHeader) + " is no HOST[:PORT]");
        }
        if (!verdict.reasons.empty())
            return;
        for (Check& check : checks) {
            if (takesUrl(*check.target.kind))
                applyHttpTo(&check);
        }
    }

    void takePattern(const char* option, const std::optional<std::string>& value, std::string* into)
    {
        if (!isOn(option, value))
            return;
        const std::string problem = regexProblem(*value);
        if (!problem.empty())
            refuse(option, quoted(*value) + ": " + problem);
        *into = *value;
    }

    void applyHttpTo(Check* check)
    {
        check->http = http;
        const Target& target = check->target;
        const std::string asked = requestedUrl(target, http);
        if (!requestFits(target, http))
            refuse(shown(target.text), "the worker has no room for a request of that length");
        else if (!asksForTheSame(asked, target.url))
            refuse(shown(target.text), "with HTTP/1.1 the worker would ask for " + quoted(asked) +
                                           ", which is something else; give --http-version 1.0, "
                                           "or a URL that it keeps");
        else if (asked != target.url)
            verdict.notes.push_back(shown(target.text) + ": the worker asks for " + quoted(asked));
    }

    void applyPassword()
    {
        if (!options.passwordFile)
            return;
        const char* const option = "--password-file";
        if (std::none_of(checks.begin(), checks.end(), lacksPassword)) {
            refuse(option, "goes with targets of the kinds " + loginKinds() +
                               " that name a user without a password, and there is none");
            return;
        }
        try {
            const std::string password = readPassword(*options.passwordFile);
            for (Check& check : checks) {
                if (lacksPassword(check))
                    check.target.password = password;
            }
        } catch (const error::EParseError& e) {
            refuse(option, quoted(*options.passwordFile) + ": " + e.text());
        }
    }

    static std::string quoted(const std::string& text) { return "'" + shown(text) + "'"; }

    const CheckOptions& options;
    std::vector<Check>& checks;
    HttpOptions http;
    OptionsVerdict verdict;
};

}  // namespace

OptionsVerdict applyOptions(const CheckOptions& options, std::vector<Check>* checks)
{
    return Applying(options, checks).run();
}

std::string urlKinds()
{
    return namesOf(takesUrl);
}

std::string loginKinds()
{
    return namesOf(takesLogin);
}

}  // namespace parent
