// The host location service's own sources of position: its settings, track files and gpsd.
#include <gio/gio.h>
#include <orvex_host/location_control.h>
#include <platform/location_manager.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <fstream>

#include "HostFixture.h"
#include "MainLoop.h"

namespace {

std::string write(const std::string& name, const std::string& text) {
    std::string path = std::string(orvex_host_data_dir()) + "/" + name;
    std::ofstream(path) << text;
    return path;
}

// Figures as text, so that NAN (not known) compares equal to itself: "lat lon alt".
std::string text(std::initializer_list<double> values) {
    std::string out;
    for (double v : values) {
        char buf[32];
        snprintf(buf, sizeof buf, "%s%.9g", out.empty() ? "" : " ", v);
        out += buf;
    }
    return out;
}

std::string gpx(const std::string& points) {
    return "<gpx version=\"1.1\"><trk><trkseg>\n" + points + "</trkseg></trk></gpx>";
}

std::string point(const char* lat, const char* children) {
    return std::string("<trkpt lat=\"") + lat + "\" lon=\"2\">" + children + "</trkpt>\n";
}

class LocationHostTest : public orvex_test::HostTest {
protected:
    ~LocationHostTest() override { location_manager_destroy(m); }
    static void onState(location_service_state_e state, void* self) {
        static_cast<LocationHostTest*>(self)->states.push_back(state);
    }
    void start() {
        location_manager_destroy(m);
        states.clear();
        ASSERT_EQ(0, location_manager_create(LOCATIONS_METHOD_HYBRID, &m));
        ASSERT_EQ(0, location_manager_set_service_state_changed_cb(m, onState, this));
        ASSERT_EQ(0, location_manager_start(m));
    }
    // "lat lon alt"; empty: none.
    std::string position(bool last = false) {
        double lat, lon, alt;
        auto get = last ? location_manager_get_last_position : location_manager_get_position;
        return get(m, &alt, &lat, &lon, nullptr) == 0 ? text({lat, lon, alt}) : "";
    }
    // "level horizontal vertical climb direction speed"; empty: none.
    std::string accuracyAndVelocity() {
        location_accuracy_level_e level;
        double h, v, climb, direction, speed;
        if (location_manager_get_accuracy(m, &level, &h, &v) != 0 ||
            location_manager_get_velocity(m, &climb, &direction, &speed) != 0)
            return "";
        return text({double(level), h, v, climb, direction, speed});
    }
    location_manager_h m = nullptr;
    std::vector<int> states;
};

TEST_F(LocationHostTest, EnvironmentIsCheckedLikeTheOptions) {
    const struct {
        const char *name, *value, *problem;
    } cases[] = {
        {"ORVEX_HOST_LOCATION_GPSD_PORT", "296110", "'296110' is not a port (1 to 65535)"},
        {"ORVEX_HOST_LOCATION_GPSD_PORT", "80x", "'80x' is not a port (1 to 65535)"},
        {"ORVEX_HOST_LOCATION_GPSD_HOST", "", "'' is not a host name"},
        {"ORVEX_HOST_LOCATION_BACKEND", "gps",
         "unknown location back end 'gps' (fixed, track or gpsd)"},
        {"ORVEX_HOST_LOCATION_POSITION", "46,7", "'46,7' is not LATITUDE,LONGITUDE,ALTITUDE_M"},
        {"ORVEX_HOST_LOCATION_POSITION", "91,7,0",
         "latitude is -90 to 90 and longitude -180 to 180"},
        {"ORVEX_HOST_LOCATION_POSITION", "46,7,1e308",
         "altitude 1e+308 m is implausible (an altitude is -500 to 9000 m)"},
        {"ORVEX_HOST_LOCATION_ENABLED", "yes", "'yes' is not 0 or 1"},
        {"ORVEX_HOST_LOCATION_TRACK", "/dev/zero", "/dev/zero: not a regular file"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + "=" + c.value);
        setenv(c.name, c.value, 1);
        std::string line = std::string(c.name) + ": " + c.problem;
        EXPECT_EQ(line, orvex_test::lent(orvex_host_location_config_problem()));
        // The option of the same setting refuses it in the same words.
        std::string key = std::string(c.name).substr(11);
        for (auto& ch : key) ch = char(tolower(ch));
        EXPECT_EQ(c.problem,
                  orvex_test::lent(orvex_host_location_setting_problem(key.c_str(), c.value)));
        // Refused, not replaced by a default: the service does not start, and says why once.
        orvex_test::clearLog();
        location_manager_h h = nullptr;
        EXPECT_EQ(0, location_manager_create(LOCATIONS_METHOD_HYBRID, &h));
        EXPECT_EQ(LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE, location_manager_start(h));
        EXPECT_EQ(LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE, location_manager_start(h));
        EXPECT_EQ(1, int(orvex_test::logLines().size()));
        EXPECT_TRUE(orvex_test::logged(DLOG_ERROR, line));
        location_manager_destroy(h);
        unsetenv(c.name);
        orvex_host_reset();
    }
    EXPECT_EQ("", orvex_test::lent(orvex_host_location_config_problem()));
}

TEST_F(LocationHostTest, TracksAreReplayedOrRefusedNamingTheFileAndLine) {
    auto good = point("1", "<ele>3</ele><time>2020-12-18T06:15:50Z</time>");
    std::string deep = "<gpx version=\"1.0\">\n";
    for (int i = 0; i < 100; ++i) deep += "<e>";
    std::string fifo = std::string(orvex_host_data_dir()) + "/fifo.gpx";
    mkfifo(fifo.c_str(), 0600);
    std::string large = write("large.csv", "");
    EXPECT_EQ(0, truncate(large.c_str(), (64 << 20) + 1));
    const double nan = NAN;
    const struct {
        std::string problem, path;  // the problem's beginning; empty for a good track
        std::string first = "";
    } cases[] = {
        {"", ORVEX_TEST_DATA "/track-gpx10.gpx", text({45.772175035, 14.357659249, 542.320923})},
        {"", ORVEX_TEST_DATA "/track-gpx11.gpx", text({45.273518851, 13.7142099626, 211.15})},
        {": no track points (a route or waypoints only)", ORVEX_TEST_DATA "/route-only.gpx"},
        {": no track points (a route or waypoints only)", ORVEX_TEST_DATA "/waypoints-only.gpx"},
        // Extensions may carry their own points with lat and lon; they are not the track.
        {": no track points", write("ext.gpx", "<gpx version=\"1.1\"><trk><extensions>" + good +
                                                   "</extensions><trkseg/></trk></gpx>")},
        {": Error on line 3",
         write("cut.gpx", "<gpx version=\"1.0\">\n<trk><trkseg>" + good + "</trk>")},
        {":3: latitude is -90 to 90", write("lat.gpx", gpx(good + point("90.5", "")))},
        {":2: elements nested deeper than 64 levels", write("deep.gpx", deep)},
        {":3: altitude 1e+308 m is implausible (an altitude is -500 to 9000 m)",
         write("ele.gpx", gpx(good + point("1", "<ele>1e308</ele>")))},
        {":2: time 2150-01-01T00:00:00Z is implausible (a time is 2000 to 2100)",
         write("when.gpx", gpx(point("1", "<time>2150-01-01T00:00:00Z</time>")))},
        {":2: a track point needs a time", write("notime.gpx", gpx(point("1", "<ele>3</ele>")))},
        {":3: time goes back",
         write("back.gpx", gpx(good + point("1", "<time>2020-12-18T06:15:49Z</time>")))},
        {":2: latitude is -90 to 90", write("range.csv", "t,lat,lon,alt\n0,999,-999,1e308\n")},
        {":1: altitude 1e+308 m is implausible (an altitude is -500 to 9000 m)",
         write("alt.csv", "0,1,2,1e308\n")},
        {": not a regular file", fifo},
        {": not a regular file", "/dev/zero"},
        {": too large for a track (more than 64 MiB)", large},
        // No height, a 2D fix: no altitude. A step back of 0.34 ms is jitter; the last point
        // holds after the end.
        {"",
         write("walk.gpx", gpx(point("10", "<ele>30</ele><time>2024-05-01T10:00:00Z</time>") +
                               point("11", "<time>2024-05-01T10:00:00.6Z</time>") +
                               point("12",
                                     "<ele>5</ele><fix>2d</fix><time>"
                                     "2024-05-01T10:00:00.59966Z</time>"))),
         text({10, 2, 30})},
    };
    std::string fallback = write("good.csv", "# seconds,lat,lon,alt\n0,46.5,7.9,1034\n");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(0, orvex_host_location_set_track(fallback.c_str()));
        start();  // each track from its start
        std::string problem = orvex_test::lent(orvex_host_location_track_problem(c.path.c_str()));
        EXPECT_EQ(c.problem.empty() ? "" : c.path + c.problem,
                  problem.substr(0, c.problem.empty() ? 0 : c.path.size() + c.problem.size()));
        // A refused file leaves the track before it in place.
        EXPECT_EQ(c.problem.empty() ? 0 : -EINVAL, orvex_host_location_set_track(c.path.c_str()));
        EXPECT_EQ(c.problem.empty() ? c.first : text({46.5, 7.9, 1034}), position());
    }
    // The last one is replayed on the points' own times.
    EXPECT_TRUE(orvex_test::runUntil([&] { return position() == text({12, 2, nan}); }));
    EXPECT_EQ(text({double(LOCATIONS_ACCURACY_DETAILED), nan, nan, nan, nan, nan}),
              accuracyAndVelocity());

