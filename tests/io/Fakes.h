// Selectables that tests steer, and how tests take bytes from streams and put them in.
#pragma once

#include "common/errors.h"
#include "io/Selector.h"
#include "io/Stream.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <string>

namespace fakes {

// A foreign selectable. It notes its calls by their first letters.
class Foreign : public io::Selectable {
public:
    std::string name() const override { return "f"; }
    platform::Handle osHandle() override { return handle; }
    bool isReady() override
    {
        calls += 'r';
        return ready;
    }
    void issueOverlapped() override { calls += 'i'; }
    bool wakeTime(Time* out) override
    {
        calls += 'w';
        *out = deadline.value_or(*out);
        return deadline.has_value();
    }

    bool ready = false;
    std::optional<Time> deadline;
    platform::Handle handle = platform::Handle::none;
    std::string calls;
};

class Front : public io::StackedSelectableFront {
public:
    using StackedSelectableFront::StackedSelectableFront;
    std::string name() const override { return "front"; }
    void set(bool isReady) { ready = isReady; }
};

// A back with one front, which gets ready when what is beneath does.
class Back : public io::StackedSelectableBack {
public:
    void underlyingIsReady(io::Selectable* u) override
    {
        if (fails)
            throw error::EFatal("no");
        watchUnderlying(u, false);
        front.set(true);
    }
    using StackedSelectableBack::watchUnderlying;

    bool fails = false;
    Front front{this};
};

inline std::string take(io::IStream& stream)
{
    char* data = nullptr;
    const std::uint64_t count = stream.readBegin(&data);
    std::string taken(data, count);
    stream.readCommit(count);
    return taken;
}

// Puts in as much as there is room for, and says how much that was.
inline std::uint64_t put(io::OStream& stream, const std::string& bytes)
{
    char* space = nullptr;
    const std::uint64_t count = std::min<std::uint64_t>(stream.writeBegin(&space), bytes.size());
    std::copy_n(bytes.data(), count, space);
    stream.writeCommit(count);
    return count;
}

// The text of what the operation throws.
inline std::string thrown(const std::function<void()>& operation)
{
    try {
        operation();
    } catch (const error::Exception& e) {
        return e.text();
    }
    return "";
}

}  // namespace fakes
