// The payload records of the database: what checks measured, objects and their changes, time
// series by object.
//
// Known to the codec alone: this process acts on none of them. Which values the plain numbers
// take is the business of the processes that use them.
#pragma once

#include "common/Held.h"
#include "common/Time.h"
#include "queues/fields.h"
#include "queues/records/services.h"
#include "types/id.h"
#include "types/interval.h"
#include "types/object.h"
#include "types/property.h"
#include "types/snmpcheck_stat.h"

#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace dbms {

// One of the messages that go with a reply.
struct Detail {
    std::int32_t msg_type = 0;
    std::string msg;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("msg_type", self.msg_type);
        visit("msg", self.msg);
    }
    bool operator==(const Detail&) const = default;
};

// A step of a path through the object tree.
struct Path_Element {
    tql::id_t id;
    std::uint32_t class_ = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("class_", self.class_);
    }
    bool operator==(const Path_Element&) const = default;
};

// A check that runs a program.
struct NetCheck_Entry {
    std::string name;
    std::string command;
    std::string result_pattern;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("name", self.name);
        visit("command", self.command);
        visit("result_pattern", self.result_pattern);
    }
    bool operator==(const NetCheck_Entry&) const = default;
};

// A value that an agent measured.
struct Agent_Value {
    std::int64_t ctime = 0;  // seconds since 1970 UTC
    std::int32_t status = 0;
    std::string comment;
    bool has_valid_value = false;
    float value = 0;  // 4 bytes on the wire

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("ctime", self.ctime);
        visit("status", self.status);
        visit("comment", self.comment);
        visit("has_valid_value", self.has_valid_value);
        visit("value", self.value);
    }
    bool operator==(const Agent_Value&) const = default;
};

// A reply that says how it went, and nothing else.
struct Status_Reply {
    std::int32_t status = 0;
    std::list<Detail> details;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("status", self.status);
        visit("details", self.details);
    }
    bool operator==(const Status_Reply&) const = default;
};

using Return_Tql_Delete_Data = Status_Reply;               // RETURN_TQL_DELETE
using Return_TSDB_Put_Data_Data = Status_Reply;            // RETURN_TSDB_PUT_DATA
using Return_TSDB_Merge_Data_Data = Status_Reply;          // RETURN_TSDB_MERGE_DATA
using Return_TSDB_Append_Data_Record_Data = Status_Reply;  // RETURN_TSDB_APPEND_DATA_RECORD
using Return_TSDB_Append_Data_Data = Status_Reply;         // RETURN_TSDB_APPEND_DATA
using Return_TSDB_Truncate_Old_Data_Data = Status_Reply;   // RETURN_TSDB_TRUNCATE_OLD_DATA

// DATA_REMCHECK.
struct Data_RemCheck_Data {
    tql::id_t check_id;
    services::remcheck_stat stat;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("check_id", self.check_id);
        visit("stat", self.stat);
    }
    bool operator==(const Data_RemCheck_Data&) const = default;
};

// DATA_SNMPCHECK_CONTINUOUS.
struct Data_SnmpCheck_Continuous_Data {
    tql::id_t check_id;
    snmpcheck_stat_continuous stat;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("check_id", self.check_id);
        visit("stat", self.stat);
    }
    bool operator==(const Data_SnmpCheck_Continuous_Data&) const = default;
};

// DATA_SNMPCHECK_ENUM.
struct Data_SnmpCheck_Enum_Data {
    tql::id_t check_id;
    snmpcheck_stat_enum stat;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("check_id", self.check_id);
        visit("stat", self.stat);
    }
    bool operator==(const Data_SnmpCheck_Enum_Data&) const = default;
};

// DATA_SNMPCHECK_UPTIME.
struct Data_SnmpCheck_Uptime_Data {
    tql::id_t check_id;
    snmpcheck_stat_uptime stat;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("check_id", self.check_id);
        visit("stat", self.stat);
    }
    bool operator==(const Data_SnmpCheck_Uptime_Data&) const = default;
};

// DATA_DOMAINEXPORT_STATE.
struct Data_DomainExport_State_Data {
    tql::id_t id;
    std::int32_t state = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("state", self.state);
    }
    bool operator==(const Data_DomainExport_State_Data&) const = default;
};

