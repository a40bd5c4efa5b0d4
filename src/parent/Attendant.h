// Who acts when a selectable of the main loop is ready.
#pragma once

#include "io/HandleWatch.h"
#include "io/Selector.h"

namespace parent {

class Attendant {
public:
    virtual void ready(io::Selectable* s) = 0;

protected:
    ~Attendant() = default;
};

using MainSelector = io::Selector<Attendant*>;

using io::HandleWatch;

}  // namespace parent
