#include "platform/Proactor.h"

#include "platform/Clock.h"

#include <csignal>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace platform {

namespace {

constexpr std::uint32_t hangUps = EPOLLRDHUP | EPOLLHUP | EPOLLERR;
constexpr std::uint32_t inputEdges = EPOLLIN | EPOLLRDHUP | EPOLLET;
constexpr std::uint32_t bothEdges = inputEdges | EPOLLOUT;

bool isSocketMadeHere(Medium medium)
{
    return medium == Medium::stream || medium == Medium::datagram;
}

Outcome transfer(Descriptor& descriptor, Direction direction, ErrorSource source)
{
    return isSocketMadeHere(descriptor.medium) ? transferSocket(descriptor, direction, source)
                                               : transferPipe(descriptor, direction);
}

bool isArmed(const Operation& operation)
{
    return operation.state == Operation::State::armed;
}

constexpr std::int64_t nanosecondsPerMs = 1'000'000;

// So many waits in a row can go without a look at the kernel's events, if they have no time and
// routines are due.
constexpr unsigned mostWaitsWithoutEvents = 8;

std::int64_t nowNs()
{
    std::int64_t count = 0;
    queryPerformanceCounter(&count);
    return count;
}

}  // namespace

Proactor& Proactor::instance()
{
    static Proactor* const proactor = new Proactor;
    return *proactor;
}

Proactor::Proactor()
{
    prepareStandardDescriptors();
    // A write to a dead pipe fails; it doesn't end the process.
    std::signal(SIGPIPE, SIG_IGN);
    openEpoll();
}

// ---- Descriptors

// Tried again at each use while it fails: the process may be short of descriptors just now.
int Proactor::openEpoll()
{
    if (epoll < 0)
        epoll = epoll_create1(EPOLL_CLOEXEC);
    return epoll < 0 ? errno : 0;
}

int Proactor::control(int command, Token token, const Descriptor& descriptor, std::uint32_t wanted)
{
    if (const int failure = openEpoll())
        return failure;
    epoll_event event{};
    event.events = wanted;
    event.data.u64 = token;
    return epoll_ctl(epoll, command, descriptor.fd, &event) == 0 ? 0 : errno;
}

Token Proactor::insert(int fd, Medium medium)
{
    const Token token = descriptors.insert();
    Descriptor& descriptor = *descriptors.find(token);
    descriptor.fd = fd;
    descriptor.medium = medium;
    return token;
}

std::uint32_t Proactor::registerEdges(Token token, Descriptor& descriptor)
{
    if (descriptor.registered)
        return ERROR_SUCCESS;
    // Only streams and channels want to hear of room at all times. A datagram socket would report
    // it after every datagram that has left; see arm().
    const bool wantsRoom =
        descriptor.medium == Medium::stream || descriptor.medium == Medium::channel;
    const std::uint32_t wanted = wantsRoom ? bothEdges : inputEdges;
    if (const int failure = control(EPOLL_CTL_ADD, token, descriptor, wanted))
        return errorCode(failure, ErrorSource::socket);
    descriptor.registered = true;
    return ERROR_SUCCESS;
}

int Proactor::arm(Token token, Descriptor& descriptor)
{
    if (descriptor.medium == Medium::stream)
        return 0;
    if (descriptor.medium == Medium::datagram) {
        if (!isArmed(descriptor.write))
            return 0;
        return control(EPOLL_CTL_MOD, token, descriptor, bothEdges);
    }

    std::uint32_t wanted = EPOLLONESHOT;
    if (isArmed(descriptor.read))
        wanted |= EPOLLIN;
    if (isArmed(descriptor.write))
        wanted |= EPOLLOUT;
    const int command = descriptor.registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (const int failure = control(command, token, descriptor, wanted))
        return failure;
    descriptor.registered = true;
    return 0;
}

