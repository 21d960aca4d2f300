// The service's shared state: its settings, the calibration source, its lock and status record.
#include "ServiceState.h"

#include <errno.h>
#include <fcntl.h>
#include <glib/gstdio.h>
#include <json-glib/json-glib.h>
#include <orvex_host/control.h>
#include <platform/app_preference.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "OrvexStorageMgr.h"

namespace orvex_tool {
namespace {

struct SettingKey {
    const char* name;
    const char* key;
    int min, max;
    int ServiceSettings::*field;
};

const SettingKey kSettingKeys[] = {
    {"retention-hours", "ORVEX_TOOL_RETENTION_HOURS", 1, 7 * 24, &ServiceSettings::retentionHours},
    {"gnss-interval", "ORVEX_TOOL_GNSS_INTERVAL_MINUTES", 1, 7 * 24 * 60,
     &ServiceSettings::gnssIntervalMinutes},
    {"agent-interval", "ORVEX_TOOL_AGENT_INTERVAL_MINUTES", 1, 7 * 24 * 60,
     &ServiceSettings::agentIntervalMinutes},
};
constexpr const char* kSourceKey = "ORVEX_TOOL_CALIBRATION_SOURCE";

std::string dataFile(const char* name) { return std::string(orvex_host_data_dir()) + "/" + name; }

long long storedCalibrationTime() {
    try {
        return OrvexStorageMgr::getInstance()->getDataCalTime();
    } catch (const std::exception&) {
        return 0;
    }
}

// A status record is a few hundred bytes; anything much larger is not one.
constexpr goffset kMaxStatusBytes = 64 * 1024;

}  // namespace

const char* const kServiceSettingsUsage =
    "  retention-hours N   hours of recorded pressure kept (1 to 168, default 24)\n"
    "  gnss-interval MIN   at most one calibration from GNSS per MIN minutes (default 60)\n"
    "  agent-interval MIN  at most one from the weather agent or services per MIN (default 180)";

ServiceSettings loadServiceSettings() {
    ServiceSettings settings;
    for (const auto& k : kSettingKeys) {
        int value = 0;
        if (preference_get_int(k.key, &value) == PREFERENCE_ERROR_NONE && value >= k.min &&
            value <= k.max)
            settings.*k.field = value;
    }
    return settings;
}

std::string saveServiceSetting(const std::string& name, int value) {
    for (const auto& k : kSettingKeys) {
        if (name != k.name) continue;
        if (value < k.min || value > k.max)
            return name + " is " + std::to_string(k.min) + " to " + std::to_string(k.max);
        int rc = preference_set_int(k.key, value);
        return rc == PREFERENCE_ERROR_NONE
                   ? ""
                   : "the store refused the value (error " + std::to_string(rc) + ")";
    }
    return "unknown setting '" + name + "' (retention-hours, gnss-interval or agent-interval)";
}

void noteCalibrationSource(const char* source) {
    std::string note = std::string(source) + " " + std::to_string(storedCalibrationTime());
    preference_set_string(kSourceKey, note.c_str());
}

std::string calibrationSource() {
    char* text = nullptr;
    if (preference_get_string(kSourceKey, &text) != PREFERENCE_ERROR_NONE) return "";
    std::string note = text ? text : "";
    free(text);
    size_t space = note.find(' ');
    if (space == std::string::npos) return "";
    long long when = g_ascii_strtoll(note.c_str() + space + 1, nullptr, 10);
    return when == storedCalibrationTime() ? note.substr(0, space) : "";
}

ServiceLock::~ServiceLock() {
    if (fd_ >= 0) close(fd_);
}

namespace {

long pidIn(int fd) {
    char text[32] = {};
    ssize_t n = pread(fd, text, sizeof text - 1, 0);
    return n > 0 ? strtol(text, nullptr, 10) : 0;
}

}  // namespace

bool ServiceLock::acquire(long* holder, std::string* error) {
    *holder = 0;
    const std::string path = dataFile("service.lock");
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        *error = "cannot open " + path + ": " + strerror(errno);
        return false;
    }
    // `status` holds the lock shared for a moment to look; give it that moment.
    int rc = -1;
    for (int attempt = 0; attempt < 20; ++attempt) {
        rc = flock(fd, LOCK_EX | LOCK_NB);
        if (rc == 0 || errno != EWOULDBLOCK) break;
        g_usleep(10000);
    }
    if (rc != 0) {
        if (errno == EWOULDBLOCK) {
            *holder = pidIn(fd);
        } else {
            *error = "cannot lock " + path + ": " + strerror(errno);
        }
        close(fd);
        return false;
    }
    std::string pid = std::to_string(static_cast<long>(getpid())) + "\n";
    if (ftruncate(fd, 0) != 0 ||
        pwrite(fd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
        *error = "cannot write " + path + ": " + strerror(errno);
        close(fd);
        return false;
    }
    fd_ = fd;
    return true;
}

bool ServiceLock::held(long* pid) {
    *pid = 0;
    int fd = open(dataFile("service.lock").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return false;
    bool held = flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    if (held) *pid = pidIn(fd);
    close(fd);
    return held;
}

std::string backendName(const char* name) { return name ? name : "unknown"; }

bool writeServiceStatus(const ServiceStatus& s) {
    g_autoptr(JsonBuilder) b = json_builder_new();
    json_builder_begin_object(b);
    auto number = [&](const char* key, double value) {
        json_builder_set_member_name(b, key);
        if (std::isfinite(value))
            json_builder_add_double_value(b, value);
        else
            json_builder_add_null_value(b);
    };
    auto integer = [&](const char* key, long long value) {
        json_builder_set_member_name(b, key);
        json_builder_add_int_value(b, value);
    };
    auto text = [&](const char* key, const std::string& value) {
        json_builder_set_member_name(b, key);
        json_builder_add_string_value(b, value.c_str());
    };
    integer("pid", s.pid);
    integer("started", s.started);
    text("sensor", s.sensorBackend);
    text("location", s.locationBackend);
    text("agent", s.agentBackend);
    number("reading_time", s.readingTime);
    number("pressure_hpa", s.pressureHpa);
    number("next_calibration", s.nextCalibration);
    text("problem", s.problem);
    integer("calibration_time", s.calibrationTime);
    text("calibration_detail", s.calibrationDetail);
    number("calibration_altitude_m", s.calibrationAltitude);
    number("calibration_pressure_hpa", s.calibrationPressure);
    json_builder_end_object(b);
    g_autoptr(JsonNode) root = json_builder_get_root(b);
    g_autofree char* json = json_to_string(root, FALSE);

    const std::string path = dataFile("service.json");
    std::string temp = path + ".XXXXXX";
    int fd = g_mkstemp_full(&temp[0], O_WRONLY | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    size_t length = strlen(json);
    bool ok = write(fd, json, length) == static_cast<ssize_t>(length);
    ok = close(fd) == 0 && ok;
    if (ok) ok = g_rename(temp.c_str(), path.c_str()) == 0;
    if (!ok) g_unlink(temp.c_str());
    return ok;
}

bool readServiceStatus(ServiceStatus* s) {
    const std::string path = dataFile("service.json");
    GStatBuf st;
    if (g_lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kMaxStatusBytes)
        return false;
    g_autoptr(JsonParser) parser = json_parser_new();
    if (!json_parser_load_from_file(parser, path.c_str(), nullptr)) return false;
    JsonNode* root = json_parser_get_root(parser);
    if (!root || !JSON_NODE_HOLDS_OBJECT(root)) return false;
    JsonObject* o = json_node_get_object(root);
    auto value = [&](const char* key, GType type) -> JsonNode* {
        JsonNode* n = json_object_get_member(o, key);
        return n && JSON_NODE_HOLDS_VALUE(n) && json_node_get_value_type(n) == type ? n : nullptr;
    };
    auto number = [&](const char* key) {
        JsonNode* n = value(key, G_TYPE_DOUBLE);
        if (!n) n = value(key, G_TYPE_INT64);
        return n ? json_node_get_double(n) : NAN;
    };
    auto integer = [&](const char* key) {
        JsonNode* n = value(key, G_TYPE_INT64);
        return n ? json_node_get_int(n) : 0;
    };
    auto text = [&](const char* key) {
        JsonNode* n = value(key, G_TYPE_STRING);
        return std::string(n ? json_node_get_string(n) : "");
    };
    s->pid = static_cast<long>(integer("pid"));
    s->started = integer("started");
    s->sensorBackend = text("sensor");
    s->locationBackend = text("location");
    s->agentBackend = text("agent");
    s->readingTime = number("reading_time");
    s->pressureHpa = number("pressure_hpa");
    s->nextCalibration = number("next_calibration");
    s->problem = text("problem");
    s->calibrationTime = integer("calibration_time");
    s->calibrationDetail = text("calibration_detail");
    s->calibrationAltitude = number("calibration_altitude_m");
    s->calibrationPressure = number("calibration_pressure_hpa");
    return true;
}

}  // namespace orvex_tool
