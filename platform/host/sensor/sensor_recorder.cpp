// Sensor recorder: pressure samples kept in the host store with a retention period, read back as
// records of a fixed interval, one record per main-loop dispatch.
//
// Recording is a property of the store, so it survives the process; samples are taken by a timer
// of every process that started (or restarted) recording. The sim back end knows its past, so
// starting catches up on what was missed (at most the last six hours): a fresh machine has a
// history to show at once.
#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <map>
#include <new>
#include <set>
#include <vector>

#include "core/host_internal.h"
#include "orvex_host/sensor_control.h"
#include "platform/sensor.h"
#include "sensor/sensor_internal.h"

namespace {

using orvex_host::Stmt;

constexpr int kDefaultRetentionHours = 24;
constexpr int kDefaultIntervalMinutes = 1;
constexpr double kBackfillSeconds = 6 * 3600.0;

[[maybe_unused]] const bool g_schema = orvex_host::addSchema(
    "CREATE TABLE IF NOT EXISTS sensor_record(type INTEGER NOT NULL, time INTEGER NOT NULL,"
    " value REAL NOT NULL);"
    "CREATE INDEX IF NOT EXISTS sensor_record_time ON sensor_record(type, time);"
    "CREATE TABLE IF NOT EXISTS sensor_recorder(type INTEGER PRIMARY KEY,"
    " retention_hours INTEGER NOT NULL, interval_minutes INTEGER NOT NULL);");

struct Option {
    int retentionHours = kDefaultRetentionHours;
    int intervalMinutes = kDefaultIntervalMinutes;
};

struct Query {
    long long start = -1, end = -1, anchor = -1;
    int interval = -1;
};

struct Record {
    long long start, end;
    double mean, min, max;
};

struct Read {
    guint id = 0;
    sensor_type_e type;
    std::vector<Record> records;
    size_t next = 0;
    sensor_recorder_data_cb callback;
    void* userData;
};

// Handles the client never released stay reachable until exit: the registries are never destroyed.
std::set<Option*>& g_options = *new std::set<Option*>;
std::set<Query*>& g_queries = *new std::set<Query*>;
std::set<Read*>& g_reads = *new std::set<Read*>;
const Record* g_current = nullptr;  // the record being delivered; data handles point at it
guint g_sampler = 0;
bool g_haveLastRead = false;
orvex_host_sensor_read_info g_lastRead;

struct RecorderRow {
    int retentionHours;
    int intervalMinutes;
};

bool recorderRow(int type, RecorderRow* row) {
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    Stmt st(orvex_host::store(),
            "SELECT retention_hours, interval_minutes FROM sensor_recorder WHERE type=?");
    if (st.bind(1, type).step() != SQLITE_ROW) return false;
    row->retentionHours = sqlite3_column_int(st.get(), 0);
    row->intervalMinutes = sqlite3_column_int(st.get(), 1);
    return true;
}

bool insertSample(int type, long long time, double value) {
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    Stmt st(orvex_host::store(), "INSERT INTO sensor_record(type, time, value) VALUES(?, ?, ?)");
    return st.bind(1, type).bind(2, time).bind(3, value).step() == SQLITE_DONE;
}

void prune(int type, long long now, int retentionHours) {
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    Stmt st(orvex_host::store(), "DELETE FROM sensor_record WHERE type=? AND time<?");
    st.bind(1, type).bind(2, now - static_cast<long long>(retentionHours) * 3600).step();
}

long long lastSampleTime(int type) {
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    Stmt st(orvex_host::store(), "SELECT MAX(time) FROM sensor_record WHERE type=?");
    if (st.bind(1, type).step() != SQLITE_ROW || sqlite3_column_type(st.get(), 0) == SQLITE_NULL)
        return -1;
    return sqlite3_column_int64(st.get(), 0);
}

bool sampleNow(int type, const RecorderRow& row) {
    double t = orvex_host::sensor::now();
    orvex_host::sensor::Reading r;
    if (orvex_host::sensor::readPressure(t, &r) != orvex_host::sensor::ReadResult::kOk)
        return false;
    long long when = static_cast<long long>(std::floor(t));
    prune(type, when, row.retentionHours);
    return insertSample(type, when, r.hpa);
}

// Fills the gap since the last sample (at most six hours) from the model, in one transaction.
void backfill(int type, const RecorderRow& row) {
    if (!orvex_host::sensor::canBackfill()) return;
    long long now = static_cast<long long>(std::floor(orvex_host::sensor::now()));
    long long step = static_cast<long long>(row.intervalMinutes) * 60;
    long long from = now - static_cast<long long>(kBackfillSeconds);
    long long last = lastSampleTime(type);
    if (last >= 0) from = std::max(from, last + step);
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    orvex_host::storeExec("BEGIN");
    for (long long t = from; t < now; t += step) {
        orvex_host::sensor::Reading r;
        if (orvex_host::sensor::readPressure(static_cast<double>(t), &r) ==
            orvex_host::sensor::ReadResult::kOk)
            insertSample(type, t, r.hpa);
    }
    orvex_host::storeExec("COMMIT");
}

gboolean onSample(gpointer) {
    RecorderRow row;
    if (recorderRow(SENSOR_PRESSURE, &row)) sampleNow(SENSOR_PRESSURE, row);
    return G_SOURCE_CONTINUE;
}

void ensureSampler(const RecorderRow& row) {
    if (g_sampler) g_source_remove(g_sampler);
    g_sampler =
        g_timeout_add_seconds(static_cast<guint>(row.intervalMinutes) * 60, onSample, nullptr);
}

gboolean onDeliver(gpointer data) {
    auto* read = static_cast<Read*>(data);
    const Record& record = read->records[read->next++];
    int remains = static_cast<int>(read->records.size() - read->next);
    g_current = &record;
    bool more = read->callback(read->type, const_cast<Record*>(&record), remains, SENSOR_ERROR_NONE,
                               read->userData);
    g_current = nullptr;
    if (more && remains > 0) return G_SOURCE_CONTINUE;
    g_reads.erase(read);
    return G_SOURCE_REMOVE;
}

std::vector<Record> findRecords(int type, const Query& q) {
    std::vector<Record> out;
    std::vector<int> counts;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    Stmt st(orvex_host::store(),
            "SELECT time, value FROM sensor_record WHERE type=? AND time>=? AND time<=?"
            " ORDER BY time");
    st.bind(1, type).bind(2, q.start).bind(3, q.end);
    long long anchor = q.anchor >= 0 ? q.anchor : q.start;
    long long width = q.interval > 0 ? static_cast<long long>(q.interval) * 60 : 0;
    long long bin = 0;
    while (st.step() == SQLITE_ROW) {
        long long t = sqlite3_column_int64(st.get(), 0);
        double v = sqlite3_column_double(st.get(), 1);
        if (width == 0) {
            out.push_back(Record{t, t, v, v, v});
            counts.push_back(1);
            continue;
        }
        // Floor division, so that bins before the anchor line up with it too.
        long long k = (t - anchor) / width - ((t - anchor) % width < 0 ? 1 : 0);
        if (out.empty() || k != bin) {
            bin = k;
            long long from = std::max(anchor + k * width, q.start);
            long long to = std::min(anchor + (k + 1) * width - 1, q.end);
            out.push_back(Record{from, to, 0.0, v, v});
            counts.push_back(0);
        }
        Record& r = out.back();
        r.min = std::min(r.min, v);
        r.max = std::max(r.max, v);
        r.mean += v;
        ++counts.back();
    }
    for (size_t i = 0; i < out.size(); ++i) out[i].mean /= counts[i];
    return out;
}

void resetRecorder() {
    for (auto* read : g_reads) g_source_remove(read->id);
    g_reads.clear();
    for (auto* o : g_options) delete o;
    g_options.clear();
    for (auto* q : g_queries) delete q;
    g_queries.clear();
    if (g_sampler) g_source_remove(g_sampler);
    g_sampler = 0;
    g_haveLastRead = false;
}

[[maybe_unused]] const bool g_registered = orvex_host::onReset(&resetRecorder);

}  // namespace

