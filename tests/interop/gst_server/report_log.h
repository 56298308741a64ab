// Shows on standard error what the players' receiver reports say, as the server's RTP sessions keep it.
#pragma once

#include <gst/rtsp-server/rtsp-server.h>

// Once a second, one line per reporting player and stream:
//   report stream=0 ssrc=0x12345678 cname=host extended-sequence=12345 lost=0
void LogReports(GstRTSPMediaFactory *factory);
