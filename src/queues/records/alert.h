// The payload records of notification: what is to be told to whom, by pager and by mail.
//
// Known to the codec alone: this process acts on none of them.
#pragma once

#include "types/id.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace alert {

// FORECAST_WARNING.
struct Forecast_Warning_Data {
    tql::id_t check;
    tql::id_t host;
    tql::id_t alertGroup;
    std::string subject;
    std::string body;
    std::int32_t status = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("check", self.check);
        visit("host", self.host);
        visit("alertGroup", self.alertGroup);
        visit("subject", self.subject);
        visit("body", self.body);
        visit("status", self.status);
    }
    bool operator==(const Forecast_Warning_Data&) const = default;
};

// GENERIC_NOTIFY.
struct Generic_Notify_Data {
    bool ignore_delay = false;
    tql::id_t rcpt;
    std::string subject;
    std::string body;
    std::string sms_body;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("ignore_delay", self.ignore_delay);
        visit("rcpt", self.rcpt);
        visit("subject", self.subject);
        visit("body", self.body);
        visit("sms_body", self.sms_body);
    }
    bool operator==(const Generic_Notify_Data&) const = default;
};

// OBJECT_STATUS_CHANGE.
struct Object_Status_Change_Data {
    tql::id_t object;
    tql::id_t node;
    std::int32_t old_status = 0;
    std::int32_t new_status = 0;
    tql::id_t user;
    std::string comment;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("object", self.object);
        visit("node", self.node);
        visit("old_status", self.old_status);
        visit("new_status", self.new_status);
        visit("user", self.user);
        visit("comment", self.comment);
    }
    bool operator==(const Object_Status_Change_Data&) const = default;
};

// PAGER_PAGE.
struct Pager_Page_Data {
    std::int32_t seq = 0;
    std::int32_t type = 0;
    std::string dest;
    std::string body;
    std::string modem_port;
    std::string modem_init;
    std::string modem_sim_pin;
    std::set<std::string> modem_options;
    std::int32_t modem_baud_rate = 0;
    std::int32_t modem_pager_timeout = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("seq", self.seq);
        visit("type", self.type);
        visit("dest", self.dest);
        visit("body", self.body);
        visit("modem_port", self.modem_port);
        visit("modem_init", self.modem_init);
        visit("modem_sim_pin", self.modem_sim_pin);
        visit("modem_options", self.modem_options);
        visit("modem_baud_rate", self.modem_baud_rate);
        visit("modem_pager_timeout", self.modem_pager_timeout);
    }
    bool operator==(const Pager_Page_Data&) const = default;
};

// PAGER_STATUS.
struct Pager_Status_Data {
    std::int32_t status = 0;
    std::int32_t seq = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("status", self.status);
        visit("seq", self.seq);
    }
    bool operator==(const Pager_Status_Data&) const = default;
};

// MAILER_MAIL.
struct Mailer_Mail_Data {
    std::string dest;
    std::string subject;
    std::string text_body;
    std::string html_body;
    std::map<std::string, std::string> html_images;
    std::map<std::string, std::string> x_headers;
    std::string mail_server;
    std::string mail_from;
    std::string reply_mail_to;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("dest", self.dest);
        visit("subject", self.subject);
        visit("text_body", self.text_body);
        visit("html_body", self.html_body);
        visit("html_images", self.html_images);
        visit("x_headers", self.x_headers);
        visit("mail_server", self.mail_server);
        visit("mail_from", self.mail_from);
        visit("reply_mail_to", self.reply_mail_to);
    }
    bool operator==(const Mailer_Mail_Data&) const = default;
};

// MAILER_STATUS.
struct Mailer_Status_Data {
    std::int32_t status = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("status", self.status);
    }
    bool operator==(const Mailer_Status_Data&) const = default;
};

}  // namespace alert
