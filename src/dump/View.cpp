#include "dump/View.h"

#include "common/shown.h"
#include "common/text.h"
#include "dump/BytesAround.h"
#include "dump/FieldTable.h"
#include "dump/JsonFrame.h"
#include "dump/Value.h"
#include "io/Memory.h"
#include "queues/event.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <streambuf>
#include <utility>

namespace dump {

namespace {

constexpr std::uint64_t microseconds = 1'000'000;  // in a second

// How many values in front of a bad one are shown.
constexpr std::size_t rowsInFront = 6;

// "-0.500000"
std::string secondsText(std::int64_t time)
{
    const bool negative = time < 0;
    const auto size =
        negative ? 0 - static_cast<std::uint64_t>(time) : static_cast<std::uint64_t>(time);
    const std::string fraction = uint64ToString(size % microseconds);
    return (negative ? "-" : "") + uint64ToString(size / microseconds) + "." +
           std::string(6 - fraction.size(), '0') + fraction;
}

// "2024-02-29T12:00:00.000000Z", or seconds outside the years 0 to 9999.
std::string dateText(std::int64_t time)
{
    constexpr std::int64_t firstSecond = -62'167'219'200;  // 0000-01-01 00:00:00
    constexpr std::int64_t lastSecond = 253'402'300'799;   // 9999-12-31 23:59:59
    const std::chrono::sys_time<std::chrono::microseconds> moment{std::chrono::microseconds(time)};
    const auto seconds = std::chrono::floor<std::chrono::seconds>(moment);
    if (seconds.time_since_epoch().count() < firstSecond ||
        seconds.time_since_epoch().count() > lastSecond)
        return secondsText(time) + " s";
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(moment - day);
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%06dZ",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()),
                  static_cast<int>(clock.subseconds().count()));
    return text.data();
}

const char* directionOf(const Source& source)
{
    return source.toWorker ? "to worker" : "from worker";
}

std::string workerText(const Source& source)
{
    return std::string(directionOf(source)) + " " + uintToString(source.worker);
}

// Passes lines on through printable(): the print form leaves bytes above 127 as they are.
class PrintableLines final : public std::streambuf {
public:
    explicit PrintableLines(std::ostream& stream) : out(stream) {}

protected:
    int_type overflow(int_type c) override
    {
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            const char character = traits_type::to_char_type(c);
            xsputn(&character, 1);
        }
        return traits_type::not_eof(c);
    }

    std::streamsize xsputn(const char* text, std::streamsize count) override
    {
        std::string_view rest(text, static_cast<std::size_t>(count));
        for (std::size_t end = 0; (end = rest.find('\n')) != std::string_view::npos;) {
            line += rest.substr(0, end);
            out << printable(line) << '\n';
            line.clear();
            rest.remove_prefix(end + 1);
        }
        line += rest;
        return count;
    }

private:
    std::ostream& out;
    std::string line;  // its beginning
};

std::unique_ptr<queues::event> decoded(std::string_view frame)
{
    io::MemoryIStream source;
    source.setBytes(frame);
    protocol::ioprim link(&source, nullptr);
    std::unique_ptr<queues::event> event;
    link >> event;
    return event;
}

std::int32_t numberOf(std::string_view frame)
{
    std::int32_t number = 0;
    std::memcpy(&number, frame.data(), sizeof number);
    return number;
}

class TextView : public View {
public:
    using View::View;

    void event(const Source& source, std::uint64_t offset, std::string_view frame) override
    {
        const std::unique_ptr<queues::event> event = decoded(frame);
        const std::int32_t number = numberOf(frame);
        // Any event can carry an exception, and prints as one then.
        heading(source, offset, frame,
                event->type == number ? "" : ", type " + eventName(static_cast<event_t>(number)));
        PrintableLines lines(out);
        std::ostream stream(&lines);
        queues::printEvent(stream, *event);
        out << '\n';
    }

    void started(const Source& source) override { workerLine(source, "started"); }
    void ended(const Source& source, const std::string& how) override { workerLine(source, how); }

protected:
    void heading(const Source& source, std::uint64_t offset, std::string_view frame,
                 const std::string& more = "")
    {
        if (source.recorded)
            out << dateText(source.time) << ' ' << workerText(source) << ", ";
        out << "offset " << offsetText(offset) << ", " << sizeToString(frame.size()) << " bytes"
            << more << '\n';
    }

private:
    void workerLine(const Source& source, const std::string& what)
    {
        out << dateText(source.time) << " worker " << uintToString(source.worker) << ' '
            << printable(what) << "\n\n";
    }
};

class FieldsView final : public TextView {
public:
    using TextView::TextView;

