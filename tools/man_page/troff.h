// Text as manual pages have it.
#pragma once

#include <string>

namespace troff {

// Dashes as they are typed, and no line that begins with a control character.
inline std::string Plain(const std::string &text) {
    std::string escaped;
    for (const char letter : text) {
        if (letter == '-')
            escaped += "\\-";
        else if (letter == '\\')
            escaped += "\\e";
        else if (letter == '\'')
            escaped += "\\(aq";
        else
            escaped += letter;
    }
    return (escaped.rfind('.', 0) == 0 ? "\\&" : "") + escaped;
}

inline std::string Bold(const std::string &text) { return "\\fB" + Plain(text) + "\\fR"; }

// A paragraph with a tag, which is troff already, in front.
inline std::string Entry(const std::string &tag, const std::string &text) {
    return ".TP\n" + tag + "\n" + Plain(text) + "\n";
}

} // namespace troff
