// The one object that talks to the parent: takes requests, runs a check for each, sends results.
//
// It keeps no schedule: a check starts the moment its request arrives, any number run at once,
// and results go out in the order in which the checks end.
#pragma once

#include "checks/Handler.h"
#include "io/Selector.h"
#include "queues/childqueue.h"
#include "queues/records/remcheck.h"

#include <list>
#include <memory>
#include <unordered_map>

class NetCheck;

class ParentHandler : public Handler {
public:
    // The selector is not owned; every check registers its selectables in it.
    explicit ParentHandler(io::Selector<Handler*>* mainSelector);
    // Deletes the running checks in order of arrival. Nothing is sent for them.
    ~ParentHandler() override;

    // Takes one event off the queue and starts its check. The end of the link sets done(). Any
    // event but a check request is an assertion; what the link throws otherwise passes through.
    void handle(io::Selectable* s) override;

    // Starts a check on a copy of `conf`. A service that has no check is an assertion. The check
    // may end, and so be deleted, before this returns.
    void schedule(const remcheck::remcheck_conf& conf);

    // Sends the check's result and deletes the check. If the send throws, the check stays where
    // it is, and is deleted with all others.
    void checkFinished(NetCheck* check);

    // The parent has closed the link: the main loop is over.
    bool isDone() const { return done; }

private:
    using Checks = std::list<std::unique_ptr<NetCheck>>;

    io::Selector<Handler*>* selector;
    bool done = false;
    Checks checks;  // the running ones, in order of arrival
    std::unordered_map<const NetCheck*, Checks::iterator> index;  // where each stands in `checks`
};
