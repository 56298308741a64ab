// rtsptap_demo_server: a camera to try receivers with. It plays a clip that it carries in itself, again and again,
// at rtsp://127.0.0.1:PORT/demo. It prints that URL as its only line on standard output once it listens, and ends
// on SIGINT, SIGTERM, after --seconds, or with the process that started it.
#include "server.h"

#include "tools/man_page/man_page.h"

#include <CLI/CLI.hpp>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace {

volatile int gblEnd = 0;

// Signals are let through only while the server waits.
void HoldSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGINT, SIGTERM}) {
        std::signal(signal, [](int) { gblEnd = 1; });
        sigaddset(&held, signal);
    }
    sigprocmask(SIG_BLOCK, &held, nullptr);
}

// Asked for before anything can take time; false where the starter is gone already.
bool EndWithStarter() {
    const pid_t starter = getppid();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    return getppid() == starter;
}

std::string CheckCredentials(const std::string &text) {
    const std::size_t colon = text.find(':');
    return colon == std::string::npos || colon == 0 ? "it is USER:PASSWORD" : "";
}

// The program's exit status.
int Serve(demo::Offer offer, uint16_t port, int seconds, int lateMs) {
    offer.tracks = demo::LoadClip();
    offer.tracks[0].lateUs = int64_t{lateMs} * 1000;
    demo::Server server(std::move(offer));
    const uint16_t own = server.Listen(port);
    if (own == 0) {
        std::fprintf(stderr, "rtsptap_demo_server: cannot listen on 127.0.0.1:%d: %s\n", port,
                     std::strerror(errno));
        return 1;
    }
    std::printf("rtsp://127.0.0.1:%d/demo\n", own);
    std::fflush(stdout);
    server.Run(&gblEnd, seconds);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    if (!EndWithStarter()) return 0;
    HoldSignals();
    demo::Offer offer;
    std::string credentials;
    uint16_t port = 0;
    int seconds = 0;
    int lateMs = 0;
    int firstReportMs = 0;
    CLI::App app("a small RTSP server that plays a test picture and a tone", "rtsptap_demo_server");
    app.footer(
        "Plays five seconds of H.264 and PCMU again and again at rtsp://127.0.0.1:PORT/demo, without a gap in "
        "numbers or time stamps, to this machine only. Prints that address once it listens. A session ends "
        "with its connection.");
    app.add_option("--port", port, "port to listen on; 0 takes a free one (default)");
    app.add_option("--auth", credentials, "ask for digest authentication")
        ->type_name("USER:PASSWORD")
        ->check(CLI::Validator(CheckCredentials, ""));
    CLI::Option *tcpOnly = app.add_flag("--tcp-only", offer.tcpOnly, "refuse UDP, with status 461");
    app.add_flag("--udp-only", offer.udpOnly, "refuse interleaved TCP, with status 461")->excludes(tcpOnly);
    app.add_option("--session-timeout", offer.timeoutSeconds, "seconds until a silent player is forgotten (60)")
        ->check(CLI::Range(1, 86400));
    app.add_option("--seconds", seconds, "end after so many seconds")->check(CLI::Range(1, 86400));
    app.add_option("--video-late", lateMs,
                   "milliseconds by which pictures are held back; sender reports tell the truth")
        ->check(CLI::Range(0, 60000));
    app.add_option("--first-report", firstReportMs, "milliseconds from PLAY to the first sender reports (0)")
        ->check(CLI::Range(0, 86400000));
    app.add_flag("--no-rtp-info", offer.noRtpInfo, "do not say in the reply to PLAY where streams begin");
    AddManPage(app);
    CLI11_PARSE(app, argc, argv);

    if (!credentials.empty())
        offer.account = {credentials.substr(0, credentials.find(':')),
                         credentials.substr(credentials.find(':') + 1)};
    offer.firstReportUs = int64_t{firstReportMs} * 1000;
    return Serve(std::move(offer), port, seconds, lateMs);
}