// PUT_CHECK_STATE.
struct Put_Check_State_Data {
    tql::id_t check_id;
    std::int32_t new_state = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("check_id", self.check_id);
        visit("new_state", self.new_state);
    }
    bool operator==(const Put_Check_State_Data&) const = default;
};

// PUT_INCIDENTLOG.
struct Put_IncidentLog_Data {
    std::int32_t time = 0;  // seconds since 1970 UTC
    tql::id_t host_id;
    std::string text;
    std::int32_t level = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("time", self.time);
        visit("host_id", self.host_id);
        visit("text", self.text);
        visit("level", self.level);
    }
    bool operator==(const Put_IncidentLog_Data&) const = default;
};

// RETURN_HOST_CONFIGURED_STATE.
struct Return_Host_Configured_State_Data {
    bool configured = false;
    bool rescan = false;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("configured", self.configured);
        visit("rescan", self.rescan);
    }
    bool operator==(const Return_Host_Configured_State_Data&) const = default;
};

// SET_HOST_RECONFIGURED.
struct Set_Host_Reconfigured_Data {
    tql::id_t hostid;
    bool configure = false;
    tql::id_t new_id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("hostid", self.hostid);
        visit("configure", self.configure);
        visit("new_id", self.new_id);
    }
    bool operator==(const Set_Host_Reconfigured_Data&) const = default;
};

// SET_HOST_RESCAN.
struct Set_Host_Rescan_Data {
    tql::id_t hostid;
    bool rescan = false;
    tql::id_t new_id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("hostid", self.hostid);
        visit("rescan", self.rescan);
        visit("new_id", self.new_id);
    }
    bool operator==(const Set_Host_Rescan_Data&) const = default;
};

// CHECKIN_START.
struct Checkin_Start_Data {
    tql::id_t node_id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("node_id", self.node_id);
    }
    bool operator==(const Checkin_Start_Data&) const = default;
};

// CHECKIN_COMPLETE.
struct Checkin_Complete_Data {
    tql::id_t node_id;
    std::int64_t checkin_time = 0;  // seconds since 1970 UTC

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("node_id", self.node_id);
        visit("checkin_time", self.checkin_time);
    }
    bool operator==(const Checkin_Complete_Data&) const = default;
};

// CHECKIN_ABORT.
struct Checkin_Abort_Data {
    tql::id_t node_id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("node_id", self.node_id);
    }
    bool operator==(const Checkin_Abort_Data&) const = default;
};

// DATA_AGENTCHECK.
struct Data_AgentCheck_Data {
    std::map<tql::id_t, Agent_Value> data;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("data", self.data);
    }
    bool operator==(const Data_AgentCheck_Data&) const = default;
};

// RETURN_DATA_AGENTCHECK.
struct Return_Data_AgentCheck_Data {
    std::uint64_t good = 0;
    std::uint64_t fail = 0;
    bool should_reconfigure = false;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("good", self.good);
        visit("fail", self.fail);
        visit("should_reconfigure", self.should_reconfigure);
    }
    bool operator==(const Return_Data_AgentCheck_Data&) const = default;
};

// HOST_REBOOTED.
struct Host_Rebooted_Data {
    tql::id_t host;
    tql::id_t uptime_check;
    tql::id_t new_id1;
    tql::id_t new_id2;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("host", self.host);
        visit("uptime_check", self.uptime_check);
        visit("new_id1", self.new_id1);
        visit("new_id2", self.new_id2);
    }
    bool operator==(const Host_Rebooted_Data&) const = default;
};

// LATE_CHECKIN.
struct Late_Checkin_Data {
    tql::id_t node;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("node", self.node);
    }
    bool operator==(const Late_Checkin_Data&) const = default;
};

// AUDIT_EVENT.
struct Audit_Event_Data {
    tql::id_t user;
    std::string comment;
    std::list<tql::id_t> objects;
    Time time;  // a point in time
    std::int32_t operation = 0;
    std::int32_t result = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("user", self.user);
        visit("comment", self.comment);
        visit("objects", self.objects);
        visit("time", queues::pointInTime(self.time));
        visit("operation", self.operation);
        visit("result", self.result);
    }
    bool operator==(const Audit_Event_Data&) const = default;
};

