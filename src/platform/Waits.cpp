// Waitable objects, the lists in which they stand, and the waits.

#include "platform/Proactor.h"

#include <algorithm>

namespace platform {

// ---- Waitable objects

void Proactor::setSignalled(Waitable& waitable, bool signalled)
{
    if (waitable.signalled == signalled)
        return;
    waitable.signalled = signalled;
    for (const Waitable::Place& place : waitable.places) {
        if (signalled)
            place.list->signalled.insert(place.index);
        else
            place.list->signalled.erase(place.index);
    }
}

void Proactor::eraseWaitable(Token token)
{
    Waitable* const waitable = waitables.find(token);
    if (!waitable)
        return;
    for (const Waitable::Place& place : waitable->places) {
        place.list->signalled.erase(place.index);
        place.list->entries[place.index].dead = true;
        ++place.list->deadEntries;
    }
    waitables.erase(token);
}

Token Proactor::insertNotifier(int fd, std::uint32_t* code, Medium medium)
{
    const Token token = insert(fd, medium);
    Descriptor& descriptor = *find(token);
    *code = registerEdges(token, descriptor);
    if (*code != ERROR_SUCCESS) {
        close(token);
        return 0;
    }
    descriptor.waitable = insertWaitable();
    Waitable& waitable = *findWaitable(descriptor.waitable);
    waitable.descriptor = token;
    waitable.ownsDescriptor = true;
    return descriptor.waitable;
}

bool closeHandle(Handle handle)
{
    Proactor& proactor = Proactor::instance();
    const Token token = tokenOf(handle);

    if (Waitable* waitable = proactor.findWaitable(token)) {
        const auto ended = waitable->ended;
        void* const context = waitable->context;
        const Token descriptorToken = waitable->descriptor;
        const bool ownsDescriptor = waitable->ownsDescriptor;
        proactor.eraseWaitable(token);
        Descriptor* const descriptor = proactor.find(descriptorToken);
        if (descriptor && descriptor->waitable == token) {
            descriptor->waitable = 0;
            if (ownsDescriptor)
                proactor.close(descriptorToken);
        }
        if (ended)
            ended(context, ERROR_OPERATION_ABORTED);
        return true;
    }

    if (const Descriptor* descriptor = proactor.find(token)) {
        const Medium medium = descriptor->medium;
        if (medium == Medium::file || medium == Medium::pipe || medium == Medium::pipeSocket)
            return proactor.close(token);
    }
    setLastError(ERROR_INVALID_HANDLE);
    return false;
}

// ---- Lists

namespace {

using Place = Waitable::Place;

Waitable* objectOf(const WaitList::Impl::Entry& entry)
{
    return entry.dead ? nullptr : Proactor::instance().findWaitable(tokenOf(entry.handle));
}

std::vector<Place>::iterator placeOf(Waitable& waitable, const WaitList::Impl* list,
                                     std::size_t index)
{
    return std::find_if(waitable.places.begin(), waitable.places.end(), [=](const Place& place) {
        return place.list == list && place.index == index;
    });
}

}  // namespace

WaitList::WaitList() : impl(std::make_unique<Impl>())
{}

WaitList::~WaitList()
{
    for (const Impl::Entry& entry : impl->entries) {
        if (Waitable* waitable = objectOf(entry))
            std::erase_if(waitable->places,
                          [this](const Place& place) { return place.list == impl.get(); });
    }
}

std::size_t WaitList::size() const
{
    return impl->entries.size();
}

Handle WaitList::operator[](std::size_t index) const
{
    return impl->entries[index].handle;
}

bool WaitList::isSignalled(std::size_t index) const
{
    return impl->signalled.contains(index);
}

void WaitList::append(Handle handle)
{
    const std::size_t index = impl->entries.size();
    Waitable* const waitable = Proactor::instance().findWaitable(tokenOf(handle));
    impl->entries.push_back({handle, waitable == nullptr});
    if (!waitable) {
        ++impl->deadEntries;
        return;
    }
    waitable->places.push_back({impl.get(), index});
    if (waitable->signalled)
        impl->signalled.insert(index);
}

void WaitList::removeSwapLast(std::size_t index)
{
    const std::size_t last = impl->entries.size() - 1;
    if (Waitable* waitable = objectOf(impl->entries[index]))
        waitable->places.erase(placeOf(*waitable, impl.get(), index));
    if (impl->entries[index].dead)
        --impl->deadEntries;
    impl->signalled.erase(index);

    if (index != last) {
        if (Waitable* moved = objectOf(impl->entries[last]))
            placeOf(*moved, impl.get(), last)->index = index;
        if (impl->signalled.erase(last) != 0)
            impl->signalled.insert(index);
        impl->entries[index] = impl->entries[last];
    }
    impl->entries.pop_back();
}

// ---- Waits

std::uint32_t waitForMultipleObjectsEx(const WaitList& handles, std::uint32_t timeoutMs)
{
    return Proactor::instance().wait(handles.impl.get(), timeoutMs);
}

std::uint32_t sleepEx(std::uint32_t timeoutMs)
{
    const std::uint32_t result = Proactor::instance().wait(nullptr, timeoutMs);
    return result == WAIT_TIMEOUT ? 0 : result;
}

std::uint64_t operationsStarted()
{
    return Proactor::instance().operationsStarted;
}

SystemCallCounts systemCallCounts()
{
    return Proactor::instance().calls;
}

}  // namespace platform
