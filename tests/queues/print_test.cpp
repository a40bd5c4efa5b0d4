// The print form of events, letter by letter.

#include "queues/event.h"
#include "queues/records/control.h"
#include "queues/records/remcheck.h"
#include "queues/records/services.h"
#include "queues/typeForms.h"
#include "tests/queues/frames.h"

#include <cstdint>
#include <list>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using frames::print;
using queues::devent;
using queues::queue_t;

TEST(print, aRequestWithNestedRecordsAndAMap)
{
    devent<queues::CHECK_REQUEST, remcheck::remcheck_conf> e(queue_t::rmch, 7);
    e.data.host = "a\"b\n";
    e.data.addr = 0x0100000A;
    e.data.id = {1, 20};
    e.data.service = 6;
    e.data.port = 80;
    e.data.frequency = 60;
    e.data.warnIfAbove = -1;
    e.data.alertIfAbove = 2000;
    e.data.properties[5];
    e.data.properties[542] = Held<tql::property_t>(tql::property_string_t(542, "^2.."));
    EXPECT_EQ(print(e), R"(CHECK_REQUEST {
  dest: rmch
  inresponse: 7
  host: "a\"b\n"
  addr: 10.0.0.1
  id:     val: small_vector<3> {
        1
        20
      }
  service: 6
  port: 80
  frequency: 60
  warnIfAbove: -1
  alertIfAbove: 2000
  libssl: ""
  properties: map {
    key: 5
    value:       (null)
    key: 542
    value:       name: 542
      is_null: false
      modifiers: 0
  }
}
)");
}

TEST(print, aResultDeeperInATree)
{
    const devent<queues::CHECK_RESULT, services::remcheck_stat> e(
        queue_t::none, 0,
        {.ctime = 1000000000,
         .check_id = {},
         .result = services::RESULT_TIMEOUT,
         .replytime = -1,
         .attempts = 0,
         .result_strings = {"one", ""}});
    EXPECT_EQ(print(e, 1), R"(CHECK_RESULT {
    dest: none
    inresponse: 0
    ctime: 1000000000
    check_id:       val: small_vector<3> {
        }
    result: 9
    replytime: -1
    attempts: 0
    result_strings: list {
      "one"
      ""
    }
  }
)");
}

TEST(print, aTreeOfGroups)
{
    control::Metric_Group root{.name = "root", .groups = {}, .tables = {}, .metrics = {}};
    root.groups.push_back({.name = "sub", .groups = {}, .tables = {}, .metrics = {}});
    root.tables.push_back({{.name = "t", .groups = {}, .tables = {}, .metrics = {}}, {"row"}});
    root.metrics.push_back({.name = "n", .unit = "ms", .desc = "d", .type = 2});
    EXPECT_EQ(
        print(devent<queues::RETURN_LIST_METRICS, control::Metric_Group>(queue_t::main, 3, root)),
        R"(RETURN_LIST_METRICS {
  dest: main
  inresponse: 3
  name: "root"
  groups: list {
    name: "sub"
    groups: list {
    }
    tables: list {
    }
    metrics: list {
    }
  }
  tables: list {
    first:       name: "t"
      groups: list {
      }
      tables: list {
      }
      metrics: list {
      }
    second: list {
      "row"
    }
  }
  metrics: list {
    name: "n"
    unit: "ms"
    desc: "d"
    type: 2
  }
}
)");
}

TEST(print, smallPayloads)
{
    const auto body = [](const queues::event& e) {
        std::ostringstream text;
        e.printPayload(text, 1);
        return text.str();
    };
    using namespace queues;
    EXPECT_EQ(body(devent<INIT_OK, control::Init_Ok_Data>(
                  queue_t::main, 0, {.depend_on = {queue_t::dbms, queue_t::none}})),
              "  depend_on: set {\n    none\n    dbms\n  }\n");
    EXPECT_EQ(body(devent<RETURN_SERVER_VARIABLE_FIELDS, control::Server_Variable_Fields>(
                  queue_t::main, 0, {.vars = {{"b", "2"}, {"a", ""}}})),
              "  vars: map {\n    key: \"a\"\n    value: \"\"\n    key: \"b\"\n    value: \"2\"\n"
              "  }\n");
    EXPECT_EQ(body(devent<GET_PSEUDO_RANDOM, control::Get_Pseudo_Random_Data>(
                  queue_t::main, 0, {.bytes = 16, .prefer_pure_entropy = true})),
              "  bytes: 16\n  prefer_pure_entropy: true\n");
    EXPECT_EQ(body(devent<SYS_EXIT, control::Sys_Exit_Data>(
                  queue_t::main, 0, {.reason = -7, .requested_by = queue_t(23), .error_msg = "x"})),
              "  reason: -7\n  requested_by: xx23\n  error_msg: \"x\"\n");
    EXPECT_EQ(body(exevent(queue_t::main, 0, "a\\b")), "Exception: \"a\\\\b\"\n");
    EXPECT_EQ(body(devent<DAEMONIZE_SYSTEM, std::int32_t>(queue_t::main, 0, -5)), "  -5\n");
    EXPECT_EQ(body(devent<RETURN_METRIC_DOUBLE, double>(queue_t::main, 0, 0.5)), "  0.500000\n");
    EXPECT_EQ(body(devent<RETURN_METRIC_ERROR, std::string>(queue_t::main, 0, "t")), "  \"t\"\n");
    EXPECT_EQ(body(devent<REQUEST_SPAWN_PROCESS, queue_t>(queue_t::main, 0, queue_t::ncup)),
              "  ncup\n");
    EXPECT_EQ(body(devent<GET_LAST_CHECKIN_TIME, tql::id_t>(queue_t::main, 0, {7})),
              "  val: small_vector<3> {\n      7\n    }\n");
    EXPECT_EQ(body(devent<RETURN_TQL_REPARENTABLE_CLASSES, std::set<std::uint32_t>>(queue_t::main,
                                                                                    0, {2, 1})),
              "  set {\n    1\n    2\n  }\n");

    // Times and the many types of one record.
    devent<SERVER_CONFIGURATION, control::Server_Configuration_Fields> configuration(queue_t::main,
                                                                                     0);
    configuration.data.snmp_timeout_max = Time(2, 500000);
    configuration.data.netcheck_process_pool_size = 65535;
    EXPECT_THAT(body(configuration), testing::HasSubstr("\n  snmp_timeout_max: 2.500000\n"));
    EXPECT_THAT(body(configuration), testing::HasSubstr("\n  netcheck_process_pool_size: 65535\n"));
}

}  // namespace
