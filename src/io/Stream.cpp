#include "io/Stream.h"

#include "common/assertion.h"
#include "common/text.h"

#include <utility>

namespace io {

void overcommit(const char* stream, std::uint64_t count, std::uint64_t beyond)
{
    assertion(std::string("Overcommit in ") + stream + " " + uint64ToString(count) + " is " +
              uint64ToString(beyond) + " bytes past end of buffer");
}

EEndOfStream::EEndOfStream(Selectable* stream, std::string why)
    : source(stream), detail(std::move(why)), source_name(stream->name())
{}

std::string EEndOfStream::text() const
{
    std::string text = "EOS from " + source_name;
    if (!detail.empty())
        text += " (" + detail + ")";
    return text;
}

ENotReady::ENotReady(const Selectable* selectable)
    : source_name(selectable ? selectable->name() : "<unknown>")
{}

std::string ENotReady::text() const
{
    return "Selectable " + source_name + " not ready";
}

}  // namespace io
