// A hostile URL, and a second one as if the first had been redirected there: what is taken out of the URL of a server
// is bounded, and the request that remains says the same without user and password.
#include "fuzz/fuzz_target.h"
#include "platform/url.h"

#include <cstring>

using namespace rtsptap;

static void Read(std::string_view text) {
    ServerUrl url;
    if (ReadServerUrl(text, "rtsp", 554, url) != UrlFault::kNone) return;
    fuzz::Require(url.host[0] != '\0' && url.port != 0 && std::strlen(url.host) < sizeof url.host);
    fuzz::Require(std::strlen(url.user) < sizeof url.user && std::strlen(url.password) < sizeof url.password);
    const std::string_view request = url.request.get();
    const std::string_view path = text.substr(std::min(text.find('/', std::strlen("rtsp://")), text.size()));
    fuzz::Require(request.ends_with(path) && !Contains(request, "\r") && !Contains(request, " "));

    ServerUrl again;
    fuzz::Require(ReadServerUrl(request, "rtsp", 554, again) == UrlFault::kNone && !again.hasUser);
    fuzz::Require(request == again.request.get() && again.port == url.port);
    const std::string_view host = url.host; // its zone is not told
    fuzz::Require(host == again.host || (Contains(host, "%") && host.starts_with(again.host)));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string_view input = fuzz::TextOf(data, size);
    const std::string_view first = input.substr(0, input.find('\n'));
    const std::string_view second = input.substr(std::min(first.size() + 1, input.size()));
    const HeapText joined = JoinUrl(first, second);
    fuzz::Require(joined != nullptr && std::strlen(joined.get()) <= first.size() + second.size() + 8);
    for (const std::string_view text : {first, second, std::string_view(joined.get())}) Read(text);
    return 0;
}
