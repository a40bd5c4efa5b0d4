#include "io/HandleWatch.h"

#include "io/Selector.h"

#include <typeinfo>
#include <utility>

namespace io {
namespace {

// Its state never changes, so no pass over the members of a selector need ask for it.
[[maybe_unused]] const bool registered = [] {
    registerManagedClass(typeid(HandleWatch));
    return true;
}();

}  // namespace

HandleWatch::HandleWatch(std::string what, platform::Handle watched)
    : description(std::move(what)), handle(watched)
{}

}  // namespace io
