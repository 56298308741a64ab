// The foreign server that we are tested against: GStreamer's, at rtsp://127.0.0.1:PORT/demo, which it prints as its
// only line once it listens.
//
//     rtsptap_gst_server PIPELINE                  serves this, with payloaders named pay0, pay1...
//     rtsptap_gst_server USER PASSWORD SECONDS [ADDRESS]
//                                                  a running clock and a tone, with digest authentication; forgets
//                                                  players that are silent for so long; at another address; through
//                                                  TLS with the certificate and key of the file TLS_CERTIFICATE,
//                                                  where the environment names one. Takes HTTP tunnels in any case.
//
// Packets are protected (SRTP) where the environment has PROTECTED.
#include <gst/gst.h>
#include <gst/rtsp-server/rtsp-server.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

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

void RequireDigest(GstRTSPServer *server, GstRTSPMediaFactory *factory, const char *user, const char *password) {
    const Owned<GstRTSPAuth> auth(gst_rtsp_auth_new());
    gst_rtsp_auth_set_supported_methods(auth.get(), GST_RTSP_AUTH_DIGEST);
    GstRTSPToken *token = gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, "viewer", nullptr);
    gst_rtsp_auth_add_digest(auth.get(), user, password, token);
    gst_rtsp_token_unref(token);
    gst_rtsp_media_factory_add_role(factory, "viewer", GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN, TRUE,
                                    GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE, nullptr);
    if (const char *const file = std::getenv("TLS_CERTIFICATE"); file != nullptr) {
        const Owned<GTlsCertificate> certificate(g_tls_certificate_new_from_file(file, nullptr));
        gst_rtsp_auth_set_tls_certificate(auth.get(), certificate.get());
    }
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

} // namespace

int main(int argc, char **argv) {
    if (argc != 2 && argc != 4 && argc != 5) return 2;
    gst_init(nullptr, nullptr);
    const Owned<GstRTSPServer> server(gst_rtsp_server_new());
    gst_rtsp_server_set_address(server.get(), argc == 5 ? argv[4] : "127.0.0.1");
    gst_rtsp_server_set_service(server.get(), "0");
    GstRTSPMediaFactory *factory = gst_rtsp_media_factory_new();
    const std::string pipeline = argc == 2 ? argv[1] : kPipeline;
    gst_rtsp_media_factory_set_launch(factory, ("( " + pipeline + " )").c_str());
    gst_rtsp_media_factory_set_shared(factory, TRUE);
    if (std::getenv("PROTECTED") != nullptr) gst_rtsp_media_factory_set_profiles(factory, GST_RTSP_PROFILE_SAVP);
    if (argc > 2) {
        RequireDigest(server.get(), factory, argv[1], argv[2]);
        g_signal_connect(server.get(), "client-connected", G_CALLBACK(LimitSessionsOf),
                         GUINT_TO_POINTER(std::strtoul(argv[3], nullptr, 10)));
        g_timeout_add_seconds(1, EndSilentSessions, server.get());
    }
    const Owned<GstRTSPMountPoints> mounts(gst_rtsp_server_get_mount_points(server.get()));
    gst_rtsp_mount_points_add_factory(mounts.get(), "/demo", factory); // takes the factory
    if (gst_rtsp_server_attach(server.get(), nullptr) == 0) return 1;
    std::printf("rtsp://127.0.0.1:%d/demo\n", gst_rtsp_server_get_bound_port(server.get()));
    std::fflush(stdout);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE)); // until a signal ends the process
}
