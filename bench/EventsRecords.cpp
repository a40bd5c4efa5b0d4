#include "EventsRecords.h"

#include "queues/records/alert.h"
#include "queues/records/control.h"
#include "queues/records/dbms.h"
#include "queues/records/remcheck.h"
#include "queues/records/scheduler.h"
#include "queues/records/tsdb.h"
#include "queues/typeForms.h"
#include "types/vocabulary.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <utility>

namespace bench {

namespace {

using queues::devent;
using queues::queue_t;
using namespace tql;
using tql::id_t;  // not the system's

constexpr std::int64_t noon = 1764504000;  // a day in 2025

template <class Class, class... Values>
Held<property_t> property(std::uint32_t number, Values&&... values)
{
    return Held<property_t>(std::make_unique<Class>(number, std::forward<Values>(values)...));
}

template <class Class, class... Values>
Held<property_t> nullProperty(std::uint32_t number)
{
    Held<property_t> result = property<Class>(number);
    result->is_null = true;
    return result;
}

object_reference_t reference(id_t id)
{
    return {.id = id, .origin = {.domain_id = {1, 4}, .user_id = {1, 9, 2}, .type = 37}};
}

std::string numbered(const std::string& text, std::size_t number)
{
    return text + std::to_string(number);
}

// Bytes without a pattern, as compressed images have.
std::string noise(std::size_t count)
{
    std::string bytes;
    std::uint32_t state = 1;
    while (bytes.size() < count) {
        state = state * 1103515245 + 12345;
        bytes += static_cast<char>(state >> 16);
    }
    return bytes;
}

std::string repeated(const std::string& line, int count)
{
    std::string text;
    for (int i = 0; i < count; ++i)
        text += line;
    return text;
}

control::Server_Configuration_Fields configuration()
{
    control::Server_Configuration_Fields c;
    c.layout_conf_path = "/etc/monitor/layout.conf";
    c.dbms_tsdb_file_path = "/var/lib/monitor/series.db";
    c.dbms_odb_file_path = "/var/lib/monitor/objects.db";
    c.dbms_odbj_file_path = "/var/lib/monitor/objects.journal";
    c.dbms_cache_size = 65536;
    c.dbms_cache_kin = 16384;
    c.dbms_cache_kout = 32768;
    c.dbms_buffer_blocks = 4096;
    c.variable_file = "/var/lib/monitor/variables";
    c.smem_size = 33554432;
    c.smem_prefix = "/monitor-";
    c.resource_directory = "/usr/share/monitor/resources";
    c.log_mask = 7;
    c.socketio_bind_port = 8080;
    c.broadcast_bind_port = 8081;
    c.socketio_max_connections = 2000;
    c.socketio_max_inflight = 256;
    c.socketio_agentconf_rate = 20;
    c.socketio_agentconf_burst = 100;
    c.remcheck_limit_children = 64;
    c.remcheck_ping_spacing = 10;
    c.netcheck_process_pool_size = 4;
    c.custom_netcheck_conf = "/etc/monitor/checks.conf";
    c.dns_cache_secs = 300;
    c.libssl = "libssl.so.3";
    c.system_log_dir_path = "/var/log/monitor";
    c.log_days = 30;
    c.working_directory = "/var/lib/monitor";
    c.alert_textmail_ending = "-- \nThe monitoring service of example.com\n";
    c.alert_sms_ending = "(monitor)";
    c.alert_sms_subject = "Alert";
    c.alert_htmlmail_ending = "<hr><p>The monitoring service of example.com</p>\n";
    c.webinterface_url = "https://monitor.example.com/";
    c.mail_server = "mail.example.com";
    c.mail_from = "monitor@example.com";
    c.reply_mail_to = "operations@example.com";
    c.modem_port = "/dev/ttyS0";
    c.modem_init = "ATZ";
    c.modem_sim_pin = "1234";
    c.modem_options = {"echo", "flow=hard", "retry"};
    c.modem_baud_rate = 115200;
    c.modem_pager_timeout = 60;
    c.alert_to_event_log = true;
    c.alert_to_incident_log = true;
    c.alert_defer_at_boot = 300;
    c.alert_attempts = 5;
    c.alert_retry_delay = 60;
    c.max_snmp_table_entries = 10000;
    c.snmp_reconfig_delay = 30;
    c.snmp_max_retrans = 3;
    c.snmp_max_retrans_walk = 5;
    c.snmp_timeout_initial = Time(2, 0);
    c.snmp_timeout_max = Time(10, 500000);
    c.snmp_packet_spacing = 20;
    c.mtu = 1500;
    c.host_name = "monitor-1.example.com";
    c.cluster_members = "monitor-1.example.com monitor-2.example.com";
    c.report_generator = "/usr/bin/monitor-report";
    c.agent_package_path = "/usr/share/monitor/agents";
    c.spare_keypool_size = 32;
    c.keypool_reuse = 1;
    c.concurrent_check_recoveries = 8;
    c.max_scan_processes = 4;
    c.ssec_keylength = 2048;
    c.ssec_min_keylength = 1024;
    c.ssec_secret_keylength = 256;
    c.ssec_secret_min_keylength = 128;
    c.ssec_secret_lifetime = 86400;
    c.grid_default_ttl = 16;
    c.master_notify_queue = 1000;
    c.satellite_tsdb_async = 1;
    c.allowed_candidate_nodes = 100;
    c.tsdb_buffer_entries = 100000;
    c.tsdb_buffer_write_min = 64;
    c.tsdb_buffer_age_max = 600;
    c.tsdb_buffer_flush_batch = 256;
    return c;
}

control::Metric_Group metricGroup(const std::string& name, int depth)
{
    control::Metric_Group group{.name = name, .groups = {}, .tables = {}, .metrics = {}};
    for (const char* metric : {"requests", "failures", "queue_length", "latency"})
        group.metrics.push_back({.name = metric,
                                 .unit = "1/s",
                                 .desc = "Of the last minute, since the server was started",
                                 .type = 2});
    if (depth == 0)
        return group;
    for (const char* part : {"reader", "writer", "cache", "journal"})
        group.groups.push_back(metricGroup(part, depth - 1));
    group.tables.emplace_back(metricGroup("connection", 0),
                              std::list<std::string>{"10.0.0.1", "10.0.0.2", "10.0.0.3"});
    return group;
}

// Mostly numbers, some states, now and then an incident or a gap.
tsdb::Return_Get_Data_Data series()
{
    constexpr int intervals = 400;
    tsdb::Return_Get_Data_Data result{.data_type = 2, .data = {}};
    for (int i = 0; i < intervals; ++i) {
        const std::int64_t start = noon + std::int64_t{300} * i;
        std::unique_ptr<tsdb::data_interval_t> interval;
        if (i % 10 < 6) {
            const float level = 20.0F + static_cast<float>(i % 7);
            interval = std::make_unique<tsdb::data_interval_continuous_t>(
                tsdb::continuous_fields{.start = start,
                                        .end = start + 300,
                                        .min = level - 1.5F,
                                        .avg = level,
                                        .max = level + 4.25F,
                                        .ngood = 10,
                                        .nbad = 0});
        } else if (i % 10 < 8) {
            interval = std::make_unique<tsdb::data_interval_enum_t>(tsdb::enum_fields{
                .mask = 5, .ngood = 9, .nbad = 1, .start = start, .end = start + 300});
        } else if (i % 10 == 8) {
            interval = std::make_unique<tsdb::data_interval_incident_t>(tsdb::incident_fields{
                .sev = 3, .msg = "No answer from 10.0.3.17 within 5000 ms", .itime = start});
        }
        result.data.emplace_back(std::move(interval));
    }
    return result;
}

dbms::Data_AgentCheck_Data agentValues()
{
    dbms::Data_AgentCheck_Data result;
    for (std::uint32_t i = 0; i < 100; ++i)
        result.data[{1, 20 + i / 25, i}] = {
            .ctime = noon + i % 60,
            .status = i % 12 == 0 ? 2 : 0,
            .comment = i % 3 == 0 ? "/dev/sda1 on /var, 61 % of 80 GB used" : "",
            .has_valid_value = i % 12 != 0,
            .value = 0.61F * static_cast<float>(i)};
    return result;
}

// Nodes of a domain with their checks, both under conditions.
dbms::Tql_Select_Data selectNodes()
{
    select_t checks;
    checks.class_ = 1;
    checks.where.push_back({.prop = property<property_boolean_t>(502, true), .rel_op = REL_EQUAL});
    checks.where.push_back(
        {.prop = property<property_enum_t>(800, 12, 1), .rel_op = REL_GREATER_OR_EQUAL});
    checks.where.push_back(
        {.prop = property<property_string_t>(514, "disk"), .rel_op = REL_CONTAINS_IGNORING_CASE});
    checks.wanted_properties = {500, 501, 502, 510, 511, 514, 524, 702, 703, 800, 801};

    select_t node;
    node.class_ = 4;
    node.tag = 3;
    node.where.push_back({.prop = property<property_date_t>(1500, noon), .rel_op = REL_GREATER});
    node.where.push_back(
        {.prop = property<property_object_t>(203, reference({1, 11, 5})), .rel_op = REL_EQUAL});
    node.where.push_back(
        {.prop = property<property_object_set_t>(
             227, std::set<object_reference_t>{reference({1, 49, 1}), reference({1, 49, 8})}),
         .rel_op = REL_INTERSECTS});
    node.wanted_properties = {0, 1, 51, 53, 203, 209, 211, 213, 226, 227, 1500};
    node.next = {checks};
    node.cond_next = {checks, checks};

    select_t domain;
    domain.class_ = 3;
    domain.wanted_properties = {0, 51, 54};
    domain.next = {node, node};

    return {.root_ids = {{1}, {1, 3, 7}, {1, 3, 8}},
            .pattern = domain,
            .flags = 1,
            .min_eval_interval = 60};
}

object_t node(std::uint32_t number, std::size_t children)
{
    object_t object;
    object.class_ = 4;
    object.tags = {2, 3 + number % 5};
    object.id = {1, 4, number};
    object.version = {.first = 7, .second = 1000 + number};
    object.origin = {.domain_id = {1, 3}, .user_id = {1, 8, 2}, .type = 37};

    const auto add = [&](Held<property_t> added) {
        const std::uint32_t name = added->name;
        object.properties[name] = std::move(added);
    };
    add(property<property_string_t>(51, numbered("host-", number)));
    add(property<property_string_t>(54, "Rack 12, row 4, the mail server of the second floor"));
    add(property<property_uint_t>(200, 300U));
    add(property<property_object_t>(203, reference({1, 11, number % 8})));
    add(property<property_int_t>(209, 5000));
    add(property<property_boolean_t>(225, false));
    add(property<property_object_set_t>(227, std::set<object_reference_t>{reference({1, 49, 1})}));
    add(nullProperty<property_string_t>(524));
    add(property<property_enum_t>(800, 12, number % 3));
    add(property<property_date_t>(1500, noon + number));

    for (std::uint32_t i = 0; i < children; ++i)
        object.children.push_back(node(number * 10 + i, 0));
    return object;
}

dbms::Return_Tql_Select_Data selectedNodes()
{
    dbms::Return_Tql_Select_Data result;
    result.details = {{.msg_type = 1, .msg = "100 of 100 objects"}};
    for (std::uint32_t i = 0; i < 100; ++i)
        result.res.push_back(node(1000 + i, i % 5 == 0 ? 2 : 0));
    return result;
}

// An object with a property of each class, and what else there is two of.
dbms::Tql_Create_Data create()
{
    dbms::Tql_Create_Data result;
    result.parent_id = {1, 3, 7};
    result.new_id = {1, 4, 1000};
    result.class_ = 4;
    result.user_id = {1, 8, 2};
    const std::set<object_reference_t> members{reference({1, 49, 1}), reference({1, 49, 8})};
    const std::vector<std::uint32_t> uptime{1, 3, 6, 1, 2, 1, 1, 3, 0};
    const BigNum prime = [] {
        BigNum number;
        number.fromBytes(noise(128));
        return number;
    }();
    result.properties.push_back(property<property_string_t>(51, "mail.example.com"));
    result.properties.push_back(property<property_string_t>(54, "Rack 12, row 4, second floor"));
    result.properties.push_back(
        property<property_string_list_t>(154, std::list<std::string>{"mail", "dmz", "production"}));
    result.properties.push_back(property<property_object_set_t>(227, members));
    result.properties.push_back(property<property_object_t>(203, reference({1, 11, 5})));
    result.properties.push_back(property<property_version_t>(1, version_t{7, 1000}));
    result.properties.push_back(property<property_action_t>(228, 1));
    result.properties.push_back(property<property_real_t>(326, 0.5));
    result.properties.push_back(property<property_real_t>(327, 99.5));
    result.properties.push_back(property<property_bignum_t>(220, prime));
    result.properties.push_back(property<property_bignum_t>(221, BigNum(65537)));
    result.properties.push_back(property<property_gid_t>(341, 0x0A0B0C0DU));
    result.properties.push_back(
        property<property_gid_list_t>(108, std::vector<std::uint32_t>{0x0A0B0C0D, 0x0A0B0C0E}));
    result.properties.push_back(property<property_date_t>(1500, noon));
    result.properties.push_back(nullProperty<property_date_t>(205));
    result.properties.push_back(property<property_index_t>(2600, 4711U));
    result.properties.push_back(property<property_int_t>(209, 5000));
    result.properties.push_back(property<property_int_t>(211, -1));
    result.properties.push_back(property<property_uint_t>(200, 300U));
    result.properties.push_back(property<property_boolean_t>(502, true));
    result.properties.push_back(property<property_boolean_t>(225, false));
    result.properties.push_back(property<property_blob_t>(222, noise(64)));
    result.properties.push_back(property<property_lob_t>(1700, noise(1024)));
    result.properties.push_back(property<property_oid_t>(600, uptime));
    result.properties.push_back(property<property_enum_t>(226, 12, 2));
    result.properties.emplace_back();
    return result;
}

dbms::Return_NodeClass_Translate_Data translation()
{
    dbms::Return_NodeClass_Translate_Data result;
    for (std::uint32_t i = 0; i < 150; ++i) {
        auto& ids = result.ids.emplace_back();
        for (std::uint32_t k = 0; k <= i % 7; ++k)
            ids.push_back({1, 49, 100 * i + k});
    }
    return result;
}

alert::Mailer_Mail_Data mail()
{
    alert::Mailer_Mail_Data result;
    result.dest = "operations@example.com";
    result.subject = "ALERT: disk /var on mail.example.com";
    result.text_body = repeated("12:00:00 /var is used up to 97 %, which is above 95 %.\n", 30);
    result.html_body =
        repeated("<tr><td>12:00:00</td><td>/var</td><td class=\"alert\">97 %</td></tr>\n", 60);
    for (std::size_t i = 1; i <= 3; ++i)
        result.html_images[numbered("graph", i) + ".png"] = noise(10000 + 100 * i);
    result.x_headers = {{"X-Priority", "1"},
                        {"X-Mailer", "monitor"},
                        {"X-Monitor-Host", "mail.example.com"},
                        {"X-Monitor-Status", "alert"}};
    result.mail_server = "mail.example.com";
    result.mail_from = "monitor@example.com";
    result.reply_mail_to = "operations@example.com";
    return result;
}

scheduler::Schedule_Event_Absolute_Data scheduledCheck()
{
    namespace number = tql::property;

    remcheck::remcheck_conf conf{.host = "www.example.com",
                                 .addr = 0x0100000A,
                                 .id = {1, 20, 300},
                                 .service = services::SERVICE_HTTP,
                                 .port = 443,
                                 .frequency = 60,
                                 .warnIfAbove = 1000,
                                 .alertIfAbove = 2000,
                                 .libssl = "libssl.so.3",
                                 .properties = {}};
    const auto addText = [&](std::uint32_t name, const char* text) {
        conf.properties[name] = property<property_string_t>(name, text);
    };
    const auto addFlag = [&](std::uint32_t name, bool flag) {
        conf.properties[name] = property<property_boolean_t>(name, flag);
    };
    addText(number::user, "monitor");
    addText(number::dnsHost, "www.example.com");
    addText(number::dnsIp, "10.0.0.1");
    addFlag(number::connClose, true);
    addText(number::httpUrl, "/status?verbose=1");
    conf.properties[number::checkPassword] = nullProperty<property_string_t>(number::checkPassword);
    addFlag(number::smtpExecuteVrfy, false);
    addText(number::httpStatusRegex, "^2..");
    addText(number::httpContentRegex, "Service is (up|ready)");
    conf.properties[number::httpVersion] = property<property_enum_t>(number::httpVersion, 29, 1);
    addFlag(number::useSsl, true);
    addText(number::httpUserAgent, "monitor/1.0");

    return {.time = Time(static_cast<std::int32_t>(noon), 250000),
            .ev = Held<queues::event>(
                std::make_unique<devent<queues::CHECK_REQUEST, remcheck::remcheck_conf>>(
                    queue_t::rmch, 0, std::move(conf)))};
}

template <std::int32_t Number, class Payload>
NamedEvent named(const char* record, Payload payload)
{
    return {record,
            std::make_unique<devent<Number, Payload>>(queue_t::dbms, 17, std::move(payload))};
}

}  // namespace

std::vector<NamedEvent> complexEvents()
{
    using namespace queues;

    std::vector<NamedEvent> events;
    events.push_back(named<SERVER_CONFIGURATION>("Server_Configuration_Fields", configuration()));
    events.push_back(named<RETURN_LIST_METRICS>("Metric_Group", metricGroup("server", 2)));
    events.push_back(named<RETURN_GET_DATA>("Return_Get_Data_Data", series()));
    events.push_back(named<DATA_AGENTCHECK>("Data_AgentCheck_Data", agentValues()));
    events.push_back(named<TQL_SELECT>("Tql_Select_Data", selectNodes()));
    events.push_back(named<RETURN_TQL_SELECT>("Return_Tql_Select_Data", selectedNodes()));
    events.push_back(named<TQL_CREATE>("Tql_Create_Data", create()));
    events.push_back(
        named<RETURN_NODECLASS_TRANSLATE>("Return_NodeClass_Translate_Data", translation()));
    events.push_back(named<MAILER_MAIL>("Mailer_Mail_Data", mail()));
    events.push_back(
        named<SCHEDULE_EVENT_ABSOLUTE>("Schedule_Event_Absolute_Data", scheduledCheck()));
    return events;
}

}  // namespace bench
