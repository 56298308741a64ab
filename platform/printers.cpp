// The exported printers. One message is one formatted write, so that concurrent lines stay whole.
#include "platform/printers.h"

#include <cstdarg>
#include <cstdio>

namespace {

constexpr std::size_t kMessageBytes = 1024; // longer messages are cut to fit, terminator included

[[gnu::format(printf, 2, 0)]] void FormatMessage(char (&message)[kMessageBytes], const char *format,
                                                 va_list arguments) {
    message[0] = '\0'; // stays empty when the format cannot be carried out
    std::vsnprintf(message, kMessageBytes, format, arguments);
}

} // namespace

void RtpRtspDebugPrint(int /*level*/, const char * /*format*/, ...) {}

int RtpRtspErrorPrint(const char *format, ...) {
    if (format == nullptr) return 0;
    char message[kMessageBytes];
    va_list arguments;
    va_start(arguments, format);
    FormatMessage(message, format, arguments);
    va_end(arguments);
    return std::printf("!!!ERROR!!! : %s", message);
}

int RtpRtspInfoPrint(const char *format, ...) {
    if (format == nullptr) return 0;
    char message[kMessageBytes];
    va_list arguments;
    va_start(arguments, format);
    FormatMessage(message, format, arguments);
    va_end(arguments);
    return std::printf("!!!INFO!!! : %s", message);
}
