// The user's header lists: the exported operations of rtsptap.h and the look-up that requests use.
// A list belongs to the application's thread; a handle is the address of the first node.
#pragma once

#include <cstdint>

namespace rtsptap {

struct RTSPHeaderStruct;

// The first entry of exactly that name, or null. The handle must not be null.
RTSPHeaderStruct *GetUserAddedHeaderValue(intptr_t headerList, const char *headerName);

inline RTSPHeaderStruct *FirstHeader(intptr_t headerList) {
    return reinterpret_cast<RTSPHeaderStruct *>(headerList);
}
// An empty list is a first node without name or without value.
bool IsEmptyHeaderList(const RTSPHeaderStruct &first);

} // namespace rtsptap
