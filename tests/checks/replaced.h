// Texts of tests with a short form for what is long or not known when they are written.
#pragma once

#include <string>
#include <string_view>

// The text with `by` wherever it has `what`.
inline std::string replaced(std::string text, std::string_view what, std::string_view by)
{
    for (std::size_t at = 0; (at = text.find(what, at)) != text.npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}
