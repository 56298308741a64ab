// The foreign server that we are tested against: GStreamer's, with a running clock and a tone, or a --pipeline, at
// rtsp://127.0.0.1:PORT/demo. It prints that URL as its only line on standard output once it listens, and ends
// on SIGINT, SIGTERM, after --seconds, or with the process that started it.
#include "report_log.h"

#include <glib-unix.h>
#include <gst/gst.h>
#include <gst/rtsp-server/rtsp-server.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

struct Settings {
    int port = 0;            // 0: any free one
    std::string credentials; // USER:PASSWORD; empty: no authentication
    std::string pipeline;    // what is served
    bool tcpOnly = false;
    bool udpOnly = false;
    bool logReports = false;
    int sessionTimeout = 0; // seconds; 0: the server library's 60
    int seconds = 0;        // 0: no limit
};

// One key frame a second, with its parameter sets: a player that joins late has a picture soon. The payloader is
// asked for them by interval; asked for them at every key frame, it puts them between the slices of one picture.
constexpr const char *kPipeline =
    "( videotestsrc is-live=true ! video/x-raw,width=640,height=360,framerate=25/1 ! timeoverlay ! "
    "x264enc tune=zerolatency speed-preset=ultrafast bitrate=1500 key-int-max=25 ! "
    "video/x-h264,profile=constrained-baseline ! rtph264pay name=pay0 pt=96 config-interval=1 "
    "audiotestsrc is-live=true wave=sine freq=440 volume=0.2 ! audio/x-raw,rate=8000,channels=1 ! "
    "mulawenc ! rtppcmupay name=pay1 pt=0 max-ptime=20000000 )";

struct Unref {
    void operator()(void *object) const { g_object_unref(object); }
};
template <typename Object> using Owned = std::unique_ptr<Object, Unref>;

bool Parse(const GOptionEntry *entries, int argc, char **argv) {
    const std::unique_ptr<GOptionContext, void (*)(GOptionContext *)> context(
        g_option_context_new("- serve a test picture and a tone over RTSP"), g_option_context_free);
    g_option_context_add_main_entries(context.get(), entries, nullptr);
    g_option_context_add_group(context.get(), gst_init_get_option_group());
    GError *error = nullptr;
    if (g_option_context_parse(context.get(), &argc, &argv, &error)) return true;
    std::fprintf(stderr, "rtsptap_gst_server: %s\n", error->message);
    g_error_free(error);
    return false;
}

bool ReadSettings(int argc, char **argv, Settings &settings) {
    char *credentials = nullptr;
    char *pipeline = nullptr;
    gboolean tcpOnly = FALSE;
    gboolean udpOnly = FALSE;
    gboolean logReports = FALSE;
    const GOptionEntry entries[] = {
        {"port", 0, 0, G_OPTION_ARG_INT, &settings.port, "port to listen on; 0 takes a free one", "PORT"},
        {"auth", 0, 0, G_OPTION_ARG_STRING, &credentials, "ask for digest authentication", "USER:PASSWORD"},
        {"pipeline", 0, 0, G_OPTION_ARG_STRING, &pipeline, "serve this, with payloaders named pay0, pay1...",
         "TEXT"},
        {"tcp-only", 0, 0, G_OPTION_ARG_NONE, &tcpOnly, "offer interleaved TCP only", nullptr},
        {"udp-only", 0, 0, G_OPTION_ARG_NONE, &udpOnly, "offer UDP only", nullptr},
        {"log-reports", 0, 0, G_OPTION_ARG_NONE, &logReports, "show players' reports on standard error", nullptr},
        {"session-timeout", 0, 0, G_OPTION_ARG_INT, &settings.sessionTimeout, "forget silent players", "SECONDS"},
        {"seconds", 0, 0, G_OPTION_ARG_INT, &settings.seconds, "end after so many seconds", "N"},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    if (!Parse(entries, argc, argv)) return false;
    settings.tcpOnly = tcpOnly != FALSE;
    settings.udpOnly = udpOnly != FALSE;
    settings.logReports = logReports != FALSE;
    if (credentials != nullptr) settings.credentials = credentials;
    g_free(credentials);
    settings.pipeline = pipeline != nullptr ? "( " + std::string(pipeline) + " )" : kPipeline;
    g_free(pipeline);
    const bool splits = settings.credentials.empty() || settings.credentials.find(':') != std::string::npos;
    if (!splits) std::fprintf(stderr, "rtsptap_gst_server: --auth takes USER:PASSWORD\n");
    return splits;
}

void RequireDigest(GstRTSPServer *server, GstRTSPMediaFactory *factory, const std::string &credentials) {
    const Owned<GstRTSPAuth> auth(gst_rtsp_auth_new());
    gst_rtsp_auth_set_supported_methods(auth.get(), GST_RTSP_AUTH_DIGEST);
    GstRTSPToken *token = gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, "viewer", nullptr);
    const std::size_t colon = credentials.find(':');
    gst_rtsp_auth_add_digest(auth.get(), credentials.substr(0, colon).c_str(),
                             credentials.substr(colon + 1).c_str(), token);
    gst_rtsp_token_unref(token);
    gst_rtsp_media_factory_add_role(factory, "viewer", GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN, TRUE,
                                    GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE, nullptr);
    gst_rtsp_server_set_auth(server, auth.get());
}