// RETURN_TQL_CLASS_NAMES.
struct Return_Tql_Class_Names_Data {
    std::list<std::string> names;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("names", self.names);
    }
    bool operator==(const Return_Tql_Class_Names_Data&) const = default;
};

// RETURN_TQL_PROPERTY_NAMES.
struct Return_Tql_Property_Names_Data {
    std::list<std::pair<std::uint32_t, std::string>> names;  // by property number

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("names", self.names);
    }
    bool operator==(const Return_Tql_Property_Names_Data&) const = default;
};

// TQL_SELECT.
struct Tql_Select_Data {
    std::list<tql::id_t> root_ids;
    tql::select_t pattern;
    std::int32_t flags = 0;
    std::int64_t min_eval_interval = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("root_ids", self.root_ids);
        visit("pattern", self.pattern);
        visit("flags", self.flags);
        visit("min_eval_interval", self.min_eval_interval);
    }
    bool operator==(const Tql_Select_Data&) const = default;
};

// RETURN_TQL_SELECT.
struct Return_Tql_Select_Data {
    std::int32_t status = 0;
    std::list<Detail> details;
    std::list<tql::object_t> res;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("status", self.status);
        visit("details", self.details);
        visit("res", self.res);
    }
    bool operator==(const Return_Tql_Select_Data&) const = default;
};

// RETURN_TQL_SELECT_PATCH.
struct Return_Tql_Select_Patch_Data {
    tql::id_t id;
    tql::object_t patch;
    tql::version_t seq;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("patch", self.patch);
        visit("seq", self.seq);
    }
    bool operator==(const Return_Tql_Select_Patch_Data&) const = default;
};

// RETURN_TQL_SELECT_DELETE_PATCH.
struct Return_Tql_Select_Delete_Patch_Data {
    tql::id_t id;
    tql::version_t seq;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("seq", self.seq);
    }
    bool operator==(const Return_Tql_Select_Delete_Patch_Data&) const = default;
};

// TQL_CREATE.
struct Tql_Create_Data {
    tql::id_t parent_id;
    tql::id_t new_id;
    std::uint32_t class_ = 0;
    std::list<Held<tql::property_t>> properties;
    std::int32_t flags = 0;
    tql::id_t user_id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("parent_id", self.parent_id);
        visit("new_id", self.new_id);
        visit("class_", self.class_);
        visit("properties", self.properties);
        visit("flags", self.flags);
        visit("user_id", self.user_id);
    }
    bool operator==(const Tql_Create_Data&) const = default;
};

// RETURN_TQL_CREATE.
struct Return_Tql_Create_Data {
    tql::id_t new_id;
    tql::version_t new_version;
    std::int32_t status = 0;
    std::list<Detail> details;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("new_id", self.new_id);
        visit("new_version", self.new_version);
        visit("status", self.status);
        visit("details", self.details);
    }
    bool operator==(const Return_Tql_Create_Data&) const = default;
};

// TQL_UPDATE.
struct Tql_Update_Data {
    tql::id_t id;
    tql::version_t version;
    std::list<Held<tql::property_t>> properties;
    std::int32_t flags = 0;
    tql::id_t user_id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("version", self.version);
        visit("properties", self.properties);
        visit("flags", self.flags);
        visit("user_id", self.user_id);
    }
    bool operator==(const Tql_Update_Data&) const = default;
};

// RETURN_TQL_UPDATE.
struct Return_Tql_Update_Data {
    std::int32_t status = 0;
    tql::version_t new_version;
    std::list<Detail> details;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("status", self.status);
        visit("new_version", self.new_version);
        visit("details", self.details);
    }
    bool operator==(const Return_Tql_Update_Data&) const = default;
};

// TQL_DELETE.
struct Tql_Delete_Data {
    tql::id_t id;
    tql::version_t version;
    tql::id_t user_id;
    bool clear_master_id = false;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("version", self.version);
        visit("user_id", self.user_id);
        visit("clear_master_id", self.clear_master_id);
    }
    bool operator==(const Tql_Delete_Data&) const = default;
};

