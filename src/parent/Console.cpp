#include "parent/Console.h"

#include <algorithm>
#include <cstddef>

namespace parent {

void Console::line(const std::string& text)
{
    erase();
    err << text << '\n' << std::flush;
}

void Console::progress(const std::string& text)
{
    if (!showsProgress())
        return;
    // A full last column would move the cursor to the next line, out of reach of the "\r".
    const auto room = static_cast<std::size_t>(std::max(width - 1, 1));
    err << "\r\x1b[K" << text.substr(0, room) << std::flush;
    progressShown = true;
}

void Console::erase()
{
    if (progressShown)
        err << "\r\x1b[K" << std::flush;
    progressShown = false;
}

}  // namespace parent
