#define GLIB_DISABLE_DEPRECATION_WARNINGS // the statistics come in a GValueArray
#include "report_log.h"

#include <cstdio>
#include <string>

namespace {

std::string Cname(GObject *session, guint ssrc) {
    GObject *source = nullptr;
    GstStructure *sdes = nullptr;
    g_signal_emit_by_name(session, "get-source-by-ssrc", ssrc, &source);
    if (source == nullptr) return "";
    g_object_get(source, "sdes", &sdes, nullptr);
    const char *cname = sdes != nullptr ? gst_structure_get_string(sdes, "cname") : nullptr;
    const std::string text = cname != nullptr ? cname : "";
    if (sdes != nullptr) gst_structure_free(sdes);
    g_object_unref(source);
    return text;
}

void LogSource(guint stream, GObject *session, const GstStructure *source) {
    gboolean haveBlock = FALSE;
    guint ssrc = 0;
    guint sequence = 0;
    gint lost = 0;
    gst_structure_get(source, "have-rb", G_TYPE_BOOLEAN, &haveBlock, "ssrc", G_TYPE_UINT, &ssrc, "rb-exthighestseq",
                      G_TYPE_UINT, &sequence, "rb-packetslost", G_TYPE_INT, &lost, nullptr);
    if (haveBlock == FALSE) return;
    std::fprintf(stderr, "report stream=%u ssrc=0x%08x cname=%s extended-sequence=%u lost=%d\n", stream, ssrc,
                 Cname(session, ssrc).c_str(), sequence, lost);
}

void LogSession(guint stream, GObject *session) {
    GstStructure *statistics = nullptr;
    GValueArray *sources = nullptr;
    g_object_get(session, "stats", &statistics, nullptr);
    gst_structure_get(statistics, "source-stats", G_TYPE_VALUE_ARRAY, &sources, nullptr);
    for (guint i = 0; sources != nullptr && i < sources->n_values; ++i)
        LogSource(stream, session, gst_value_get_structure(g_value_array_get_nth(sources, i)));
    if (sources != nullptr) g_value_array_free(sources);
    gst_structure_free(statistics);
}

gboolean LogMedia(gpointer object) {
    GstRTSPMedia *media = GST_RTSP_MEDIA(object);
    for (guint stream = 0; stream < gst_rtsp_media_n_streams(media); ++stream) {
        GObject *session = gst_rtsp_stream_get_rtpsession(gst_rtsp_media_get_stream(media, stream));
        if (session == nullptr) continue; // not set up
        LogSession(stream, session);
        g_object_unref(session);
    }
    return G_SOURCE_CONTINUE;
}

void WatchMedia(GstRTSPMediaFactory *, GstRTSPMedia *media, gpointer) {
    g_timeout_add_seconds_full(G_PRIORITY_DEFAULT, 1, LogMedia, g_object_ref(media), g_object_unref);
}

} // namespace

void LogReports(GstRTSPMediaFactory *factory) {
    g_signal_connect(factory, "media-configure", G_CALLBACK(WatchMedia), nullptr);
}