// TQL_SIMPLE_SUBSCRIBE.
struct Tql_Simple_Subscribe_Data {
    tql::id_t root;
    std::set<std::uint32_t> classes;
    std::set<std::uint32_t> operations;
    bool include_own_operations = false;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("root", self.root);
        visit("classes", self.classes);
        visit("operations", self.operations);
        visit("include_own_operations", self.include_own_operations);
    }
    bool operator==(const Tql_Simple_Subscribe_Data&) const = default;
};

// RETURN_TQL_SIMPLE_SUBSCRIBE.
struct Return_Tql_Simple_Subscribe_Data {
    std::int32_t operation = 0;
    tql::object_origin_t origin;
    std::list<Path_Element> obj_path;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("operation", self.operation);
        visit("origin", self.origin);
        visit("obj_path", self.obj_path);
    }
    bool operator==(const Return_Tql_Simple_Subscribe_Data&) const = default;
};

// NODECLASS_TRANSLATE.
struct NodeClass_Translate_Data {
    tql::id_t id;
    tql::id_t parent;
    tql::id_t inherits;
    std::list<tql::id_t> references;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("parent", self.parent);
        visit("inherits", self.inherits);
        visit("references", self.references);
    }
    bool operator==(const NodeClass_Translate_Data&) const = default;
};

// RETURN_NODECLASS_TRANSLATE.
struct Return_NodeClass_Translate_Data {
    std::list<std::list<tql::id_t>> ids;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("ids", self.ids);
    }
    bool operator==(const Return_NodeClass_Translate_Data&) const = default;
};

// USER_ACKNOWLEDGE_ALERT.
struct User_Acknowledge_Alert_Data {
    tql::id_t user;
    std::string comment;
    tql::id_t object;
    tql::version_t version;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("user", self.user);
        visit("comment", self.comment);
        visit("object", self.object);
        visit("version", self.version);
    }
    bool operator==(const User_Acknowledge_Alert_Data&) const = default;
};

// USER_RESET_SCORE.
struct User_Reset_Score_Data {
    tql::id_t user;
    std::string comment;
    tql::id_t object;
    tql::version_t version;
    bool recursive = false;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("user", self.user);
        visit("comment", self.comment);
        visit("object", self.object);
        visit("version", self.version);
        visit("recursive", self.recursive);
    }
    bool operator==(const User_Reset_Score_Data&) const = default;
};

// TSDB_GET_DATA.
struct TSDB_Get_Data_Data {
    tql::id_t id;
    std::uint32_t index_property = 0;
    std::int32_t flags = 0;
    bool raw = false;
    std::int64_t start = 0;  // seconds since 1970 UTC
    std::int64_t end = 0;    // seconds since 1970 UTC
    std::uint32_t count = 0;
    std::int32_t offset = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("index_property", self.index_property);
        visit("flags", self.flags);
        visit("raw", self.raw);
        visit("start", self.start);
        visit("end", self.end);
        visit("count", self.count);
        visit("offset", self.offset);
    }
    bool operator==(const TSDB_Get_Data_Data&) const = default;
};

// RETURN_TSDB_GET_DATA.
struct Return_TSDB_Get_Data_Data {
    std::int32_t data_type = 0;
    std::list<Held<tsdb::data_interval_t>> data;
    std::int32_t status = 0;
    std::list<Detail> details;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("data_type", self.data_type);
        visit("data", self.data);
        visit("status", self.status);
        visit("details", self.details);
    }
    bool operator==(const Return_TSDB_Get_Data_Data&) const = default;
};

// TSDB_PUT_DATA.
struct TSDB_Put_Data_Data {
    tql::id_t id;
    std::uint32_t index_property = 0;
    std::int32_t data_type = 0;
    std::list<Held<tsdb::data_interval_t>> data;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("index_property", self.index_property);
        visit("data_type", self.data_type);
        visit("data", self.data);
    }
    bool operator==(const TSDB_Put_Data_Data&) const = default;
};