bool Proactor::close(Token token)
{
    Descriptor* const descriptor = descriptors.find(token);
    if (!descriptor)
        return false;

    // First out of epoll: as long as another process has the same open file, closing alone would
    // leave it registered, with nobody able to take it out.
    if (descriptor->registered)
        epoll_ctl(epoll, EPOLL_CTL_DEL, descriptor->fd, nullptr);

    // What is under way ends now. What has finished already needs nothing: runQueue sees that
    // its descriptor is gone.
    for (const Direction direction : {Direction::read, Direction::write}) {
        if (isArmed(descriptor->operation(direction)))
            finish(token, *descriptor, direction, ERROR_OPERATION_ABORTED, 0);
    }

    const Token object = descriptor->waitable;
    if (Waitable* waitable = waitables.find(object)) {
        waitable->descriptor = 0;
        if (descriptor->medium == Medium::stream)
            connectEnded(object, ERROR_OPERATION_ABORTED);
        else if (descriptor->medium == Medium::listener)
            eraseWaitable(object);
    }

    const int fd = descriptor->fd;
    descriptors.erase(token);
    closeDescriptor(fd);
    return true;
}

// ---- Operations

Proactor::Start Proactor::start(Token token, Direction direction, const Operation& request)
{
    Descriptor& descriptor = *descriptors.find(token);
    Operation& operation = descriptor.operation(direction);
    if (operation.state != Operation::State::idle || !request.routine) {
        setLastError(ERROR_INVALID_PARAMETER);
        return Start::failed;
    }
    operation = request;

    Outcome outcome = transfer(descriptor, direction, ErrorSource::socket);
    if (outcome.kind == Outcome::Kind::blocked) {
        operation.state = Operation::State::armed;
        const int failure = arm(token, descriptor);
        if (failure == 0)
            return Start::pending;
        operation.state = Operation::State::idle;
        outcome = Outcome::failed(errorCode(failure, ErrorSource::file));
        if (failure == EPERM && descriptor.medium == Medium::pipe) {
            // epoll refuses what never blocks.
            descriptor.medium = Medium::file;
            outcome = transfer(descriptor, direction, ErrorSource::socket);
        }
    }
    switch (outcome.kind) {
    case Outcome::Kind::moved:
        finish(token, descriptor, direction, outcome.error, outcome.bytes);
        return Start::finished;
    case Outcome::Kind::failed:
        setLastError(outcome.error);
        return Start::failed;
    case Outcome::Kind::blocked:
        break;
    }
    // It blocks, and there is no way to learn when it does no more.
    setLastError(ERROR_IO_DEVICE);
    return Start::failed;
}

void Proactor::retry(Token token, Descriptor& descriptor, Direction direction)
{
    if (!isArmed(descriptor.operation(direction)))
        return;
    const Outcome outcome = transfer(descriptor, direction, ErrorSource::socketCompletion);
    if (outcome.kind != Outcome::Kind::blocked)
        finish(token, descriptor, direction, outcome.error, outcome.bytes);
}

void Proactor::finish(Token token, Descriptor& descriptor, Direction direction, std::uint32_t error,
                      std::uint32_t bytes)
{
    Operation& operation = descriptor.operation(direction);
    operation.state = Operation::State::finished;
    queue.push({token, direction, error, bytes, operation.overlapped, operation.routine});
}

void Proactor::runQueue()
{
    // What the routines start themselves has to wait for the next wait, or a busy stream could
    // keep this one for ever.
    for (std::size_t present = queue.size(); present > 0 && !queue.empty(); --present) {
        Completion completion = queue.pop();
        if (Descriptor* descriptor = descriptors.find(completion.descriptor)) {
            descriptor->operation(completion.direction).state = Operation::State::idle;
        } else {
            completion.error = ERROR_OPERATION_ABORTED;
            completion.bytes = 0;
        }
        completion.routine(completion.error, completion.bytes, completion.overlapped);
    }
}

// ---- Events

void Proactor::handleEvent(Token token, std::uint32_t reported)
{
    Descriptor* const descriptor = descriptors.find(token);
    if (!descriptor)
        return;
    switch (descriptor->medium) {
    case Medium::file:
    case Medium::pipe:
    case Medium::pipeSocket:
        handleSharedEvent(token, *descriptor);
        return;
    case Medium::stream:
    case Medium::datagram:
        handleSocketEvent(token, *descriptor, reported);
        return;
    case Medium::listener:
    case Medium::notifier:
    case Medium::channel:
        if (Waitable* waitable = waitables.find(descriptor->waitable))
            setSignalled(*waitable, true);
        return;
    }
}

void Proactor::handleSharedEvent(Token token, Descriptor& descriptor)
{
    retry(token, descriptor, Direction::read);
    retry(token, descriptor, Direction::write);
    // The event has used up the registration.
    if (!isArmed(descriptor.read) && !isArmed(descriptor.write))
        return;
    const int failure = arm(token, descriptor);
    if (failure == 0)
        return;
    for (const Direction direction : {Direction::read, Direction::write}) {
        if (isArmed(descriptor.operation(direction)))
            finish(token, descriptor, direction, errorCode(failure, ErrorSource::file), 0);
    }
}