    // Swapped for a FIFO after it was taken: refused, and nothing blocks.
    std::string walk = cases[std::size(cases) - 1].path;
    unlink(walk.c_str());
    mkfifo(walk.c_str(), 0600);
    EXPECT_EQ("", position());
    EXPECT_EQ(walk + ": not a regular file", orvex_test::lent(orvex_host_location_problem()));
}

TEST_F(LocationHostTest, ALargeTrackIsReadOnTheMainLoopInSlices) {
    std::string points;
    for (int i = 0; i < 100000; ++i)
        points += point("45.5", "<ele>100</ele><time>2024-05-01T10:00:00Z</time>");
    std::string path = write("large.gpx", gpx(points));
    ASSERT_EQ(0, orvex_host_location_set_track(path.c_str()));
    // Another version of the file: read again, from the service this time.
    std::ofstream(path, std::ios::app) << "\n";
    start();
    EXPECT_EQ("", position());
    EXPECT_EQ(path + ": still being read", orvex_test::lent(orvex_host_location_problem()));
    EXPECT_TRUE(orvex_test::runUntil([&] { return states == std::vector<int>{1}; }));
    EXPECT_EQ(text({45.5, 2, 100}), position());
}

// A stand-in gpsd on loopback that answers every connection with a script.
struct FakeGpsd {
    enum Then { Stay, Close, Flood };
    FakeGpsd(std::string script, Then then) : script(std::move(script)), then(then) {
        port = g_socket_listener_add_any_inet_port(G_SOCKET_LISTENER(service), nullptr, nullptr);
        g_signal_connect(service, "incoming", G_CALLBACK(onClient), this);
    }
    ~FakeGpsd() {
        g_cancellable_cancel(cancel);  // writes still under way end without us
        g_object_unref(cancel);
        g_socket_service_stop(service);
        g_socket_listener_close(G_SOCKET_LISTENER(service));
        g_object_unref(service);
        for (auto* c : kept) g_object_unref(c);
    }
    struct Send {
        FakeGpsd* gpsd;
        GSocketConnection* connection;
    };
    static gboolean onClient(GSocketService*, GSocketConnection* c, GObject*, gpointer self) {
        auto* g = static_cast<FakeGpsd*>(self);
        g->connectedAt.push_back(g_get_monotonic_time());
        send(new Send{g, G_SOCKET_CONNECTION(g_object_ref(c))});
        return TRUE;
    }
    static void send(Send* s) {
        g_output_stream_write_all_async(g_io_stream_get_output_stream(G_IO_STREAM(s->connection)),
                                        s->gpsd->script.data(), s->gpsd->script.size(),
                                        G_PRIORITY_DEFAULT, s->gpsd->cancel, onSent, s);
    }
    static void onSent(GObject* out, GAsyncResult* result, gpointer data) {
        auto* s = static_cast<Send*>(data);
        bool ok = g_output_stream_write_all_finish(G_OUTPUT_STREAM(out), result, nullptr, nullptr);
        if (ok && s->gpsd->then == Flood) return send(s);
        if (ok && s->gpsd->then == Close)
            g_io_stream_close(G_IO_STREAM(s->connection), nullptr, nullptr);
        // Stay: the connection stays open as long as the client keeps it.
        if (ok && s->gpsd->then == Stay)
            s->gpsd->kept.push_back(s->connection);
        else
            g_object_unref(s->connection);
        delete s;
    }
    std::string script;
    Then then;
    GCancellable* cancel = g_cancellable_new();
    GSocketService* service = g_socket_service_new();
    guint16 port = 0;
    std::vector<gint64> connectedAt;
    std::vector<GSocketConnection*> kept;
};

