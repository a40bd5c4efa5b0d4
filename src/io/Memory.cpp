#include "io/Memory.h"

#include "common/assertion.h"

namespace io {

std::uint64_t MemoryIStream::readBegin(char** data)
{
    if (unread.empty())
        throw EEndOfStream(this, "");
    // Readers only read, whatever the type of the contract says.
    *data = const_cast<char*>(unread.data());
    return unread.size();
}

void MemoryIStream::readCommit(std::uint64_t count)
{
    if (count > unread.size())
        assertion("Overcommit in MemoryIStream");
    unread.remove_prefix(count);
}

std::string_view MemoryOStream::bytes() const
{
    return std::string_view(buffer).substr(begin, end - begin);
}

void MemoryOStream::take(std::size_t count)
{
    if (count > end - begin)
        assertion("More taken from MemoryOStream than it holds");
    begin += count;
    if (begin == end) {
        buffer.clear();
        begin = end = 0;
    }
}

std::uint64_t MemoryOStream::writeBegin(char** space)
{
    // Moving the bytes to the front only when as many have been taken keeps its cost in
    // proportion to what passes through.
    if (begin > step && begin > end - begin) {
        buffer.erase(0, begin);
        end -= begin;
        begin = 0;
    }
    if (buffer.size() < end + step)
        buffer.resize(end + step);
    *space = buffer.data() + end;
    return buffer.size() - end;
}

void MemoryOStream::writeCommit(std::uint64_t count)
{
    if (count > buffer.size() - end)
        assertion("Overcommit in MemoryOStream");
    end += count;
}

}  // namespace io
