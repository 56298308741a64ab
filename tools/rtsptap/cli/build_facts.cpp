#include "cli/build_facts.h"

#include "rtsptap.h"

#include <CLI/Version.hpp>
#include <nlohmann/json.hpp>

#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <openssl/crypto.h>

#ifdef RTSPTAP_WITH_GSTREAMER
#include <gst/gst.h>
#endif
#ifdef RTSPTAP_WITH_LIBPCAP
#include <pcap/pcap.h>
#endif

namespace tool {
namespace {

#ifdef __clang__
constexpr const char *kCompiler = "clang++ " __clang_version__;
#else
constexpr const char *kCompiler = "g++ " __VERSION__;
#endif

std::string GstreamerVersion() {
#ifdef RTSPTAP_WITH_GSTREAMER
    char *text = gst_version_string();
    const std::string version = text;
    g_free(text);
    return version;
#else
    return "GStreamer: absent; only packets are recorded, no media and no pictures";
#endif
}

std::string PcapVersion() {
#ifdef RTSPTAP_WITH_LIBPCAP
    return pcap_lib_version();
#else
    return "libpcap: absent; no captures";
#endif
}

// The file that the functions come from; its name ends in its version.
std::string LibraryFile() {
    Dl_info info = {};
    if (dladdr(reinterpret_cast<const void *>(&RTSPClientCreate), &info) == 0) return "unknown";
    char path[PATH_MAX] = {};
    return realpath(info.dli_fname, path) != nullptr ? path : info.dli_fname;
}

} // namespace

std::string ProgramVersion() { return RTSPTAP_VERSION; }

std::string BuildFacts() {
    const std::string json = std::to_string(NLOHMANN_JSON_VERSION_MAJOR) + "." +
                             std::to_string(NLOHMANN_JSON_VERSION_MINOR) + "." +
                             std::to_string(NLOHMANN_JSON_VERSION_PATCH);
    return "rtsptap " + ProgramVersion() + "\nlibrary: " + LibraryFile() + "\nbuild: " RTSPTAP_BUILD_TYPE ", " +
           kCompiler + "\n" + OpenSSL_version(OPENSSL_VERSION) + "\nCLI11 " CLI11_VERSION "\nnlohmann-json " +
           json + "\n" + GstreamerVersion() + "\n" + PcapVersion() + "\n";
}

} // namespace tool
