// What hostile position sources cost the application: for generated GPX tracks (4 million levels
// deep, 8 million elements, 50 MB of plain points) and for a gpsd that misbehaves (a line nested
// 100,000 deep, an endless line, a flood of reports, hang-ups after each line), the time from
// location_manager_start to the outcome, the outcome, the process's peak RSS and CPU time, and
// the longest the main loop is blocked. Each scenario runs in a process of its own; the hostile
// gpsd is a child process, so that its work is not counted.
//
//   build/default/bench/orvex_location_bench [SCENARIO]
#include <gio/gio.h>
#include <orvex_host/control.h>
#include <orvex_host/location_control.h>
#include <platform/location_manager.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "BlockMeter.h"

namespace {

using orvex_bench::nowMs;

using orvex_bench::BlockMeter;

std::string g_dir;

// A file of `repeat` copies of `body` between head and tail, written in pieces.
std::string generate(const char* name, const std::string& head, const std::string& body,
                     long repeat, const std::string& tail) {
    std::string path = g_dir + "/" + name;
    FILE* f = fopen(path.c_str(), "w");
    fputs(head.c_str(), f);
    std::string block;
    for (int i = 0; i < 4096; ++i) block += body;
    for (long i = 0; i < repeat / 4096; ++i) fwrite(block.data(), 1, block.size(), f);
    for (long i = 0; i < repeat % 4096; ++i) fputs(body.c_str(), f);
    fputs(tail.c_str(), f);
    fclose(f);
    return path;
}

// gpsd's part, in a child process: accepts connections on a loopback port and plays `mode`.
pid_t hostileGpsd(const std::string& mode, guint16* port) {
    GSocketListener* listener = g_socket_listener_new();
    *port = g_socket_listener_add_any_inet_port(listener, nullptr, nullptr);
    pid_t child = fork();
    if (child != 0) {
        g_object_unref(listener);
        return child;
    }
    signal(SIGPIPE, SIG_IGN);
    const std::string tpv =
        R"({"class":"TPV","mode":3,"lat":46.5,"lon":7.9,"altMSL":1034.5,"epv":3})"
        "\n";
    std::string flood;
    while (flood.size() < (1 << 20)) flood += tpv;
    while (GSocketConnection* c = g_socket_listener_accept(listener, nullptr, nullptr, nullptr)) {
        GOutputStream* out = g_io_stream_get_output_stream(G_IO_STREAM(c));
        auto put = [&](const std::string& s) {
            return g_output_stream_write_all(out, s.data(), s.size(), nullptr, nullptr, nullptr);
        };
        if (mode == "deep") {
            put(std::string(100000, '[') + "\n");
        } else if (mode == "endless") {
            std::string x(1 << 20, 'x');
            for (int i = 0; i < 1024 && put(x); ++i) {
            }
        } else if (mode == "flood") {
            while (put(flood)) {
            }
        } else if (mode == "hang-up") {
            put(tpv);
            g_io_stream_close(G_IO_STREAM(c), nullptr, nullptr);
        } else {
            put(mode + "\n");
        }
        if (mode != "hang-up") g_usleep(G_USEC_PER_SEC * 60);
        g_object_unref(c);
    }
    _exit(0);
}

struct Outcome {
    std::vector<int> states;
    static void onState(location_service_state_e state, void* self) {
        static_cast<Outcome*>(self)->states.push_back(state);
    }
};

void scenario(const std::string& name) {
    orvex_host_reset();
    setenv("ORVEX_HOST_LOG_LEVEL", "silent", 1);
    std::string path;
    pid_t gpsd = 0;
    if (name == "gpx-deep")
        path = generate("deep.gpx", "<gpx version=\"1.1\">", "<a>", 4000000, "");
    else if (name == "gpx-wide")
        path = generate("wide.gpx", "<gpx version=\"1.1\">", "<a/>", 8000000, "</gpx>");
    else if (name == "gpx-plain")
        path = generate("plain.gpx", "<gpx version=\"1.1\"><trk><trkseg>\n",
                        "<trkpt lat=\"46.5\" lon=\"7.9\"><ele>1034.5</ele>"
                        "<time>2024-05-01T10:00:00Z</time></trkpt>\n",
                        550000, "</trkseg></trk></gpx>\n");
    if (!path.empty()) {
        // The track is chosen by name, as ORVEX_HOST_LOCATION_TRACK would: nothing reads it yet.
        setenv("ORVEX_HOST_LOCATION_BACKEND", "track", 1);
        setenv("ORVEX_HOST_LOCATION_TRACK", path.c_str(), 1);
    } else {
        guint16 port = 0;
        gpsd = hostileGpsd(name == "gpsd-alt" ? R"({"class":"TPV","mode":3,"lat":1,"lon":2,)"
                                                R"("altMSL":1e308})"
                                              : name.substr(5),
                           &port);
        orvex_host_location_set_gpsd("127.0.0.1", port);
        orvex_host_location_set_backend("gpsd");
    }
    location_manager_h m = nullptr;
    Outcome outcome;
    location_manager_create(LOCATIONS_METHOD_HYBRID, &m);
    location_manager_set_service_state_changed_cb(m, Outcome::onState, &outcome);
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    double started = nowMs(), settled = -1, blocked = 0;
    std::string problem;
    {
        BlockMeter meter;
        double t = nowMs();
        location_manager_start(m);
        double startMs = nowMs() - t;
        // Up, or a problem that is the outcome; then three seconds more of whatever comes.
        auto over = [&] {
            const char* why = orvex_host_location_problem();
            bool done = !outcome.states.empty() ||
                        (why && !strstr(why, "still being read") && !strstr(why, "no fix yet"));
            if (done && settled < 0) {
                settled = nowMs() - started;
                problem = why ? why : "";
            }
            return settled >= 0 && nowMs() > started + settled + 3000;
        };
        while (!over() && nowMs() < started + 120000) g_main_context_iteration(nullptr, TRUE);
        blocked = std::max(meter.longest, startMs);
    }
    double alt = 0, lat = 0, lon = 0;
    bool fix = location_manager_get_position(m, &alt, &lat, &lon, nullptr) == 0;
    if (!fix) {
        const char* why = orvex_host_location_problem();
        problem = why ? why : problem;
    }
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    auto cpu = [](const rusage& u) {
        return u.ru_utime.tv_sec + u.ru_stime.tv_sec +
               (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
    };
    printf(
        "%-13s outcome after %8.1f ms: %s   peak RSS %6.1f MiB   CPU %5.2f s over %4.1f s   "
        "main loop blocked at most %5.1f ms\n",
        name.c_str(), settled,
        fix ? ("position, altitude " + std::to_string(alt)).c_str()
            : ((outcome.states.empty() ? "" : "up, no position: ") + problem).c_str(),
        after.ru_maxrss / 1024.0, cpu(after) - cpu(before), (nowMs() - started) / 1000, blocked);
    fflush(stdout);
    location_manager_destroy(m);
    if (gpsd) {
        kill(gpsd, SIGKILL);
        waitpid(gpsd, nullptr, 0);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const char* all[] = {"gpx-deep",     "gpx-wide",   "gpx-plain",    "gpsd-deep",
                         "gpsd-endless", "gpsd-flood", "gpsd-hang-up", "gpsd-alt"};
    char dir[] = "/tmp/orvex-location-bench-XXXXXX";
    g_dir = mkdtemp(dir);
    setenv("ORVEX_HOST_HOME", (g_dir + "/home").c_str(), 1);
    for (const char* name : all) {
        if (argc > 1 && strcmp(argv[1], name) != 0) continue;
        pid_t child = fork();
        if (child == 0) {
            scenario(name);
            _exit(0);
        }
        waitpid(child, nullptr, 0);
    }
    std::string rm = "rm -rf " + g_dir;
    return system(rm.c_str());
}