// TSDB_MERGE_DATA.
struct TSDB_Merge_Data_Data {
    std::uint32_t tsdb_index = 0;
    std::int32_t data_type = 0;
    std::list<Held<tsdb::data_interval_t>> data;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("tsdb_index", self.tsdb_index);
        visit("data_type", self.data_type);
        visit("data", self.data);
    }
    bool operator==(const TSDB_Merge_Data_Data&) const = default;
};

// TSDB_GET_LATEST_DATA_RECORD.
struct TSDB_Get_Latest_Data_Record_Data {
    tql::id_t id;
    std::uint32_t index_property = 0;
    std::int32_t flags = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("index_property", self.index_property);
        visit("flags", self.flags);
    }
    bool operator==(const TSDB_Get_Latest_Data_Record_Data&) const = default;
};

// RETURN_TSDB_GET_LATEST_DATA_RECORD.
struct Return_TSDB_Get_Latest_Data_Record_Data {
    std::int32_t data_type = 0;
    Held<tsdb::data_interval_t> data;
    std::int32_t status = 0;
    std::list<Detail> details;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("data_type", self.data_type);
        visit("data", self.data);
        visit("status", self.status);
        visit("details", self.details);
    }
    bool operator==(const Return_TSDB_Get_Latest_Data_Record_Data&) const = default;
};

// TSDB_APPEND_DATA_RECORD.
struct TSDB_Append_Data_Record_Data {
    tql::id_t id;
    std::uint32_t index_property = 0;
    std::int32_t data_type = 0;
    Held<tsdb::data_interval_t> data;
    std::int32_t new_state = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("index_property", self.index_property);
        visit("data_type", self.data_type);
        visit("data", self.data);
        visit("new_state", self.new_state);
    }
    bool operator==(const TSDB_Append_Data_Record_Data&) const = default;
};

// TSDB_APPEND_DATA.
struct TSDB_Append_Data_Data {
    tql::id_t id;
    std::uint32_t index_property = 0;
    std::int32_t data_type = 0;
    std::list<Held<tsdb::data_interval_t>> data;
    std::int32_t new_state = 0;
    std::string encoded_result;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("index_property", self.index_property);
        visit("data_type", self.data_type);
        visit("data", self.data);
        visit("new_state", self.new_state);
        visit("encoded_result", self.encoded_result);
    }
    bool operator==(const TSDB_Append_Data_Data&) const = default;
};

// TSDB_TRUNCATE_OLD_DATA.
struct TSDB_Truncate_Old_Data_Data {
    tql::id_t id;
    std::uint32_t index_property = 0;
    std::int64_t time = 0;  // seconds since 1970 UTC

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("index_property", self.index_property);
        visit("time", self.time);
    }
    bool operator==(const TSDB_Truncate_Old_Data_Data&) const = default;
};

// TQL_ACKNOWLEDGE.
struct Tql_Acknowledge_Data {
    std::int32_t req_id_to_ack = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("req_id_to_ack", self.req_id_to_ack);
    }
    bool operator==(const Tql_Acknowledge_Data&) const = default;
};

// TQL_FORGET.
struct Tql_Forget_Data {
    std::int32_t req_id_to_forget = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("req_id_to_forget", self.req_id_to_forget);
    }
    bool operator==(const Tql_Forget_Data&) const = default;
};

// RETURN_TQL_FORGET.
struct Return_Tql_Forget_Data {
    std::int32_t forgotten_req_id = 0;
    std::int32_t status = 0;
    std::list<Detail> details;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("forgotten_req_id", self.forgotten_req_id);
        visit("status", self.status);
        visit("details", self.details);
    }
    bool operator==(const Return_Tql_Forget_Data&) const = default;
};

// UPDATE_NETCHECKS.
struct Update_NetChecks_Data {
    std::list<NetCheck_Entry> checks;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("checks", self.checks);
    }
    bool operator==(const Update_NetChecks_Data&) const = default;
};

// RETURN_NETCHECK_INFO.
struct Return_NetCheck_Info_Data {
    std::string command;
    std::string result_pattern;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("command", self.command);
        visit("result_pattern", self.result_pattern);
    }
    bool operator==(const Return_NetCheck_Info_Data&) const = default;
};

