// Reads the weather services' JSON answers through json-glib, guarding against deep nesting.
#include "WeatherParser.h"

#include <cstring>
#include <new>

#include "OrvexLog.h"

const std::string WeatherParser::PARSE_KEY_LOCATION_ID = "Key";
const std::string WeatherParser::PARSE_KEY_EPOCH_TIME = "EpochTime";
const std::string WeatherParser::PARSE_KEY_ATM_PRESSURE = "Pressure";
const std::string WeatherParser::PARSE_KEY_METRIC = "Metric";
const std::string WeatherParser::PARSE_KEY_VALUE = "Value";
const std::string WeatherParser::PARSE_KEY_UNIT_STR = "Unit";
const std::string WeatherParser::PARSE_KEY_UNIT_TYPE = "UnitType";
const std::string WeatherParser::PARSE_KEY_LOCALIZED = "Localized";
const std::string WeatherParser::PARSE_KEY_TWC_CURRENT = "v3-wx-observations-current";
const std::string WeatherParser::PARSE_KEY_TWC_SLP = "pressureMeanSeaLevel";
const std::string WeatherParser::PARSE_KEY_TWC_TIME = "validTimeUtc";

namespace {

// Answers come from the network: every node is checked for its kind before it is taken as an
// object or an array, so a malformed answer fails quietly instead of tripping GLib's checks.
JsonObject* asObject(JsonNode* node) {
    return (node && JSON_NODE_HOLDS_OBJECT(node)) ? json_node_get_object(node) : nullptr;
}

JsonArray* asArray(JsonNode* node) {
    return (node && JSON_NODE_HOLDS_ARRAY(node)) ? json_node_get_array(node) : nullptr;
}

JsonObject* firstObject(JsonArray* array) {
    if (!array || json_array_get_length(array) == 0) return nullptr;
    return asObject(json_array_get_element(array, 0));
}

JsonNode* member(JsonObject* object, const std::string& name) {
    return object ? json_object_get_member(object, name.c_str()) : nullptr;
}

// The node's value converted to the wanted type through a GValue; false when the node is not a
// scalar or the value does not convert.
bool valueAs(JsonNode* node, GType type, GValue* out) {
    if (!node || !JSON_NODE_HOLDS_VALUE(node)) return false;
    GValue raw = G_VALUE_INIT;
    json_node_get_value(node, &raw);
    g_value_init(out, type);
    bool ok = g_value_type_transformable(G_VALUE_TYPE(&raw), type) && g_value_transform(&raw, out);
    g_value_unset(&raw);
    if (!ok) g_value_unset(out);
    return ok;
}

// Real answers nest four levels deep. json-glib descends one stack frame per level, so a hostile
// body of nothing but brackets would exhaust the stack long before the parser notices anything.
constexpr int kMaxNesting = 64;

// Whether the body opens more than kMaxNesting arrays or objects at once. Brackets inside strings
// do not count; the scan stops at the first level too many.
bool nestsTooDeep(const char* data, size_t length) {
    int depth = 0;
    bool inString = false;
    for (size_t i = 0; i < length; ++i) {
        char c = data[i];
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaxNesting) return true;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

std::tr1::shared_ptr<WeatherData> newRecord() {
    return std::tr1::shared_ptr<WeatherData>(new (std::nothrow) WeatherData());
}

}  // namespace

WeatherParser::WeatherParser() : parser(nullptr), root(nullptr) {}

WeatherParser::~WeatherParser() {
    root = nullptr;
    if (parser) g_object_unref(parser);
}

void WeatherParser::Parse(char* data, int length) {
    if (data == nullptr) {
        ORVEX_LOGE("jsonData is NULL");
        return;
    }
    if (parser != nullptr) {
        ORVEX_LOGE("previous parser is not closed. find it !!!");
        ORVEX_LOGE("parsing is failed");
        // The earlier document goes: nothing may still point into it.
        root = nullptr;
        g_object_unref(parser);
    }
    parser = json_parser_new();
    if (parser) {
        size_t size = length < 0 ? strlen(data) : static_cast<size_t>(length);
        GError* error = nullptr;
        if (nestsTooDeep(data, size)) {
            ORVEX_LOGE("parsing is failed [nesting deeper than %d levels]", kMaxNesting);
            ORVEX_LOGE("parsing is failed");
        } else if (!json_parser_load_from_data(parser, data, length, &error)) {
            ORVEX_LOGE("parsing is failed [%s]", error ? error->message : "");
            ORVEX_LOGE("parsing is failed");
            g_clear_error(&error);
        }
    }
    root = parser ? json_parser_get_root(parser) : nullptr;
}

std::string WeatherParser::GetLocationID() {
    if (root == nullptr) {
        ORVEX_LOGE("Failed get root node");
        return std::string();
    }
    JsonNode* key = member(asObject(root), PARSE_KEY_LOCATION_ID);
    return key ? GetStringValue(key) : std::string();
}

std::tr1::shared_ptr<WeatherData> WeatherParser::GetWeatherData() {
    std::tr1::shared_ptr<WeatherData> data = newRecord();
    if (!data) return data;
    if (root == nullptr) {
        ORVEX_LOGE("Failed get root node");
        return std::tr1::shared_ptr<WeatherData>();
    }
    JsonArray* array = asArray(root);
    if (array == nullptr) {
        ORVEX_LOGE("root array null");
        return std::tr1::shared_ptr<WeatherData>();
    }
    JsonObject* info = firstObject(array);
    if (info == nullptr) {
        ORVEX_LOGE("weatherInfoRootObject null");
        return std::tr1::shared_ptr<WeatherData>();
    }
    if (JsonNode* epoch = member(info, PARSE_KEY_EPOCH_TIME)) {
        double seconds = static_cast<double>(GetInt64Value(epoch));
        ORVEX_LOGE("update Time : %lf", seconds);
        data->updateTime = seconds * 1000.0;
    }
    JsonNode* pressure = member(info, PARSE_KEY_ATM_PRESSURE);
    if (pressure == nullptr) {
        ORVEX_LOGE("key [%s] is not found", PARSE_KEY_ATM_PRESSURE.c_str());
        return std::tr1::shared_ptr<WeatherData>();
    }
    DoubleValueUnit metric = GetDoubleValueUnit(pressure, PARSE_KEY_METRIC);
    // A pressure without its unit type is left at 0.0; the answer still counts as read.
    if (metric.unitType != -1) {
        data->pressure = metric.value;
        data->pressureUnit = 0;
    }
    data->result = 0;
    data->provider = 0;
    return data;
}

std::tr1::shared_ptr<WeatherData> WeatherParser::GetTWCWeatherData() {
    std::tr1::shared_ptr<WeatherData> data = newRecord();
    if (!data) return data;
    if (root == nullptr) {
        ORVEX_LOGE("Failed get root node");
        return std::tr1::shared_ptr<WeatherData>();
    }
    JsonObject* info = asObject(root);
    if (info == nullptr) {
        ORVEX_LOGE("weatherInfoRootObject null");
        return std::tr1::shared_ptr<WeatherData>();
    }
    JsonNode* currentNode = member(info, PARSE_KEY_TWC_CURRENT);
    if (currentNode == nullptr) {
        ORVEX_LOGE("key [%s] is not found", PARSE_KEY_TWC_CURRENT.c_str());
        return std::tr1::shared_ptr<WeatherData>();
    }
    JsonObject* current = asObject(currentNode);
    if (current == nullptr) {
        ORVEX_LOGE("currentObject is null");
        return std::tr1::shared_ptr<WeatherData>();
    }
    if (JsonNode* time = member(current, PARSE_KEY_TWC_TIME))
        data->updateTime = static_cast<double>(GetInt64Value(time)) * 1000.0;
    if (JsonNode* slp = member(current, PARSE_KEY_TWC_SLP)) {
        data->pressure = GetDoubleValue(slp);
        data->pressureUnit = 0;
    }
    data->result = 0;
    data->provider = 1;
    return data;
}

double WeatherParser::GetAtmPressure() {
    if (root == nullptr) {
        ORVEX_LOGE("Failed get root node");
        return -1.0;
    }
    JsonArray* array = asArray(root);
    if (array == nullptr) {
        ORVEX_LOGE("root array null");
        return -1.0;
    }
    JsonObject* info = firstObject(array);
    if (info == nullptr) {
        ORVEX_LOGE("weatherInfoRootObject null");
        return -1.0;
    }
    JsonObject* pressure = asObject(member(info, PARSE_KEY_ATM_PRESSURE));
    if (pressure == nullptr) {
        ORVEX_LOGE("key [%s] is not found", PARSE_KEY_ATM_PRESSURE.c_str());
        return -1.0;
    }
    JsonNode* metricNode = member(pressure, PARSE_KEY_METRIC);
    if (metricNode == nullptr) {
        ORVEX_LOGE("key [%s] is not found", PARSE_KEY_METRIC.c_str());
        return -1.0;
    }
    JsonObject* metric = asObject(metricNode);
    if (metric == nullptr) {
        // Names the enclosing member, as the callers' logs have always read.
        ORVEX_LOGE("key [%s] is not found", PARSE_KEY_ATM_PRESSURE.c_str());
        return -1.0;
    }
    JsonNode* value = member(metric, PARSE_KEY_VALUE);
    if (value == nullptr) return -1.0;
    double atm = GetDoubleValue(value);
    ORVEX_LOGE("atm pressure : %lf", atm);
    return atm;
}

double WeatherParser::GetDoubleValue(JsonNode* node) {
    GValue v = G_VALUE_INIT;
    if (!valueAs(node, G_TYPE_DOUBLE, &v)) return 0.0;
    double result = g_value_get_double(&v);
    g_value_unset(&v);
    return result;
}

int64_t WeatherParser::GetInt64Value(JsonNode* node) {
    GValue v = G_VALUE_INIT;
    if (!valueAs(node, G_TYPE_INT64, &v)) return 0;
    int64_t result = g_value_get_int64(&v);
    g_value_unset(&v);
    return result;
}

int WeatherParser::GetIntValue(JsonNode* node) {
    if (node && JSON_NODE_HOLDS_VALUE(node) && json_node_get_value_type(node) == G_TYPE_INT64)
        return static_cast<int>(GetInt64Value(node));
    GValue v = G_VALUE_INIT;
    if (!valueAs(node, G_TYPE_INT, &v)) return 0;
    int result = g_value_get_int(&v);
    g_value_unset(&v);
    return result;
}

std::string WeatherParser::GetStringValue(JsonNode* node) {
    GValue v = G_VALUE_INIT;
    if (!valueAs(node, G_TYPE_STRING, &v)) return std::string();
    const gchar* text = g_value_get_string(&v);
    std::string result = text ? text : "";
    g_value_unset(&v);
    return result;
}

WeatherParser::DoubleValueUnit WeatherParser::GetDoubleValueUnit(JsonNode* node, std::string key) {
    DoubleValueUnit result;
    JsonObject* object = asObject(member(asObject(node), key));
    if (object == nullptr) return result;
    if (JsonNode* value = member(object, PARSE_KEY_VALUE)) result.value = GetDoubleValue(value);
    if (JsonNode* unit = member(object, PARSE_KEY_UNIT_STR)) result.unit = GetStringValue(unit);
    if (JsonNode* type = member(object, PARSE_KEY_UNIT_TYPE)) result.unitType = GetIntValue(type);
    return result;
}
