// Recordings, written and read.

#include "dump/Recording.h"
#include "tests/support/Process.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

using dump::Entry;
using Kind = dump::Entry::Kind;
using namespace std::string_literals;

const std::string twoEntries =
    "NETCHKR1"
    "\x01\0\0\0\x01\0\0\0\x00\x80\xC6\xA4\x7E\x8D\x03\x00\x05\0\0\0alive"
    "\x03\0\0\0\x02\x01\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x02\0\0\0ok"s;
const std::vector<Entry> theTwo = {{Kind::fromWorker, 1, 1'000'000'000'000'000, "alive"},
                                   {Kind::ended, 258, -1, "ok"}};

// Reads the bytes in pieces of this size. Tells what is bad and where, or "cut", or "".
std::string read(std::string_view bytes, std::size_t piece, std::vector<Entry>* entries)
{
    dump::RecordingReader reader;
    try {
        for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size()))) {
            reader.append(bytes.substr(0, piece));
            for (Entry entry; reader.next(&entry);)
                entries->push_back(entry);
        }
    } catch (const dump::EBadRecording& e) {
        return e.text() + ", " + std::to_string(e.offset);
    }
    return reader.inEntry() ? "cut" : "";
}

TEST(Recording, IsReadInPiecesUpToAnyEndAndRefusedWhereItIsBad)
{
    std::vector<std::tuple<std::string, std::string, std::ptrdiff_t>> cases;  // what comes of which
    for (std::size_t size = 0; size <= twoEntries.size(); ++size) {
        const bool whole = size == 8 || size == 33 || size == twoEntries.size();
        cases.emplace_back(twoEntries.substr(0, size), whole ? "" : "cut",
                           (size >= 33) + (size == twoEntries.size()));
        EXPECT_EQ(dump::isRecording(twoEntries.substr(0, size)), size >= 8);
    }
    const auto changed = [&](std::size_t at, const std::string& to, const char* trouble) {
        cases.emplace_back(std::string(twoEntries).replace(at, to.size(), to), trouble, at >= 33);
    };
    changed(7, "2", "it doesn't begin with NETCHKR1, 0");
    changed(33, "\x04", "an entry of kind 4, 33");
    changed(37, "\0\0\0\0"s, "an entry of worker 0, 37");
    changed(24, "\x01\0\x10\0"s, "an entry of 1048577 bytes, 24");
    changed(49, "\xFF\xFF\xFF\xFF", "an entry of 4294967295 bytes, 49");
    changed(33, "\x02", "the start of a worker with 2 bytes, 49");
    for (const auto& [bytes, trouble, count] : cases) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, twoEntries.size()}) {
            std::vector<Entry> entries;
            EXPECT_EQ(read(bytes, piece, &entries), trouble) << bytes.size() << " by " << piece;
            EXPECT_EQ(entries, std::vector<Entry>(theTwo.begin(), theTwo.begin() + count));
        }
    }
}

TEST(Recording, HoldsWhatWasWrittenWithLongPiecesCut)
{
    const support::TemporaryDirectory directory;
    std::ofstream(directory.path("it")) << std::string(5'000'000, 'x');  // to be overwritten
    const std::string full(Entry::maximumBytes, 'a');
    dump::RecordingWriter writer(directory.path("it"), {});
    writer.write(Kind::toWorker, 258, full + "b\0"s);
    writer.write(Kind::ended, 258, full + "b");
    std::ostringstream bytes;  // while the writer has not closed the file
    bytes << std::ifstream(directory.path("it")).rdbuf();
    std::vector<Entry> entries;
    EXPECT_EQ(read(bytes.str(), 100'000, &entries), "");
    for (Entry& entry : entries) {
        EXPECT_NEAR(static_cast<double>(entry.time), 4.4e15, 2.8e15);  // 2020 to 2200
        entry.time = 0;
    }
    EXPECT_TRUE(entries == (std::vector<Entry>{{Kind::toWorker, 258, 0, full},
                                               {Kind::toWorker, 258, 0, "b\0"s},
                                               {Kind::ended, 258, 0, full}}));
}

}  // namespace
