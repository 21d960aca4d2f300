// The host location service's own sources of position: track files and a gpsd daemon.
#include <gio/gio.h>
#include <orvex_host/location_control.h>
#include <platform/location_manager.h>

#include <cerrno>
#include <fstream>

#include "HostFixture.h"
#include "MainLoop.h"

using Position = std::vector<double>;  // latitude, longitude, altitude; empty: none

namespace {

std::string write(const std::string& name, const std::string& text) {
    std::string path = std::string(orvex_host_data_dir()) + "/" + name;
    std::ofstream(path) << text;
    return path;
}

class LocationHostTest : public orvex_test::HostTest {
protected:
    ~LocationHostTest() override { location_manager_destroy(m); }
    static void onState(location_service_state_e state, void* self) {
        static_cast<LocationHostTest*>(self)->states.push_back(state);
    }
    void start() {
        ASSERT_EQ(0, location_manager_create(LOCATIONS_METHOD_HYBRID, &m));
        ASSERT_EQ(0, location_manager_set_service_state_changed_cb(m, onState, this));
        ASSERT_EQ(0, location_manager_start(m));
    }
    Position position(bool last = false) {
        double lat, lon, alt;
        auto get = last ? location_manager_get_last_position : location_manager_get_position;
        if (get(m, &alt, &lat, &lon, nullptr) != 0) return {};
        return {lat, lon, alt};
    }
    location_manager_h m = nullptr;
    std::vector<int> states;
};

TEST_F(LocationHostTest, TracksAreReplayedOrRefusedNamingTheFileAndLine) {
    auto point = R"(<trkpt lat="1" lon="2"><ele>3</ele><time>2020-12-18T06:15:50Z</time></trkpt>)";
    struct Case {
        std::string problem, path;  // the problem's beginning; empty for a good track
        Position first = {};
    } cases[] = {
        {"", ORVEX_TEST_DATA "/track-gpx10.gpx", {45.772175035, 14.357659249, 542.320923}},
        {"", ORVEX_TEST_DATA "/track-gpx11.gpx", {45.273518851, 13.7142099626, 211.15}},
        {": no track points (a route or waypoints only)", ORVEX_TEST_DATA "/route-only.gpx"},
        {": no track points (a route or waypoints only)", ORVEX_TEST_DATA "/waypoints-only.gpx"},
        // Extensions may carry their own points with lat and lon; they are not the track.
        {": no track points",
         write("ext.gpx", std::string(R"(<gpx version="1.1"><trk><extensions>)") + point +
                              "</extensions><trkseg/></trk></gpx>")},
        {": Error on line 2",
         write("cut.gpx", std::string("<gpx version=\"1.0\">\n<trk><trkseg>") + point + "</trk>")},
        {":3: latitude is -90 to 90",
         write("lat.gpx", std::string("<gpx version=\"1.0\"><trk><trkseg>\n") + point + "\n" +
                              R"(<trkpt lat="90.5" lon="2"/></trkseg></trk></gpx>)")},
        {":2: latitude is -90 to 90", write("range.csv", "t,lat,lon,alt\n0,999,-999,1e308\n")},
        {"",
         write("walk.gpx", R"(<gpx version="1.1"><trk><trkseg>
<trkpt lat="10" lon="20"><ele>30</ele><time>2024-05-01T10:00:00Z</time></trkpt>
<trkpt lat="11" lon="21"><ele>31</ele><time>2024-05-01T10:00:00.6Z</time></trkpt>
</trkseg></trk></gpx>)"),
         {10, 20, 30}},
    };
    std::string good = write("good.csv", "# seconds,lat,lon,alt\n0,46.5,7.9,1034\n");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        ASSERT_EQ(0, orvex_host_location_set_track(good.c_str()));
        location_manager_destroy(m);  // each track from its start
        start();
        const char* problem = orvex_host_location_track_problem(c.path.c_str());
        EXPECT_EQ(c.problem.empty() ? "" : c.path + c.problem,
                  std::string(problem ? problem : "").substr(0, c.path.size() + c.problem.size()));
        // A refused file leaves the track before it in place.
        EXPECT_EQ(c.problem.empty() ? 0 : -EINVAL, orvex_host_location_set_track(c.path.c_str()));
        EXPECT_EQ(c.problem.empty() ? c.first : (Position{46.5, 7.9, 1034}), position());
    }
    // The last one is replayed on the points' own times.
    EXPECT_TRUE(orvex_test::runUntil([&] { return position() == Position{11, 21, 31}; }));
}

// A stand-in gpsd on loopback: a fix, then none; it keeps the connection.
gboolean onClient(GSocketService*, GSocketConnection* connection, GObject*, gpointer keep) {
    const char lines[] = R"({"class":"TPV","mode":3,"lat":46.5,"lon":7.9,"alt":999,"altMSL":1034.5}
{"class":"SKY","lat":1}
[]
{"class":"TPV","mode":2,"lat":46.6,"lon":7.8,"altMSL":5}
{"class":"TPV","mode":1}
)";
    GOutputStream* out = g_io_stream_get_output_stream(G_IO_STREAM(connection));
    g_output_stream_write_all(out, lines, sizeof lines - 1, nullptr, nullptr, nullptr);
    *static_cast<GSocketConnection**>(keep) = G_SOCKET_CONNECTION(g_object_ref(connection));
    return TRUE;
}

TEST_F(LocationHostTest, GpsdFixesBringTheServiceUpAndDown) {
    GSocketService* gpsd = g_socket_service_new();
    GSocketConnection* client = nullptr;
    guint16 port = g_socket_listener_add_any_inet_port(G_SOCKET_LISTENER(gpsd), nullptr, nullptr);
    g_signal_connect(gpsd, "incoming", G_CALLBACK(onClient), &client);
    ASSERT_EQ(0, orvex_host_location_set_gpsd("127.0.0.1", port));
    ASSERT_EQ(0, orvex_host_location_set_backend("gpsd"));
    start();
    // Up with the fix, down when it is lost.
    EXPECT_TRUE(orvex_test::runUntil([&] { return states == std::vector<int>{1, 0}; }));
    EXPECT_TRUE(position().empty());
    // A 2D fix keeps the altitude of the 3D fix before it; altMSL wins over alt.
    EXPECT_EQ((Position{46.6, 7.8, 1034.5}), position(true));
    if (client) g_object_unref(client);
    g_object_unref(gpsd);
}

}  // namespace
