// What an action gives, or the text of the failure that it throws.
#pragma once

#include <string>

template <class Failure, class Action>
std::string outcome(Action&& action)
{
    try {
        return action();
    } catch (const Failure& e) {
        return e.text();
    }
}