void Proactor::handleSocketEvent(Token token, Descriptor& descriptor, std::uint32_t reported)
{
    if (reported & (EPOLLIN | hangUps))
        descriptor.readable = true;
    if (reported & (EPOLLOUT | EPOLLHUP | EPOLLERR))
        descriptor.writable = true;
    if (reported & hangUps)
        descriptor.hungUp = true;
    if (descriptor.waitable != 0)
        finishConnect(descriptor, reported);
    // Reading first: a write that meets a reset would take the error away from what has been
    // received before it.
    retry(token, descriptor, Direction::read);
    retry(token, descriptor, Direction::write);
    if (descriptor.medium == Medium::datagram && (reported & EPOLLOUT) &&
        !isArmed(descriptor.write))
        control(EPOLL_CTL_MOD, token, descriptor, inputEdges);
}

bool Proactor::takeEvents(std::uint32_t timeoutMs)
{
    if (const int failure = openEpoll()) {
        setLastError(errorCode(failure, ErrorSource::file));
        return false;
    }
    const int limit =
        timeoutMs == INFINITE ? -1 : static_cast<int>(std::min<std::uint32_t>(timeoutMs, INT_MAX));
    ++calls.waits;
    const int count = epoll_wait(epoll, batch.data(), static_cast<int>(batch.size()), limit);
    if (count < 0 && errno != EINTR) {
        setLastError(errorCode(errno, ErrorSource::file));
        return false;
    }
    for (int i = 0; i < count; ++i)
        handleEvent(batch[static_cast<std::size_t>(i)].data.u64,
                    batch[static_cast<std::size_t>(i)].events);
    return true;
}

// ---- Waits

void Proactor::connectEnded(Token waitable, std::uint32_t code)
{
    connectEnds.push_back({waitable, code});
}

void Proactor::tellConnectEnds()
{
    // Only those present: `ended` may start connects that fail at once.
    for (std::size_t present = connectEnds.size(); present > 0; --present) {
        const ConnectEnd end = connectEnds.front();
        connectEnds.pop_front();
        Waitable* waitable = waitables.find(end.waitable);
        if (!waitable || !waitable->ended)
            continue;
        const auto ended = waitable->ended;
        waitable->ended = nullptr;
        ended(waitable->context, end.code);
        // It may have closed the object.
        waitable = waitables.find(end.waitable);
        if (waitable)
            setSignalled(*waitable, true);
    }
}

std::uint32_t Proactor::wait(WaitList::Impl* list, std::uint32_t timeoutMs)
{
    const bool limited = timeoutMs != INFINITE;
    const std::int64_t deadline =
        limited && timeoutMs != 0 ? nowNs() + timeoutMs * nanosecondsPerMs : 0;
    std::uint32_t remaining = timeoutMs;
    for (;;) {
        if (list && list->deadEntries != 0) {
            setLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
        // Events are taken in even if there is something to hand out already: a stream that
        // never runs dry must not keep the others waiting. A few waits without time, such as those
        // for log lines, can go without.
        const bool routinesWait = !queue.empty();
        const bool somethingThere =
            routinesWait || !connectEnds.empty() || (list && !list->signalled.empty());
        if (routinesWait && timeoutMs == 0 && waitsWithoutEvents < mostWaitsWithoutEvents) {
            ++waitsWithoutEvents;
        } else {
            waitsWithoutEvents = 0;
            if (!takeEvents(somethingThere ? 0 : remaining))
                return WAIT_FAILED;
        }
        tellConnectEnds();
        if (list && !list->signalled.empty())
            return static_cast<std::uint32_t>(*list->signalled.begin());
        if (!queue.empty()) {
            runQueue();
            return WAIT_IO_COMPLETION;
        }
        // What came concerned nobody who waits here, or nothing came.
        if (limited) {
            const std::int64_t left = timeoutMs == 0 ? 0 : deadline - nowNs();
            if (left <= 0)
                return WAIT_TIMEOUT;
            remaining =
                static_cast<std::uint32_t>((left + nanosecondsPerMs - 1) / nanosecondsPerMs);
        }
    }
}

}  // namespace platform
