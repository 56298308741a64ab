// The foreign server that we are tested against: GStreamer's, with a running clock and a tone, or a --pipeline, at
// rtsp://127.0.0.1:PORT/demo. It prints that URL as its only line on standard output once it listens, and ends
// on SIGINT, SIGTERM or with the process that started it.
#include <CLI/CLI.hpp>
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

// One key frame a second, with its parameter sets: a player that joins late has a picture soon. The payloader is
// asked for them by interval; asked for them at every key frame, it puts them between the slices of one picture.
constexpr const char *kPipeline =
    "videotestsrc is-live=true ! video/x-raw,width=640,height=360,framerate=25/1 ! timeoverlay ! "
    "x264enc tune=zerolatency speed-preset=ultrafast bitrate=1500 key-int-max=25 ! "
    "video/x-h264,profile=constrained-baseline ! rtph264pay name=pay0 pt=96 config-interval=1 "
    "audiotestsrc is-live=true wave=sine freq=440 volume=0.2 ! audio/x-raw,rate=8000,channels=1 ! "
    "mulawenc ! rtppcmupay name=pay1 pt=0 max-ptime=20000000";

struct Unref {
    void operator()(void *object) const { g_object_unref(object); }
};
template <typename Object> using Owned = std::unique_ptr<Object, Unref>;

struct Settings {
    std::string credentials; // USER:PASSWORD; empty: no authentication
    std::string pipeline = kPipeline;
    unsigned sessionTimeout = 0; // seconds; 0: the server library's 60
};

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
    gst_rtsp_server_set_service(server.get(), "0");
    GstRTSPMediaFactory *factory = gst_rtsp_media_factory_new();
    gst_rtsp_media_factory_set_launch(factory, ("( " + settings.pipeline + " )").c_str());
    gst_rtsp_media_factory_set_shared(factory, TRUE);
    if (settings.sessionTimeout > 0)
        g_signal_connect(server.get(), "client-connected", G_CALLBACK(LimitSessionsOf),
                         GUINT_TO_POINTER(settings.sessionTimeout));
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
    CLI::App app("serves a test picture and a tone over RTSP");
    app.add_option("--auth", settings.credentials, "USER:PASSWORD: asks for digest authentication")
        ->check(
            CLI::Validator([](const std::string &text) { return text.find(':') == text.npos ? ":?" : ""; }, ""));
    app.add_option("--pipeline", settings.pipeline, "serves this, with payloaders named pay0, pay1...");
    app.add_option("--session-timeout", settings.sessionTimeout, "forgets silent players after so many seconds");
    CLI11_PARSE(app, argc, argv);
    gst_init(nullptr, nullptr);
    const Owned<GstRTSPServer> server = MakeServer(settings);
    const std::unique_ptr<GMainLoop, void (*)(GMainLoop *)> loop(g_main_loop_new(nullptr, FALSE),
                                                                 g_main_loop_unref);
    g_unix_signal_add(SIGINT, Quit, loop.get());
    g_unix_signal_add(SIGTERM, Quit, loop.get());
    g_timeout_add_seconds(1, EndSilentSessions, server.get());
    if (gst_rtsp_server_attach(server.get(), nullptr) == 0) {
        std::fputs("rtsptap_gst_server: cannot listen\n", stderr);
        return 1;
    }
    std::printf("rtsp://127.0.0.1:%d/demo\n", gst_rtsp_server_get_bound_port(server.get()));
    std::fflush(stdout);
    g_main_loop_run(loop.get());
    return 0;
}