TEST_F(LocationHostTest, GpsdIsReadWithinBoundsAndOnlyPlausibleFixesPass) {
    const double nan = NAN;
    const std::string tpv = R"({"class":"TPV","mode":3,"lat":46.5,"lon":7.9,)";
    const std::string detailed = std::to_string(LOCATIONS_ACCURACY_DETAILED) + " ";
    std::string deep(100, '[');
    std::string tpvs;
    while (tpvs.size() < (256 << 10)) tpvs += tpv + "\"altMSL\":1034.5}\n";
    const struct {
        const char* name;
        std::string script;
        FakeGpsd::Then then;
        std::string position, accuracyAndVelocity = "", error = "";  // after "gpsd at HOST:PORT: "
    } cases[] = {
        {"3D fix, altMSL first",
         tpv + R"("alt":999,"altMSL":1034.5,"altHAE":1082,"geoidSep":47.5,"eph":5,"epv":3,)" +
             R"("climb":-0.2,"track":90.5,"speed":1.5,"time":"2024-05-01T10:00:00.000Z"})" + "\n",
         FakeGpsd::Stay, text({46.5, 7.9, 1034.5}), detailed + text({5, 3, -0.2, 90.5, 1.5})},
        {"3D fix, ellipsoid height less geoid separation",
         tpv + R"("alt":1082,"altHAE":1082,"geoidSep":47.5,"epx":3,"epy":4})" + "\n",
         FakeGpsd::Stay, text({46.5, 7.9, 1034.5}), detailed + text({5, nan, nan, nan, nan})},
        {"3D fix, ellipsoid height alone", tpv + R"("altHAE":1082})" + "\n", FakeGpsd::Stay,
         text({46.5, 7.9, nan})},
        {"3D fix of an older gpsd", tpv + R"("alt":1034.5})" + "\n", FakeGpsd::Stay,
         text({46.5, 7.9, 1034.5})},
        {"2D fix",
         R"({"class":"TPV","mode":2,"lat":46.6,"lon":7.8,"altMSL":5,"epv":2,"climb":1})"
         "\n",
         FakeGpsd::Stay, text({46.6, 7.8, nan}), detailed + text({nan, nan, nan, nan, nan})},
        {"absurd altitude", tpv + R"("altMSL":1e308})" + "\n", FakeGpsd::Stay,
         text({46.5, 7.9, nan}), "",
         "altitude 1e+308 m is implausible (an altitude is -500 to 9000 m); positions without "
         "altitude"},
        {"absurd time", tpv + R"("altMSL":5,"time":"2150-01-01T00:00:00Z"})" + "\n", FakeGpsd::Stay,
         "", "",
         "time 2150-01-01T00:00:00Z is implausible (a time is 2000 to 2100); the report ignored"},
        {"absurd latitude",
         R"({"class":"TPV","mode":3,"lat":999,"lon":7})"
         "\n",
         FakeGpsd::Stay, "", "",
         "a report without a latitude of -90 to 90 and a longitude of -180 to 180 ignored"},
        {"deep JSON", deep + "\n", FakeGpsd::Stay, "", "",
         "a report nested deeper than 64 levels; retrying in the background"},
        {"no newline", std::string(70000, 'x'), FakeGpsd::Stay, "", "",
         "a line longer than 65536 bytes; retrying in the background"},
        {"flood", tpvs, FakeGpsd::Flood, text({46.5, 7.9, 1034.5})},
        {"close after a line", tpv + "\"altMSL\":1034.5}\n", FakeGpsd::Close, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        FakeGpsd gpsd(c.script, c.then);
        EXPECT_EQ(0, orvex_host_location_set_gpsd("127.0.0.1", gpsd.port));
        EXPECT_EQ(0, orvex_host_location_set_backend("gpsd"));
        orvex_test::clearLog();
        start();
        const std::string name = "gpsd at 127.0.0.1:" + std::to_string(gpsd.port) + ": ";
        auto errorSeen = [&] {
            return c.error.empty() || orvex_test::logged(DLOG_ERROR, name + c.error);
        };
        // The service comes up with the first fix, and its notification (on idle, as the
        // enabling dialogue's) arrives even while gpsd floods.
        EXPECT_TRUE(orvex_test::runUntil(
            [&] { return errorSeen() && (c.position.empty() || states == std::vector<int>{1}); }));
        EXPECT_EQ(c.position, position());
        if (!c.accuracyAndVelocity.empty()) {
            EXPECT_EQ(c.accuracyAndVelocity, accuracyAndVelocity());
        }
        if (c.then == FakeGpsd::Close) {
            // A gpsd that hangs up after every line is retried ever more slowly, with one line
            // (the connection is closed or reset, as the timing has it).
            EXPECT_TRUE(orvex_test::runUntil([&] { return gpsd.connectedAt.size() >= 3; }, 6000));
            gpsd.connectedAt.resize(3);
            EXPECT_GE(gpsd.connectedAt[2] - gpsd.connectedAt[1], 1800000);
            auto lines = orvex_test::errors();
            EXPECT_EQ(1u, lines.size());
            lines.resize(1);
            EXPECT_EQ(0u, lines[0].find(name));
        }
        location_manager_destroy(m);
        m = nullptr;
    }
    // Not started: nothing to say, as get_position.
    location_accuracy_level_e level;
    double a, b, c;
    EXPECT_EQ(LOCATIONS_ERROR_INVALID_PARAMETER, location_manager_get_accuracy(m, &level, &a, &b));
    start();
    location_manager_stop(m);
    EXPECT_EQ(LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE,
              location_manager_get_accuracy(m, &level, &a, &b));
    EXPECT_EQ(LOCATIONS_ERROR_SERVICE_NOT_AVAILABLE, location_manager_get_velocity(m, &a, &b, &c));
}

}  // namespace
