// Text without surprises: views that are eaten from the front, numbers read as atoi reads them, copies bounded by
// the field they go to, and bytes written as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace rtsptap {

struct FreeDeleter {
    void operator()(void *block) const;
};
// A NUL-terminated text on the heap, released with free().
using HeapText = std::unique_ptr<char[], FreeDeleter>;

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Takes the next line off the front of `text`. Lines end at runs of CR and LF, so none is ever empty.
// False when no line is left.
bool NextLine(std::string_view &text, std::string_view &line);

// Takes what stands before the first `separator` off the front of `text`, the separator with it.
// False, and nothing taken, when there is none.
bool Until(std::string_view &text, char separator, std::string_view &token);

// The decimal number at the front: optional white space and sign, then digits; 0 when there are none.
// Out of range values wrap as atoi's do here.
int32_t LeadingNumber(std::string_view text);

// The decimal fraction at the front, as atof reads it in the C locale; 0.0 when there is none.
double LeadingFraction(std::string_view text);

inline bool Contains(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }
char LowerCase(char c); // of ASCII
bool HasControlCharacter(std::string_view text);
bool EqualIgnoringCase(std::string_view a, std::string_view b);

// The text without the spaces and tabs around it.
std::string_view WithoutBlanks(std::string_view text);

// What follows the first `part` in `text`; a null view (data() == nullptr) when `part` is not in it.
std::string_view After(std::string_view text, std::string_view part);

// Copies as much of `text` as fits into the field, clears the rest of it and terminates it.
void CopyText(char *field, std::size_t fieldSize, std::string_view text);
template <std::size_t N> void CopyText(char (&field)[N], std::string_view text) { CopyText(field, N, text); }

// A heap copy with terminator, or null when memory is short.
HeapText DuplicateText(std::string_view text);

// Decodes `text`, with its padding or without it, into at most `capacity` bytes.
// The number of bytes, or RTSP_FAILURE: a foreign character, a cut-off group, not enough room.
int32_t Base64DecodeBinaryToBuffer(std::string_view text, uint8_t *buffer, int32_t capacity);

} // namespace rtsptap