extern "C" int sensor_recorder_is_supported(sensor_type_e type, bool* supported) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_is_supported");
    if (!supported) return SENSOR_ERROR_INVALID_PARAMETER;
    *supported = type == SENSOR_PRESSURE && orvex_host::sensor::backendProblem().empty();
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_create_option(sensor_recorder_option_h* option) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_create_option");
    if (!option) return SENSOR_ERROR_INVALID_PARAMETER;
    auto* o = new (std::nothrow) Option;
    if (!o) return SENSOR_ERROR_OUT_OF_MEMORY;
    g_options.insert(o);
    *option = o;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_destroy_option(sensor_recorder_option_h option) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_destroy_option");
    auto* o = static_cast<Option*>(option);
    if (!g_options.erase(o)) return SENSOR_ERROR_INVALID_PARAMETER;
    delete o;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_option_set_int(sensor_recorder_option_h option,
                                              sensor_recorder_option_e attribute, int value) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_option_set_int");
    auto* o = static_cast<Option*>(option);
    if (!g_options.count(o) || value <= 0) return SENSOR_ERROR_INVALID_PARAMETER;
    if (attribute == SENSOR_RECORDER_OPTION_RETENTION_PERIOD)
        o->retentionHours = value;
    else if (attribute == SENSOR_RECORDER_OPTION_INTERVAL)
        o->intervalMinutes = value;
    else
        return SENSOR_ERROR_INVALID_PARAMETER;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_start(sensor_type_e type, sensor_recorder_option_h option) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_start");
    auto* o = static_cast<Option*>(option);
    if (o && !g_options.count(o)) return SENSOR_ERROR_INVALID_PARAMETER;
    bool supported = false;
    sensor_recorder_is_supported(type, &supported);
    if (!supported) return SENSOR_ERROR_NOT_SUPPORTED;
    RecorderRow row;
    if (recorderRow(type, &row)) {
        // Recording goes on with its first options; this process takes its share of samples.
        backfill(type, row);
        ensureSampler(row);
        return SENSOR_ERROR_ALREADY_STARTED;
    }
    Option defaults;
    row = RecorderRow{(o ? o : &defaults)->retentionHours, (o ? o : &defaults)->intervalMinutes};
    {
        std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
        Stmt st(
            orvex_host::store(),
            "INSERT INTO sensor_recorder(type, retention_hours, interval_minutes) VALUES(?,?,?)");
        if (st.bind(1, static_cast<int>(type))
                .bind(2, row.retentionHours)
                .bind(3, row.intervalMinutes)
                .step() != SQLITE_DONE)
            return SENSOR_ERROR_IO_ERROR;
    }
    backfill(type, row);
    sampleNow(type, row);
    ensureSampler(row);
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_stop(sensor_type_e type) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_stop");
    RecorderRow row;
    if (!recorderRow(type, &row)) return SENSOR_ERROR_OPERATION_FAILED;
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    Stmt st(orvex_host::store(), "DELETE FROM sensor_recorder WHERE type=?");
    if (st.bind(1, static_cast<int>(type)).step() != SQLITE_DONE) return SENSOR_ERROR_IO_ERROR;
    if (g_sampler) g_source_remove(g_sampler);
    g_sampler = 0;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_create_query(sensor_recorder_query_h* query) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_create_query");
    if (!query) return SENSOR_ERROR_INVALID_PARAMETER;
    auto* q = new (std::nothrow) Query;
    if (!q) return SENSOR_ERROR_OUT_OF_MEMORY;
    g_queries.insert(q);
    *query = q;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_destroy_query(sensor_recorder_query_h query) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_destroy_query");
    auto* q = static_cast<Query*>(query);
    if (!g_queries.erase(q)) return SENSOR_ERROR_INVALID_PARAMETER;
    delete q;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_query_set_time(sensor_recorder_query_h query,
                                              sensor_recorder_query_e attribute, time_t t) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_query_set_time");
    auto* q = static_cast<Query*>(query);
    if (!g_queries.count(q) || t < 0) return SENSOR_ERROR_INVALID_PARAMETER;
    switch (attribute) {
        case SENSOR_RECORDER_QUERY_START_TIME:
            q->start = t;
            break;
        case SENSOR_RECORDER_QUERY_END_TIME:
            q->end = t;
            break;
        case SENSOR_RECORDER_QUERY_ANCHOR_TIME:
            q->anchor = t;
            break;
        default:
            return SENSOR_ERROR_INVALID_PARAMETER;
    }
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_query_set_int(sensor_recorder_query_h query,
                                             sensor_recorder_query_e attribute, int value) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_query_set_int");
    auto* q = static_cast<Query*>(query);
    if (!g_queries.count(q) || attribute != SENSOR_RECORDER_QUERY_TIME_INTERVAL || value < 0)
        return SENSOR_ERROR_INVALID_PARAMETER;
    q->interval = value;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_read(sensor_type_e type, sensor_recorder_query_h query,
                                    sensor_recorder_data_cb callback, void* user_data) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_read");
    auto* q = static_cast<Query*>(query);
    if (!g_queries.count(q) || !callback || q->start < 0 || q->end < q->start)
        return SENSOR_ERROR_INVALID_PARAMETER;
    if (type != SENSOR_PRESSURE) return SENSOR_ERROR_NOT_SUPPORTED;
    std::vector<Record> records = findRecords(type, *q);
    g_lastRead = orvex_host_sensor_read_info{
        type, q->start, q->end, q->anchor, q->interval, static_cast<int>(records.size())};
    g_haveLastRead = true;
    if (records.empty()) return SENSOR_ERROR_NONE;
    auto* read = new Read{0, type, std::move(records), 0, callback, user_data};
    read->id = g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, onDeliver, read,
                               [](gpointer p) { delete static_cast<Read*>(p); });
    g_reads.insert(read);
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_data_get_time(sensor_recorder_data_h data, time_t* start_time,
                                             time_t* end_time) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_data_get_time");
    if (!data || data != g_current || !start_time || !end_time)
        return SENSOR_ERROR_INVALID_PARAMETER;
    *start_time = static_cast<time_t>(g_current->start);
    *end_time = static_cast<time_t>(g_current->end);
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_recorder_data_get_double(sensor_recorder_data_h data,
                                               sensor_recorder_data_e attribute, double* value) {
    ORVEX_HOST_FAULT_RETURN("sensor_recorder_data_get_double");
    if (!data || data != g_current || !value) return SENSOR_ERROR_INVALID_PARAMETER;
    switch (attribute) {
        case SENSOR_RECORDER_DATA_PRESSURE:
            *value = g_current->mean;
            break;
        case SENSOR_RECORDER_DATA_MIN_PRESSURE:
            *value = g_current->min;
            break;
        case SENSOR_RECORDER_DATA_MAX_PRESSURE:
            *value = g_current->max;
            break;
        default:
            return SENSOR_ERROR_INVALID_PARAMETER;
    }
    return SENSOR_ERROR_NONE;
}

