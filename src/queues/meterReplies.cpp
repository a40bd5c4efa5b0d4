// How metrics answer, and the one that metering keeps about itself.
#include "common/assertion.h"
#include "common/meter.h"
#include "queues/childqueue.h"
#include "queues/records/control.h"

namespace {

meter::Group metering(nullptr, "metering");
const meter::MicroSecondTiming meteringTime(&metering, "time", "Time spent in metering routines");

// Sends the payload of event N as the answer to the request.
template <event_t N, class T>
void answer(const queues::event& request, const T& payload)
{
    if (parentQueue == nullptr)
        assertion("A metric replied without a queue");
    parentQueue->send(queues::devent<N, T>(request.dest, request.inresponse, payload));
}

}  // namespace

namespace meter {

void IntegerCounter::reply(const queues::event& request) const
{
    answer<queues::RETURN_METRIC_UINT64>(request, value);
}

void Timing::reply(const queues::event& request) const
{
    answer<queues::RETURN_METRIC_TIMING>(
        request, control::Return_Metric_Timing_Data{
                     .n = n, .min = min, .max = max, .sum = sum, .sum_squares = sum_squares});
}

}  // namespace meter