// GET_FIRST_ID.
struct Get_First_ID_Data {
    template <class Self, class Visitor>
    static void fields(Self& /*self*/, Visitor& /*visit*/)
    {}
    bool operator==(const Get_First_ID_Data&) const = default;
};

// RETURN_ID.
struct Return_ID_Data {
    tql::object_origin_t origin;
    std::list<Path_Element> id_trace;
    tql::version_t obj_ver;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("origin", self.origin);
        visit("id_trace", self.id_trace);
        visit("obj_ver", self.obj_ver);
    }
    bool operator==(const Return_ID_Data&) const = default;
};

// GET_NEXT_ID.
struct Get_Next_ID_Data {
    tql::id_t id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
    }
    bool operator==(const Get_Next_ID_Data&) const = default;
};

// GET_FIRST_MASTERID.
struct Get_First_MasterID_Data {
    tql::id_t mountpoint_id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("mountpoint_id", self.mountpoint_id);
    }
    bool operator==(const Get_First_MasterID_Data&) const = default;
};

// RETURN_MASTERID.
struct Return_MasterID_Data {
    bool skip_this = false;
    tql::id_t id;
    tql::id_t master_id;
    tql::version_t obj_ver;
    tql::version_t master_ver;
    std::uint32_t master_build = 0;
    std::uint32_t slave_build = 0;
    bool locally_modified = false;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("skip_this", self.skip_this);
        visit("id", self.id);
        visit("master_id", self.master_id);
        visit("obj_ver", self.obj_ver);
        visit("master_ver", self.master_ver);
        visit("master_build", self.master_build);
        visit("slave_build", self.slave_build);
        visit("locally_modified", self.locally_modified);
    }
    bool operator==(const Return_MasterID_Data&) const = default;
};

// GET_NEXT_MASTERID.
struct Get_Next_MasterID_Data {
    tql::id_t mountpoint_id;
    tql::id_t master_id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("mountpoint_id", self.mountpoint_id);
        visit("master_id", self.master_id);
    }
    bool operator==(const Get_Next_MasterID_Data&) const = default;
};

// GET_TRACE.
struct Get_Trace_Data {
    tql::id_t id;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
    }
    bool operator==(const Get_Trace_Data&) const = default;
};

// RETURN_TRACE.
struct Return_Trace_Data {
    tql::object_origin_t origin;
    std::list<Path_Element> id_trace;
    tql::version_t obj_ver;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("origin", self.origin);
        visit("id_trace", self.id_trace);
        visit("obj_ver", self.obj_ver);
    }
    bool operator==(const Return_Trace_Data&) const = default;
};

// GET_DELETED.
struct Get_Deleted_Data {
    tql::id_t id;
    tql::id_t mountpoint;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("mountpoint", self.mountpoint);
    }
    bool operator==(const Get_Deleted_Data&) const = default;
};

// GET_DELETED_MASTERID.
struct Get_Deleted_MasterId_Data {
    tql::id_t master_id;
    tql::id_t mountpoint;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("master_id", self.master_id);
        visit("mountpoint", self.mountpoint);
    }
    bool operator==(const Get_Deleted_MasterId_Data&) const = default;
};

// RETURN_DELETED.
struct Return_Deleted_Data {
    tql::id_t id;
    tql::version_t version;
    tql::id_t master_id;
    tql::version_t master_version;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("version", self.version);
        visit("master_id", self.master_id);
        visit("master_version", self.master_version);
    }
    bool operator==(const Return_Deleted_Data&) const = default;
};

// RETIRE_DELETED.
struct Retire_Deleted_Data {
    tql::id_t id;
    tql::version_t version;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("version", self.version);
    }
    bool operator==(const Retire_Deleted_Data&) const = default;
};

// ADD_CANDIDATE_NODE.
struct Add_Candidate_Node_Data {
    std::string node_name;
    tql::id_t domain_id;
    std::string remaining_domain_name;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("node_name", self.node_name);
        visit("domain_id", self.domain_id);
        visit("remaining_domain_name", self.remaining_domain_name);
    }
    bool operator==(const Add_Candidate_Node_Data&) const = default;
};

}  // namespace dbms
