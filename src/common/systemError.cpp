#include "common/systemError.h"

#include "common/errors.h"
#include "common/text.h"
#include "platform/Crash.h"
#include "platform/ErrorCode.h"

#include <optional>

namespace {

// The longest text of a code: what fits a buffer of 256 characters with its end.
constexpr std::size_t longestText = 255;

}  // namespace

std::string systemErrorText(std::uint32_t code)
{
    std::optional<std::string> text = platform::errorText(code);
    if (!text) {
        platform::setLastError(platform::ERROR_MR_MID_NOT_FOUND);
        return uintToString(code) + " (FormatMessage: " + uintToString(platform::getLastError()) +
               ")";
    }
    if (text->size() > longestText)
        text->resize(longestText);
    text->erase(text->find_last_not_of("\r\n") + 1);
    return text->empty() ? uintToString(code) : *text;
}

std::string lastSystemErrorText()
{
    return systemErrorText(platform::getLastError());
}

void* loadLibrary(const std::string& name)
{
    void* module = platform::loadLibrary(name.c_str());
    if (module == nullptr)
        throw errors::dlerror("Error loading library \"" + name + "\": " + lastSystemErrorText());
    return module;
}

void* loadFunction(void* module, const std::string& name)
{
    void* function = platform::getProcAddress(module, name.c_str());
    if (function == nullptr) {
        throw errors::dlerror("Error dynamically loading function \"" + name +
                              "\": " + lastSystemErrorText());
    }
    return function;
}
