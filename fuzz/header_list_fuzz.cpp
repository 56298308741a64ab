// Operations on a user's header list in any order, then the list validated and sent with every method.
// Each operation is one byte, the name's number another, and a value up to the next line end.
#include "platform/text.h"
#include "rtsp/client/client_record.h"
#include "rtsp/message/header_list.h"
#include "rtsp/message/header_validation.h"
#include "rtsp/message/request.h"
#include "rtsp/message/request_build.h"

#include <cstdlib>
#include <string>

using namespace rtsptap;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const char *const kNames[] = {"Range", "Scale",     "CSeq",      "Session", "User-Agent", "Accept",
                                         "Param", "Bandwidth", "Transport", "Speed",   "X-Own",      "Blocksize"};
    const intptr_t list = RTSPCreateHeaderList();
    std::string_view rest(reinterpret_cast<const char *>(data), size);
    for (std::string_view line; NextLine(rest, line) && line.size() >= 2;) {
        const char *const name = kNames[static_cast<uint8_t>(line[1]) % std::size(kNames)];
        const std::string value(line.substr(2));
        if (line[0] % 4 == 0) RTSPRemoveHeaderFromList(list, name);
        if (line[0] % 4 == 1) RTSPModifyHeaderInList(list, name, value.c_str());
        if (line[0] % 4 > 1) RTSPAddHeaderToList(list, name, value.c_str(), line[0] % 4 == 2);
    }
    RTSPClient client{};
    for (uint32_t method = 0; method < 9; ++method) {
        ValidateHeaderList(list, method);
        const RequestMsgPtr request(GenerateRequestMessage(&client, method, list, 0));
        if ((request == nullptr) != (method > RTSP_PAUSE)) std::abort();
        for (const RTSPHeaderStruct *node = FirstHeader(list); node != nullptr; node = node->next)
            if (node->isUsed != 0) std::abort();
    }
    RTSPDestroyHeaderList(list);
    return 0;
}
