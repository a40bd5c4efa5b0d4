#include "dump/Dump.h"

#include "common/text.h"

#include <algorithm>

namespace dump {

namespace {

// A value that makes a frame bad shows that within so many bytes.
constexpr std::size_t longestJudged = 48;

bool isBad(std::string_view bytes)
{
    try {
        queues::walkFrame(bytes);
        return false;
    } catch (const queues::EBadFrame&) {
        return true;
    }
}

// The bytes of a bad frame up to the end of what is bad in it, so that what is shown doesn't
// depend on how much has come behind.
std::string_view judged(std::string_view bytes, std::size_t badOffset)
{
    std::size_t good = std::min(bytes.size(), badOffset);
    std::size_t bad = std::min(bytes.size(), badOffset + longestJudged);
    if (isBad(bytes.substr(0, good)))
        return bytes.substr(0, good);
    while (bad - good > 1) {
        const std::size_t middle = good + (bad - good) / 2;
        (isBad(bytes.substr(0, middle)) ? bad : good) = middle;
    }
    return bytes.substr(0, bad);
}

}  // namespace

void FrameStream::append(std::string_view bytes, const Source& source, View& view)
{
    if (!understood)
        return;
    if (begin > buffer.size() - begin) {
        buffer.erase(0, begin);
        begin = 0;
    }
    buffer.append(bytes);
    while (understood && buffer.size() - begin >= wanted && showNext(source, view)) {
    }
}

void FrameStream::finish(const Source& source, View& view)
{
    const std::string_view unread = std::string_view(buffer).substr(begin);
    if (!understood || unread.empty())
        return;
    try {
        const queues::WalkedFrame walked = queues::walkFrame(unread);
        understood = false;
        view.badFrame(source, {.offset = offset,
                               .bytes = unread,
                               .place = walked.place,
                               .why = "only " + sizeToString(unread.size()) + " of at least " +
                                      sizeToString(walked.size) + " bytes of the frame have come",
                               .cut = true});
    } catch (const queues::EBadFrame& e) {
        refuse(source, view, e);
    }
}

bool FrameStream::showNext(const Source& source, View& view)
{
    const std::string_view unread = std::string_view(buffer).substr(begin);
    try {
        const queues::WalkedFrame walked = queues::walkFrame(unread);
        wanted = walked.whole ? 1 : walked.size;
        if (!walked.whole)
            return false;
        view.event(source, offset, unread.substr(0, walked.size));
        begin += walked.size;
        offset += walked.size;
        return true;
    } catch (const queues::EBadFrame& e) {
        refuse(source, view, e);
        return false;
    }
}

void FrameStream::refuse(const Source& source, View& view, const queues::EBadFrame& e)
{
    const std::string_view unread = std::string_view(buffer).substr(begin);
    understood = false;
    view.badFrame(source, {.offset = offset,
                           .bytes = judged(unread, e.place.offset),
                           .place = e.place,
                           .why = e.text()});
    buffer = {};
    begin = 0;
}

void Dump::append(std::string_view bytes)
{
    if (started) {
        take(bytes);
        return;
    }
    // No frame is so short that it would have to be shown before.
    head += bytes;
    if (head.size() >= recordingStart) {
        started = true;
        recorded = isRecording(head);
        take(head);
    }
}

void Dump::finish()
{
    if (!started)
        take(head);
    stream.finish({}, view);
    understood = understood && stream.isUnderstood();
    if (recorded && !recordingIsBad && reader.inEntry())
        refuseRecording({"it is cut off within an entry", reader.offset()});
    while (!streams.empty())
        finishWorker({.recorded = true, .time = lastTime, .worker = streams.begin()->first.first});
}

void Dump::take(std::string_view bytes)
{
    if (recorded)
        takeRecorded(bytes);
    else
        stream.append(bytes, {}, view);
}

void Dump::takeRecorded(std::string_view bytes)
{
    if (recordingIsBad)
        return;
    reader.append(bytes);
    try {
        for (Entry entry; reader.next(&entry);)
            takeEntry(entry);
    } catch (const EBadRecording& e) {
        refuseRecording(e);
    }
}

void Dump::takeEntry(const Entry& entry)
{
    lastTime = entry.time;
    const Source source{.recorded = true,
                        .time = entry.time,
                        .worker = entry.worker,
                        .toWorker = entry.kind == Entry::Kind::toWorker};
    switch (entry.kind) {
    case Entry::Kind::toWorker:
    case Entry::Kind::fromWorker:
        streams[{source.worker, source.toWorker}].append(entry.bytes, source, view);
        break;
    case Entry::Kind::started:
        finishWorker(source);
        view.started(source);
        break;
    case Entry::Kind::ended:
        finishWorker(source);
        view.ended(source, entry.bytes);
        break;
    }
}

// Nothing more of the worker comes.
void Dump::finishWorker(Source source)
{
    for (const bool toWorker : {true, false}) {
        const auto found = streams.find({source.worker, toWorker});
        if (found == streams.end())
            continue;
        source.toWorker = toWorker;
        found->second.finish(source, view);
        understood = understood && found->second.isUnderstood();
        streams.erase(found);
    }
}

void Dump::refuseRecording(const EBadRecording& e)
{
    recordingIsBad = true;
    understood = false;
    view.badRecording(e.offset, e.text());
}

}  // namespace dump