void LimitSession(GstRTSPClient *, GstRTSPSession *session, gpointer seconds) {
    gst_rtsp_session_set_timeout(session, GPOINTER_TO_UINT(seconds));
}

void LimitSessionsOf(GstRTSPServer *, GstRTSPClient *client, gpointer seconds) {
    g_signal_connect(client, "new-session", G_CALLBACK(LimitSession), seconds);
}

gboolean EndSilentSessions(gpointer server) {
    const Owned<GstRTSPSessionPool> sessions(gst_rtsp_server_get_session_pool(GST_RTSP_SERVER(server)));
    gst_rtsp_session_pool_cleanup(sessions.get());
    return G_SOURCE_CONTINUE;
}

Owned<GstRTSPServer> MakeServer(const Settings &settings) {
    Owned<GstRTSPServer> server(gst_rtsp_server_new());
    gst_rtsp_server_set_address(server.get(), "127.0.0.1");
    gst_rtsp_server_set_service(server.get(), std::to_string(settings.port).c_str());
    GstRTSPMediaFactory *factory = gst_rtsp_media_factory_new();
    gst_rtsp_media_factory_set_launch(factory, settings.pipeline.c_str());
    gst_rtsp_media_factory_set_shared(factory, TRUE);
    if (settings.tcpOnly) gst_rtsp_media_factory_set_protocols(factory, GST_RTSP_LOWER_TRANS_TCP);
    if (settings.udpOnly) gst_rtsp_media_factory_set_protocols(factory, GST_RTSP_LOWER_TRANS_UDP);
    if (settings.logReports) LogReports(factory);
    if (settings.sessionTimeout > 0)
        g_signal_connect(server.get(), "client-connected", G_CALLBACK(LimitSessionsOf),
                         GINT_TO_POINTER(settings.sessionTimeout));
    if (!settings.credentials.empty()) RequireDigest(server.get(), factory, settings.credentials);
    const Owned<GstRTSPMountPoints> mounts(gst_rtsp_server_get_mount_points(server.get()));
    gst_rtsp_mount_points_add_factory(mounts.get(), "/demo", factory); // takes the factory
    return server;
}

gboolean Quit(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop *>(loop));
    return G_SOURCE_CONTINUE;
}

} // namespace

int main(int argc, char **argv) {
    // Asked for before anything can take time; a starter that is gone already leaves nobody to serve.
    const pid_t starter = getppid();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != starter) return 0;

    Settings settings;
    if (!ReadSettings(argc, argv, settings)) return 1;
    const Owned<GstRTSPServer> server = MakeServer(settings);
    const std::unique_ptr<GMainLoop, void (*)(GMainLoop *)> loop(g_main_loop_new(nullptr, FALSE),
                                                                 g_main_loop_unref);
    g_unix_signal_add(SIGINT, Quit, loop.get());
    g_unix_signal_add(SIGTERM, Quit, loop.get());
    g_timeout_add_seconds(1, EndSilentSessions, server.get());
    if (settings.seconds > 0) g_timeout_add_seconds(static_cast<guint>(settings.seconds), Quit, loop.get());
    if (gst_rtsp_server_attach(server.get(), nullptr) == 0) {
        std::fprintf(stderr, "rtsptap_gst_server: cannot listen on 127.0.0.1:%d\n", settings.port);
        return 1;
    }
    std::printf("rtsp://127.0.0.1:%d/demo\n", gst_rtsp_server_get_bound_port(server.get()));
    std::fflush(stdout);
    g_main_loop_run(loop.get());
    return 0;
}
