#include "checks/NetCheck.h"

#include "checks/ParentHandler.h"
#include "platform/Clock.h"
#include "types/property.h"

NetCheck::NetCheck(io::Selector<Handler*>* mainSelector, ParentHandler* owner,
                   const remcheck::remcheck_conf& request)
    : selector(mainSelector), parent(owner), conf(request)
{
    stat.ctime = platform::time64();
    stat.check_id = conf.id;
}

void NetCheck::launch()
{
    timer.when = Time::now() + Time(conf.alertIfAbove / 1000.0 + 10.0);
    selector->add(&timer, this);
    start();
}

void NetCheck::handle(io::Selectable* s)
{
    if (s == &timer) {
        log("Net check timeout", logOrdinary);
        selector->remove(&timer);
        finishWith(services::RESULT_TIMEOUT);
    } else {
        ioReady(s);
    }
}

std::int64_t NetCheck::measureReplyTime()
{
    stopWatch.stop();
    const std::int64_t replyTime = stopWatch.seconds() * 1000 + stopWatch.microseconds() / 1000;
    stat.replytime = static_cast<std::int32_t>(replyTime);
    return replyTime;
}

void NetCheck::finish()
{
    stat.result = judgeReplyTime(measureReplyTime(), conf.warnIfAbove, conf.alertIfAbove);
    parent->checkFinished(this);
}

void NetCheck::finishWith(std::int32_t result)
{
    stat.result = result;
    if (services::hasReplyTime(result))
        measureReplyTime();
    else
        stat.replytime = -1;
    parent->checkFinished(this);
}

const tql::property_t* NetCheck::findProperty(std::uint32_t number) const
{
    const auto found = conf.properties.find(number);
    if (found == conf.properties.end())
        return nullptr;
    const tql::property_t* property = found->second.get();
    if (property == nullptr || property->is_null)
        return nullptr;
    return property;
}

void NetCheck::readProperty(std::uint32_t number, bool& value) const
{
    if (const tql::property_t* property = findProperty(number))
        tql::getBool(*property, value);
}

void NetCheck::readProperty(std::uint32_t number, std::string& value) const
{
    if (const tql::property_t* property = findProperty(number))
        tql::getString(*property, value);
}

void NetCheck::readProperty(std::uint32_t number, std::uint32_t& value,
                            std::uint32_t enumType) const
{
    if (const tql::property_t* property = findProperty(number))
        tql::getEnum(*property, value, enumType);
}

void NetCheck::connect(std::unique_ptr<io::SocketConnector>& connector)
{
    try {
        connector =
            std::make_unique<io::SocketConnector>(conf.addr, static_cast<std::uint16_t>(conf.port));
    } catch (const error::Exception& e) {
        log("Failed to create TCP socket: " + e.text(), logOrdinary);
    }
    if (connector == nullptr) {
        finishWith(services::RESULT_CONNECT_FAILED);
        return;
    }
    selector->add(connector.get(), this);
}

std::int32_t judgeReplyTime(std::int64_t replyTime, std::int32_t warnIfAbove,
                            std::int32_t alertIfAbove)
{
    if (replyTime > alertIfAbove && alertIfAbove > 0)
        return services::RESULT_ALERT;
    if (replyTime > warnIfAbove && warnIfAbove > 0)
        return services::RESULT_WARNING;
    return services::RESULT_OK;
}

bool takePiece(std::string_view* text, std::string_view delimiter, std::string_view* piece)
{
    while (!text->empty()) {
        const std::size_t end = delimiter.empty() ? text->npos : text->find(delimiter);
        *piece = text->substr(0, end);
        text->remove_prefix(end == text->npos ? text->size() : end + delimiter.size());
        if (!piece->empty())
            return true;
    }
    return false;
}

std::list<std::string> tokenize_reply(std::string_view text, std::string_view delimiter)
{
    std::list<std::string> pieces;
    std::string_view piece;
    while (takePiece(&text, delimiter, &piece))
        pieces.emplace_back(piece);
    return pieces;
}