    void event(const Source& source, std::uint64_t offset, std::string_view frame) override
    {
        heading(source, offset, frame);
        FieldTable table(frame, [&](const FieldRow& row) { out << row.text(offset) << '\n'; });
        queues::walkFrame(frame, &table);
        out << '\n';
    }
};

class JsonView final : public View {
public:
    using View::View;

    void event(const Source& source, std::uint64_t offset, std::string_view frame) override
    {
        std::string members = R"("offset":)" + uint64ToString(offset) + R"(,"size":)" +
                              sizeToString(frame.size()) + ",";
        if (source.recorded)
            members += sourceMembers(source) + R"(,"direction":")" + directionOf(source) + R"(",)";
        JsonFrame object(out, members);
        queues::walkFrame(frame, &object);
        out << '\n';
    }

    void started(const Source& source) override
    {
        out << "{" << sourceMembers(source) << R"(,"state":"started"})" << '\n';
    }

    void ended(const Source& source, const std::string& how) override
    {
        out << "{" << sourceMembers(source) << R"(,"state":"ended","how":)" << jsonText(how)
            << "}\n";
    }

    void badFrame(const Source& source, const BadFrame& bad) override
    {
        out << R"({"error":)" << jsonText(bad.why) << R"(,"offset":)" << uint64ToString(bad.offset)
            << R"(,"fieldOffset":)" << uint64ToString(bad.offset + bad.place.offset);
        if (source.recorded)
            out << ',' << sourceMembers(source) << R"(,"direction":")" << directionOf(source)
                << '"';
        out << R"(,"event":)";
        if (bad.place.number == 0)
            out << R"(null,"type":null)";
        else
            out << '"' << eventName(static_cast<event_t>(bad.place.number)) << R"(","type":)"
                << intToString(bad.place.number);
        out << R"(,"field":)" << jsonText(bad.place.field) << "}\n";
        View::badFrame(source, bad);
    }

    void badRecording(std::uint64_t offset, const std::string& why) override
    {
        out << R"({"error":)" << jsonText(why) << R"(,"recordingOffset":)" << uint64ToString(offset)
            << "}\n";
        View::badRecording(offset, why);
    }

private:
    static std::string sourceMembers(const Source& source)
    {
        return R"("time":)" + secondsText(source.time) + R"(,"worker":)" +
               uintToString(source.worker);
    }
};

// What was read in front of the bad place.
std::string rowsBefore(const BadFrame& bad)
{
    std::deque<FieldRow> rows;
    bool more = false;
    FieldTable table(bad.bytes, [&](const FieldRow& row) {
        rows.push_back(row);
        if (rows.size() > rowsInFront) {
            rows.pop_front();
            more = true;
        }
    });
    try {
        queues::walkFrame(bad.bytes, &table);
    } catch (const queues::EBadFrame&) {
        // It is known to be bad: the rows up to there are what is wanted.
    }
    std::string text = more ? "  ...\n" : "";
    for (const FieldRow& row : rows)
        text += "  " + row.text(bad.offset) + "\n";
    return text;
}

}  // namespace

void View::badFrame(const Source& source, const BadFrame& bad)
{
    out.flush();
    err << "netcheck-dump: ";
    if (source.recorded)
        err << workerText(source) << ": ";
    err << "the frame at offset " << offsetText(bad.offset)
        << (bad.cut ? " is cut off: " : " can't be decoded: ");
    if (bad.place.number != 0)
        err << eventName(static_cast<event_t>(bad.place.number)) << ", ";
    err << "field " << printable(bad.place.field) << " at offset "
        << offsetText(bad.offset + bad.place.offset) << ": " << printable(bad.why) << '\n';
    const std::string rows = rowsBefore(bad);
    if (!rows.empty())
        err << "read of it:\n" << rows;
    err << "bytes there:\n" << bytesAround(bad.bytes, bad.offset, bad.offset + bad.place.offset);
    if (!bad.cut)
        err << "Frames don't tell their length, so nothing behind this one can be understood.\n";
    if (bad.place.field == "type" && bad.offset != 0)
        err << "As its type is wrong already, the frame in front of it is longer or shorter than "
               "its sender meant.\n";
    err << std::flush;
}

void View::badRecording(std::uint64_t offset, const std::string& why)
{
    out.flush();
    err << "netcheck-dump: the recording can't be read on at offset " << offsetText(offset) << ": "
        << printable(why) << '\n'
        << std::flush;
}

std::unique_ptr<View> makeView(Form form, std::ostream& out, std::ostream& err)
{
    switch (form) {
    case Form::fields:
        return std::make_unique<FieldsView>(out, err);
    case Form::json:
        return std::make_unique<JsonView>(out, err);
    case Form::text:
        break;
    }
    return std::make_unique<TextView>(out, err);
}

}  // namespace dump
