#include "common/errors.h"

#include "common/systemError.h"
#include "platform/ErrorCode.h"

namespace {

const char* statusText(std::int32_t status)
{
    switch (status) {
    case 0:
        return "No error";
    case 1:
        return "Specified ID not found in database";
    case 2:
        return "Pattern matched nothing";
    case 3:
        return "Someone else has updated the object";
    case 4:
        return "Attempted insertion of duplicate value in unique property";
    case 5:
        return "Specified class not allowed as child of given object";
    case 6:
        return "Some required properties is missing";
    case 7:
        return "Requested update of noexistant property";
    case 8:
        return "Requested update of const property";
    case errors::tqlIllegalType:
        return "Property updated with illegal type";
    case 10:
        return "Property updated with illegal value";
    case errors::tqlIncomparable:
        return "Incomparable property";
    case 12:
        return "The pattern is not implemented";
    case 14:
        return "Backend error";
    case 15:
        return "Access denied";
    default:
        return "Unknown error";
    }
}

}  // namespace

std::string errors::tql::text() const
{
    return message.empty() ? statusText(code) : message;
}

void throwSystemError(std::uint32_t code, const std::string& text)
{
    const std::string message = text + ": " + systemErrorText(code);
    switch (code) {
    case platform::ERROR_FILE_NOT_FOUND:
    case platform::ERROR_PATH_NOT_FOUND:
        throw error::EFileNotFoundError(message);
    case platform::ERROR_ALREADY_EXISTS:
        throw error::EFileExistsError(message);
    default:
        throw error::ESystemError(message);
    }
}
