#include "rtsp/message/header_list.h"

#include "platform/printers.h"
#include "platform/text.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace rtsptap {

void ReleaseHeaderSlot(RTSPHeaderStruct &slot) {
    std::free(std::exchange(slot.headerName, nullptr));
    std::free(std::exchange(slot.headerValue, nullptr));
}

namespace {

bool HasName(const RTSPHeaderStruct &header, const char *name) {
    return header.headerName != nullptr && std::strcmp(header.headerName, name) == 0;
}

// Nothing of the header changes unless both copies could be made.
int32_t FillHeader(const CallTrace &trace, RTSPHeaderStruct &header, const char *name, const char *value,
                   uint8_t isCustom) {
    HeapText nameCopy = DuplicateText(name);
    if (!nameCopy) return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s: Memory Allocation Failed to header name buffer\n");
    HeapText valueCopy = DuplicateText(value);
    if (!valueCopy) return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s: Memory Allocation Failed\n");

    ReleaseHeaderSlot(header);
    header.headerName = nameCopy.release();
    header.headerValue = valueCopy.release();
    header.isCustom = isCustom != 0 ? 1 : 0;
    return RTSP_SUCCESS;
}

// Kept: the first entry is always compared, the last of several never is, so its name can be added again.
bool IsNameTaken(const RTSPHeaderStruct &first, const char *name) {
    if (HasName(first, name)) return true;
    for (const RTSPHeaderStruct *node = first.next; node != nullptr && node->next != nullptr; node = node->next)
        if (HasName(*node, name)) return true;
    return false;
}

RTSPHeaderStruct &LastHeader(RTSPHeaderStruct &first) {
    RTSPHeaderStruct *last = &first;
    while (last->next != nullptr) last = last->next;
    return *last;
}

// The first node is the handle: its successor moves into it instead.
void RemoveFirst(RTSPHeaderStruct &first) {
    ReleaseHeaderSlot(first);
    if (first.next == nullptr) {
        RtpRtspInfoPrint("Header List with handle '%d' is now empty\n", PrintableHandle(&first));
        return;
    }
    RTSPHeaderStruct *const second = first.next;
    first = *second;
    delete second;
}

void RemoveAfter(RTSPHeaderStruct &previous) {
    RTSPHeaderStruct *const removed = previous.next;
    previous.next = removed->next;
    ReleaseHeaderSlot(*removed);
    delete removed;
}

void RemoveByName(RTSPHeaderStruct &first, const char *name) {
    DebugPrint(kDebugEntry, "\tRemoving header '%s' \n", name);
    if (HasName(first, name)) return RemoveFirst(first);
    for (RTSPHeaderStruct *node = &first; node->next != nullptr; node = node->next)
        if (HasName(*node->next, name)) return RemoveAfter(*node);
}

} // namespace

RTSPHeaderStruct *GetUserAddedHeaderValue(intptr_t headerList, const char *headerName) {
    const CallTrace trace(__func__);
    if (headerList == 0 || headerName == nullptr)
        return trace.Fail(static_cast<RTSPHeaderStruct *>(nullptr), "\tEXIT : %s :Invalid input argument\n");
    for (RTSPHeaderStruct *node = FirstHeader(headerList); node != nullptr; node = node->next)
        if (HasName(*node, headerName)) return node;
    DebugPrint(kDebugEntry, "\t  Output: Header not found so return NULL\n");
    return nullptr;
}

bool IsEmptyHeaderList(const RTSPHeaderStruct &first) {
    return first.headerName == nullptr || first.headerValue == nullptr;
}

} // namespace rtsptap

using namespace rtsptap;

intptr_t RTSPCreateHeaderList(void) {
    const CallTrace trace(__func__);
    auto *const first = new (std::nothrow) RTSPHeaderStruct{};
    if (first == nullptr)
        return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s: Memory Allocation Failed for RTSPHeaderStruct\n");
    return reinterpret_cast<intptr_t>(first);
}

int32_t RTSPAddHeaderToList(intptr_t headerList, const char *headerName, const char *headerValue,
                            uint8_t isCustom) {
    const CallTrace trace(__func__);
    if (headerList == 0 || headerName == nullptr || headerValue == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s: Invalid input argument\n");
    RTSPHeaderStruct &first = *FirstHeader(headerList);
    if (IsEmptyHeaderList(first)) return FillHeader(trace, first, headerName, headerValue, isCustom);

    if (IsNameTaken(first, headerName))
        return trace.Fail(RTSP_HEADER_NAME, "EXIT : %s: Header with Same name cannot be added.\n");
    std::unique_ptr<RTSPHeaderStruct> added(new (std::nothrow) RTSPHeaderStruct{});
    if (!added)
        return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s: Memory Allocation Failed for new header structure \n");
    if (const int32_t result = FillHeader(trace, *added, headerName, headerValue, isCustom); result != RTSP_SUCCESS)
        return result;
    LastHeader(first).next = added.release();
    return RTSP_SUCCESS;
}

int32_t RTSPRemoveHeaderFromList(intptr_t headerList, const char *headerName) {
    const CallTrace trace(__func__);
    if (headerList == 0 || headerName == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    RTSPHeaderStruct &first = *FirstHeader(headerList);
    if (IsEmptyHeaderList(first))
        return trace.Fail(RTSP_HEADER_NAME, "EXIT : %s :No such header found in the list\n");
    RemoveByName(first, headerName);
    return RTSP_SUCCESS; // Kept: also for a name that is not in the list
}

int32_t RTSPModifyHeaderInList(intptr_t headerList, const char *headerName, const char *headerValue) {
    const CallTrace trace(__func__);
    if (headerList == 0 || headerName == nullptr || headerValue == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s: Invalid input argument\n");
    RTSPHeaderStruct *const header = GetUserAddedHeaderValue(headerList, headerName);
    if (header == nullptr)
        return trace.Fail(RTSP_HEADER_NAME, "EXIT : %s: No such header found in the header list \n");
    // The old value goes even when the new one finds no memory: what is sent is never what was replaced.
    const HeapText oldValue(std::exchange(header->headerValue, DuplicateText(headerValue).release()));
    if (header->headerValue == nullptr)
        return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s: Cannot Allocate memory to sdpFieldTemp->valueBuffer\n");
    RtpRtspInfoPrint("Header is modified successfully\n");
    return RTSP_SUCCESS;
}

int32_t RTSPDestroyHeaderList(intptr_t headerList) {
    const CallTrace trace(__func__);
    if (headerList == 0) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s: Invalid input argument\n");
    RTSPHeaderStruct *node = FirstHeader(headerList);
    while (node != nullptr) {
        RTSPHeaderStruct *const next = node->next;
        ReleaseHeaderSlot(*node);
        delete node;
        node = next;
    }
    return RTSP_SUCCESS;
}