extern "C" int orvex_host_sensor_record_insert(int type, long long time, double value) {
    if (type != SENSOR_PRESSURE || time < 0 || !std::isfinite(value)) return -EINVAL;
    return insertSample(type, time, value) ? 0 : -EIO;
}

extern "C" int orvex_host_sensor_record_count(int type, long long from, long long to) {
    std::lock_guard<std::recursive_mutex> lock(orvex_host::storeMutex());
    Stmt st(orvex_host::store(),
            "SELECT COUNT(*) FROM sensor_record WHERE type=? AND time>=? AND time<=?");
    if (st.bind(1, type).bind(2, from).bind(3, to).step() != SQLITE_ROW) return -EIO;
    return sqlite3_column_int(st.get(), 0);
}

extern "C" int orvex_host_sensor_recorder_state(int type, int* started, int* retention_hours) {
    if (!started) return -EINVAL;
    RecorderRow row;
    *started = recorderRow(type, &row) ? 1 : 0;
    if (retention_hours) *retention_hours = *started ? row.retentionHours : 0;
    return 0;
}

extern "C" int orvex_host_sensor_recorder_sample_now(void) {
    RecorderRow row;
    if (!recorderRow(SENSOR_PRESSURE, &row)) return -ENOENT;
    return sampleNow(SENSOR_PRESSURE, row) ? 0 : -EIO;
}

extern "C" int orvex_host_sensor_recorder_queries(void) {
    return static_cast<int>(g_queries.size());
}

extern "C" int orvex_host_sensor_recorder_last_read(orvex_host_sensor_read_info* info) {
    if (!info) return -EINVAL;
    if (!g_haveLastRead) return -ENOENT;
    *info = g_lastRead;
    return 0;
}
