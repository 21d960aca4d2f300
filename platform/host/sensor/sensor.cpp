// Sensor service: pressure and pressure-trend sensors whose listeners get events on the default
// GLib main context, from the configured back end or injected by the control interface.
#include "platform/sensor.h"

#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <new>
#include <set>
#include <vector>

#include "core/host_internal.h"
#include "orvex_host/sensor_control.h"
#include "sensor/sensor_internal.h"

struct sensor_listener_s {
    sensor_type_e type;
    bool started = false;
    unsigned int interval = 0;
    sensor_event_cb callback = nullptr;
    void* userData = nullptr;
    int option = SENSOR_OPTION_DEFAULT;
    guint timer = 0;
    unsigned long sequence = 0;
};

namespace {

using orvex_host::sensor::Reading;
using orvex_host::sensor::ReadResult;

constexpr unsigned int kDefaultIntervalMs = 1000;
constexpr double kSteadyBand = 1.0;  // hPa over the trend window

struct SensorInfo {
    sensor_type_e type;
};

SensorInfo g_pressureSensor{SENSOR_PRESSURE};
SensorInfo g_trendSensor{SENSOR_PRESSURE_TREND};

struct TypeStats {
    int created = 0;
    int events = 0;
    std::map<int, int> attributes;  // of the newest listener
};

// Never destroyed, so that listeners a client still holds at exit stay reachable.
std::set<sensor_listener_s*>& g_listeners = *new std::set<sensor_listener_s*>;
std::map<int, TypeStats> g_stats;
std::set<guint> g_injections;
bool g_generating = true;
unsigned long g_sequence = 0;

bool known(sensor_listener_h listener) { return listener && g_listeners.count(listener) != 0; }

bool supportedType(int type) { return type == SENSOR_PRESSURE || type == SENSOR_PRESSURE_TREND; }

bool available(int type) {
    return supportedType(type) && orvex_host::sensor::backendProblem().empty();
}

// Builds the event the back end gives now; false when a trace has ended and nothing is to be sent.
bool makeEvent(sensor_type_e type, sensor_event_s* event) {
    memset(event, 0, sizeof *event);
    double t = orvex_host::sensor::now();
    event->timestamp = static_cast<unsigned long long>(t * 1e6);
    if (type == SENSOR_PRESSURE_TREND) {
        double trend = orvex_host::sensor::pressureTrend(t);
        event->accuracy = SENSOR_DATA_ACCURACY_GOOD;
        event->value_count = 2;
        event->values[0] = static_cast<float>(trend);
        event->values[1] = trend > kSteadyBand ? 1.0f : trend < -kSteadyBand ? -1.0f : 0.0f;
        return true;
    }
    Reading r;
    double trend = 0.0;
    ReadResult rc = orvex_host::sensor::readPressureAndTrend(t, &r, &trend);
    if (rc == ReadResult::kEnded) return false;
    event->value_count = 4;
    if (rc == ReadResult::kFailed) {
        // A sensor that does not answer reports itself through the status value.
        event->accuracy = SENSOR_DATA_ACCURACY_BAD;
        return true;
    }
    event->accuracy = SENSOR_DATA_ACCURACY_GOOD;
    event->values[0] = static_cast<float>(r.hpa);
    event->values[1] = static_cast<float>(trend / 3.0);
    event->values[2] = static_cast<float>(r.celsius);
    event->values[3] = 1.0f;
    return true;
}

void deliver(sensor_listener_s* l, sensor_event_s* event) {
    ++g_stats[l->type].events;
    sensor_h sensor = l->type == SENSOR_PRESSURE ? &g_pressureSensor : &g_trendSensor;
    l->callback(sensor, event, l->userData);
}

gboolean onTimer(gpointer data) {
    auto* l = static_cast<sensor_listener_s*>(data);
    guint self = g_source_get_id(g_main_current_source());
    sensor_event_s event;
    if (makeEvent(l->type, &event)) deliver(l, &event);
    // The callback may have stopped, restarted or destroyed the listener.
    return known(l) && l->timer == self ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

void disarm(sensor_listener_s* l) {
    if (l->timer) {
        g_source_remove(l->timer);
        l->timer = 0;
    }
}

void rearm(sensor_listener_s* l) {
    disarm(l);
    if (l->started && l->callback && g_generating)
        l->timer = g_timeout_add(l->interval ? l->interval : kDefaultIntervalMs, onTimer, l);
}

struct Injection {
    guint id;
    int type;
    sensor_event_s event;
};

gboolean onInjection(gpointer data) {
    auto* inj = static_cast<Injection*>(data);
    g_injections.erase(inj->id);
    std::vector<sensor_listener_s*> targets(g_listeners.begin(), g_listeners.end());
    for (auto* l : targets) {
        if (!known(l) || l->type != inj->type || !l->started || !l->callback) continue;
        sensor_event_s copy = inj->event;
        deliver(l, &copy);
    }
    return G_SOURCE_REMOVE;
}

void resetSensors() {
    for (guint id : g_injections) g_source_remove(id);
    g_injections.clear();
    for (auto* l : g_listeners) {
        disarm(l);
        delete l;
    }
    g_listeners.clear();
    g_stats.clear();
    g_generating = true;
}

[[maybe_unused]] const bool g_registered = orvex_host::onReset(&resetSensors);

}  // namespace

extern "C" int sensor_is_supported(sensor_type_e type, bool* supported) {
    ORVEX_HOST_FAULT_RETURN("sensor_is_supported");
    if (!supported) return SENSOR_ERROR_INVALID_PARAMETER;
    *supported = available(type);
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_get_default_sensor(sensor_type_e type, sensor_h* sensor) {
    ORVEX_HOST_FAULT_RETURN("sensor_get_default_sensor");
    if (!sensor) return SENSOR_ERROR_INVALID_PARAMETER;
    if (!available(type)) return SENSOR_ERROR_NOT_SUPPORTED;
    *sensor = type == SENSOR_PRESSURE ? &g_pressureSensor : &g_trendSensor;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_create_listener(sensor_h sensor, sensor_listener_h* listener) {
    ORVEX_HOST_FAULT_RETURN("sensor_create_listener");
    if (!listener || (sensor != &g_pressureSensor && sensor != &g_trendSensor))
        return SENSOR_ERROR_INVALID_PARAMETER;
    auto* l = new (std::nothrow) sensor_listener_s;
    if (!l) return SENSOR_ERROR_OUT_OF_MEMORY;
    l->type = static_cast<SensorInfo*>(sensor)->type;
    l->sequence = ++g_sequence;
    g_listeners.insert(l);
    TypeStats& stats = g_stats[l->type];
    ++stats.created;
    stats.attributes.clear();
    *listener = l;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_destroy_listener(sensor_listener_h listener) {
    ORVEX_HOST_FAULT_RETURN("sensor_destroy_listener");
    if (!known(listener)) return SENSOR_ERROR_INVALID_PARAMETER;
    disarm(listener);
    g_listeners.erase(listener);
    delete listener;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_listener_start(sensor_listener_h listener) {
    ORVEX_HOST_FAULT_RETURN("sensor_listener_start");
    if (!known(listener)) return SENSOR_ERROR_INVALID_PARAMETER;
    if (!listener->started) {
        listener->started = true;
        rearm(listener);
    }
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_listener_stop(sensor_listener_h listener) {
    ORVEX_HOST_FAULT_RETURN("sensor_listener_stop");
    if (!known(listener)) return SENSOR_ERROR_INVALID_PARAMETER;
    listener->started = false;
    disarm(listener);
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_listener_set_event_cb(sensor_listener_h listener, unsigned int interval_ms,
                                            sensor_event_cb callback, void* user_data) {
    ORVEX_HOST_FAULT_RETURN("sensor_listener_set_event_cb");
    if (!known(listener) || !callback) return SENSOR_ERROR_INVALID_PARAMETER;
    listener->interval = interval_ms;
    listener->callback = callback;
    listener->userData = user_data;
    rearm(listener);
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_listener_unset_event_cb(sensor_listener_h listener) {
    ORVEX_HOST_FAULT_RETURN("sensor_listener_unset_event_cb");
    if (!known(listener)) return SENSOR_ERROR_INVALID_PARAMETER;
    listener->callback = nullptr;
    listener->userData = nullptr;
    disarm(listener);
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_listener_set_option(sensor_listener_h listener, sensor_option_e option) {
    ORVEX_HOST_FAULT_RETURN("sensor_listener_set_option");
    if (!known(listener) || option < SENSOR_OPTION_DEFAULT || option > SENSOR_OPTION_ALWAYS_ON)
        return SENSOR_ERROR_INVALID_PARAMETER;
    listener->option = option;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_listener_set_attribute_int(sensor_listener_h listener,
                                                 sensor_attribute_e attribute, int value) {
    ORVEX_HOST_FAULT_RETURN("sensor_listener_set_attribute_int");
    if (!known(listener)) return SENSOR_ERROR_INVALID_PARAMETER;
    bool trendAttribute = attribute == SENSOR_ATTRIBUTE_TREND_WINDOW ||
                          attribute == SENSOR_ATTRIBUTE_TREND_FLUSH ||
                          attribute == SENSOR_ATTRIBUTE_TREND_ALERT;
    if (!trendAttribute || listener->type != SENSOR_PRESSURE_TREND)
        return SENSOR_ERROR_INVALID_PARAMETER;
    g_stats[listener->type].attributes[attribute] = value;
    return SENSOR_ERROR_NONE;
}

extern "C" int sensor_listener_read_data(sensor_listener_h listener, sensor_event_s* event) {
    ORVEX_HOST_FAULT_RETURN("sensor_listener_read_data");
    if (!known(listener) || !event) return SENSOR_ERROR_INVALID_PARAMETER;
    if (!makeEvent(listener->type, event)) return SENSOR_ERROR_NO_DATA;
    return SENSOR_ERROR_NONE;
}

extern "C" void orvex_host_sensor_set_generating(int enabled) {
    g_generating = enabled != 0;
    for (auto* l : g_listeners) rearm(l);
}

extern "C" int orvex_host_sensor_inject(int type, const float* values, int count) {
    if (!supportedType(type) || !values || count < 0 || count > SENSOR_EVENT_MAX_VALUES)
        return -EINVAL;
    auto* inj = new Injection{};
    inj->type = type;
    inj->event.accuracy = SENSOR_DATA_ACCURACY_GOOD;
    inj->event.timestamp = static_cast<unsigned long long>(orvex_host::sensor::now() * 1e6);
    inj->event.value_count = count;
    std::copy(values, values + count, inj->event.values);
    inj->id = g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, onInjection, inj,
                              [](gpointer p) { delete static_cast<Injection*>(p); });
    g_injections.insert(inj->id);
    return static_cast<int>(std::count_if(g_listeners.begin(), g_listeners.end(), [&](auto* l) {
        return l->type == type && l->started && l->callback;
    }));
}

extern "C" int orvex_host_sensor_listener_info_get(int type,
                                                   orvex_host_sensor_listener_info* info) {
    if (!info || !supportedType(type)) return -EINVAL;
    *info = orvex_host_sensor_listener_info{};
    const TypeStats& stats = g_stats[type];
    info->created = stats.created;
    info->events = stats.events;
    for (auto* l : g_listeners) {
        if (l->type != type) continue;
        ++info->live;
        if (l->started) ++info->started;
        if (l->callback) ++info->with_callback;
    }
    sensor_listener_s* newest = nullptr;
    for (auto* l : g_listeners)
        if (l->type == type && (!newest || l->sequence > newest->sequence)) newest = l;
    if (newest) {
        info->interval_ms = newest->interval;
        info->option = newest->option;
    }
    return 0;
}

extern "C" int orvex_host_sensor_listener_attribute(int type, int attribute, int* value) {
    if (!value) return -EINVAL;
    auto it = g_stats.find(type);
    if (it == g_stats.end()) return -ENOENT;
    auto a = it->second.attributes.find(attribute);
    if (a == it->second.attributes.end()) return -ENOENT;
    *value = a->second;
    return 0;
}
