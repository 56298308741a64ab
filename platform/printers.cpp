// The printers, exported and the library's own. One message is one formatted write, so that concurrent lines stay
// whole, or one call of the printer that the program has set.
#include "platform/printers.h"

#include "platform/handle_table.h"
#include "platform/system.h"
#include "rtsptap_extended.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

namespace rtsptap {

constinit thread_local intptr_t gblPrintsFor = 0;

[[gnu::noinline]] intptr_t SetPrintsFor(intptr_t clientHandle) { return std::exchange(gblPrintsFor, clientHandle); }

namespace {

constexpr std::size_t kMessageBytes = 1024; // longer messages are cut to fit, terminator included

// ---- printers that the program has set ----

struct SetPrinter {
    intptr_t client = 0; // 0: for all that have none of their own
    RTSPTapPrinter call = nullptr;
    void *context = nullptr;
    SetPrinter *next = nullptr;
};

pthread_mutex_t printersLock =
    PTHREAD_MUTEX_INITIALIZER;     // guards the list; a leaf, let go before a printer is called
SetPrinter *setPrinters = nullptr; // owned: until they are dropped
std::atomic<bool> anyIsSet{false};

// The place in the list that leads to the client's printer; one that leads nowhere when it has none.
SetPrinter **Find(intptr_t client) {
    SetPrinter **at = &setPrinters;
    while (*at != nullptr && (*at)->client != client) at = &(*at)->next;
    return at;
}

// That of the client, or else the process's; one without a call when neither has any.
SetPrinter PrinterFor(intptr_t client) {
    if (!anyIsSet.load(std::memory_order_acquire)) return {};
    const ScopedLock lock(printersLock);
    const SetPrinter *found = *Find(client);
    if (found == nullptr) found = *Find(0);
    return found != nullptr ? *found : SetPrinter{};
}

// False when memory is short.
bool KeepPrinter(intptr_t client, RTSPTapPrinter call, void *context) {
    const ScopedLock lock(printersLock);
    SetPrinter *&place = *Find(client);
    if (place == nullptr) place = new (std::nothrow) SetPrinter{.client = client};
    if (place == nullptr) return false;
    place->call = call;
    place->context = context;
    anyIsSet.store(true, std::memory_order_release);
    return true;
}

void DropPrinter(intptr_t client) {
    if (!anyIsSet.load(std::memory_order_acquire)) return;
    const ScopedLock lock(printersLock);
    SetPrinter *&place = *Find(client);
    if (const SetPrinter *const dropped = place; dropped != nullptr) {
        place = dropped->next;
        delete dropped;
    }
    anyIsSet.store(setPrinters != nullptr, std::memory_order_release);
}

// ---- one message ----

// Hands it to the program's printer, without its line ends. Returns its length, or -1 when no printer is set.
int HandOver(RTSPTapPrintLevel level, char *message) {
    const SetPrinter printer = PrinterFor(gblPrintsFor);
    if (printer.call == nullptr) return -1;
    std::size_t length = std::strlen(message);
    while (length > 0 && message[length - 1] == '\n') message[--length] = '\0';
    const bool isLive = printer.client != 0 || IsLiveHandle(gblPrintsFor);
    printer.call(printer.context, level, isLive ? gblPrintsFor : 0, message);
    return static_cast<int>(length);
}

[[gnu::format(printf, 3, 0)]] int Print(RTSPTapPrintLevel level, const char *prefix, const char *format,
                                        va_list arguments) {
    char message[kMessageBytes];
    message[0] = '\0'; // stays empty when the format cannot be carried out
    std::vsnprintf(message, kMessageBytes, format, arguments);
    const int handedOver = HandOver(level, message);
    return handedOver >= 0 ? handedOver : std::printf("%s%s", prefix, message);
}

} // namespace

void PrintEvent(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Print(RTSPTAP_PRINT_EVENT, "", format, arguments);
    va_end(arguments);
}

void PrintSystemError(int error, const char *text) {
    char message[kMessageBytes];
    errno = error;
    std::snprintf(message, sizeof message, text != nullptr ? "%s: %m" : "%s%m", text != nullptr ? text : "");
    if (HandOver(RTSPTAP_PRINT_ERROR, message) >= 0) return;
    errno = error;
    std::perror(text);
}

void ForgetPrinter(intptr_t clientHandle) { DropPrinter(clientHandle); }

} // namespace rtsptap

using namespace rtsptap;

void RtpRtspDebugPrint(int /*level*/, const char * /*format*/, ...) {}

int RtpRtspErrorPrint(const char *format, ...) {
    if (format == nullptr) return 0;
    va_list arguments;
    va_start(arguments, format);
    const int printed = Print(RTSPTAP_PRINT_ERROR, "!!!ERROR!!! : ", format, arguments);
    va_end(arguments);
    return printed;
}

int RtpRtspInfoPrint(const char *format, ...) {
    if (format == nullptr) return 0;
    va_list arguments;
    va_start(arguments, format);
    const int printed = Print(RTSPTAP_PRINT_INFO, "!!!INFO!!! : ", format, arguments);
    va_end(arguments);
    return printed;
}

int32_t RTSPTapSetPrinter(intptr_t clientHandle, RTSPTapPrinter printer, void *context) {
    const CallTrace trace(__func__);
    if (clientHandle != 0 && !IsLiveHandle(clientHandle))
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    if (printer == nullptr)
        DropPrinter(clientHandle);
    else if (!KeepPrinter(clientHandle, printer, context))
        return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s : Memory Allocation Failed\n");
    return RTSP_SUCCESS;
}
