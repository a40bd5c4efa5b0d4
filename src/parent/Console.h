// Messages and the progress line on standard error.
//
// The progress line stands at the bottom of a terminal, is rewritten in place, and must be erased
// before anything else is written to the same terminal, to standard output too. Without a
// terminal there is none.
#pragma once

#include <ostream>
#include <string>

namespace parent {

class Console {
public:
    // `columns`: width of the terminal; 0 if the stream is none.
    Console(std::ostream& stream, int columns) : err(stream), width(columns) {}

    // One message of the program: its name in front, and a line end behind. The text must be fit
    // to be shown.
    void message(const std::string& text) { line("netcheckctl: " + text); }
    void line(const std::string& text);

    bool showsProgress() const { return width > 0; }
    void progress(const std::string& text);
    void erase();

private:
    std::ostream& err;
    int width;
    bool progressShown = false;
};

}  // namespace parent
