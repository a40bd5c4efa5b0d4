// What the main loop calls when a selectable is ready.
#pragma once

#include "io/Selectable.h"

class Handler {
public:
    Handler() = default;
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;
    virtual ~Handler() = default;

    // `s` became ready: act on it and return. Never waits for the network. What it throws ends
    // the main loop.
    virtual void handle(io::Selectable* s) = 0;
};
