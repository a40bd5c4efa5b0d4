// The output forms: how outcomes and the summary are told.
//
//   table   a header, an aligned row for each outcome as it comes, and a summary, for people
//   json    JSON Lines: one object for each outcome as it comes, and nothing else; the summary
//           goes to the console
//   plugin  one line at the end, as monitoring plugins print it: state, text, performance data
//
// What the network said is escaped in the table and the plugin line; JSON has escapes of its own,
// and bytes that are no UTF-8 become U+FFFD there.
#pragma once

#include "parent/Console.h"
#include "parent/Outcome.h"

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace parent {

class Report {
public:
    // Neither is owned.
    Report(std::ostream& stream, Console& messages) : out(stream), console(messages) {}
    virtual ~Report() = default;
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    // Before the first outcome. `rounds`: the checks may be made more than once. The checks must
    // live as long as the report.
    virtual void begin(const std::vector<Check>& checks, bool rounds) = 0;
    virtual void add(const Outcome& outcome) = 0;
    // After the last one.
    virtual void end(const Summary& summary) = 0;
    // Nothing could be started: says why, a line a reason, and that is all the report.
    virtual void refuse(const std::vector<std::string>& reasons);
    // Of the process: by the worst outcome; 3 if the run could not go on, 130 if the user
    // interrupted it.
    virtual int exitCode(const Summary& summary) const;
    // False once the output can't be written any more.
    bool written() const { return out.good(); }

protected:
    // Writes at once, with the progress line out of the way.
    void write(const std::string& text);

    std::ostream& out;
    Console& console;
};

enum class Format { table, json, plugin };

// The report writes to `out` and the console, and owns neither. `colour` serves the table alone.
std::unique_ptr<Report> makeReport(Format format, std::ostream& out, Console& console, bool colour);

// "2024-02-29T12:00:00Z" from seconds since 1970 UTC; empty outside the years 0 to 9999.
std::string isoTime(std::int64_t seconds);

}  // namespace parent
