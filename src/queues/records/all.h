// All payload records.
#pragma once

#include "queues/records/alarms.h"
#include "queues/records/alert.h"
#include "queues/records/control.h"
#include "queues/records/dbms.h"
#include "queues/records/remcheck.h"
#include "queues/records/reporter.h"
#include "queues/records/router.h"
#include "queues/records/scan.h"
#include "queues/records/scheduler.h"
#include "queues/records/services.h"
#include "queues/records/skiogrid.h"
#include "queues/records/snmp.h"
#include "queues/records/socketio.h"
#include "queues/records/tsdb.h"
