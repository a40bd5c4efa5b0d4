#include "checks/ParentHandler.h"

#include "checks/DNSNetCheck.h"
#include "checks/FTPNetCheck.h"
#include "checks/GenTCPNetCheck.h"
#include "checks/HTTPNetCheck.h"
#include "checks/IMAPNetCheck.h"
#include "checks/NetCheck.h"
#include "checks/POP3NetCheck.h"
#include "checks/SMTPNetCheck.h"
#include "common/assertion.h"
#include "common/log.h"
#include "common/text.h"
#include "io/Stream.h"
#include "queues/event.h"
#include "queues/records/services.h"
#include "queues/typeForms.h"

#include <cstdint>
#include <iterator>

namespace {

using Request = queues::devent<queues::CHECK_REQUEST, remcheck::remcheck_conf>;
using Result = queues::devent<queues::CHECK_RESULT, services::remcheck_stat>;

using MakeCheck = std::unique_ptr<NetCheck> (*)(io::Selector<Handler*>*, ParentHandler*,
                                                const remcheck::remcheck_conf&);

template <class Check>
std::unique_ptr<NetCheck> make(io::Selector<Handler*>* selector, ParentHandler* parent,
                               const remcheck::remcheck_conf& conf)
{
    return std::make_unique<Check>(selector, parent, conf);
}

struct CheckType {
    std::int32_t service;  // as the request names it
    MakeCheck make;
};

const CheckType checkTypes[] = {
    {services::SERVICE_HTTP, make<HTTPNetCheck>},  {services::SERVICE_DNS, make<DNSNetCheck>},
    {services::SERVICE_SMTP, make<SMTPNetCheck>},  {services::SERVICE_POP3, make<POP3NetCheck>},
    {services::SERVICE_TCP, make<GenTCPNetCheck>}, {services::SERVICE_FTP, make<FTPNetCheck>},
    {services::SERVICE_IMAP, make<IMAPNetCheck>},
};

MakeCheck findCheckType(std::int32_t service)
{
    for (const CheckType& type : checkTypes) {
        if (type.service == service)
            return type.make;
    }
    assertion("Unknown check type");
}

}  // namespace

ParentHandler::ParentHandler(io::Selector<Handler*>* mainSelector) : selector(mainSelector)
{}

ParentHandler::~ParentHandler()
{
    for (std::unique_ptr<NetCheck>& check : checks)
        check.reset();
}

void ParentHandler::handle(io::Selectable*)
{
    std::unique_ptr<queues::event> received;
    try {
        parentQueue->receive(received);
    } catch (const io::EEndOfStream&) {
        done = true;
        selector->remove(parentQueue->inputFront());
        return;
    }

    const auto* request = dynamic_cast<const Request*>(received.get());
    if (request == nullptr)
        assertion("Wrong event received from parent");
    schedule(request->data);
}

void ParentHandler::schedule(const remcheck::remcheck_conf& conf)
{
    if (traceWanted())
        log("Scheduling check of type " + intToString(conf.service), logTrace);

    const MakeCheck makeCheck = findCheckType(conf.service);
    checks.push_back(makeCheck(selector, this, conf));
    NetCheck* check = checks.back().get();
    index.emplace(check, std::prev(checks.end()));
    // Comes last: a check that ends within its launch is gone when this returns.
    check->launch();
}

void ParentHandler::checkFinished(NetCheck* check)
{
    const auto found = index.find(check);
    if (found == index.end())
        assertion("Results from unknown netcheck");

    const Result result(queues::queue_t::none, 0, check->status());
    parentQueue->send(result);

    const Checks::iterator place = found->second;
    index.erase(found);
    place->reset();
    checks.erase(place);
}
