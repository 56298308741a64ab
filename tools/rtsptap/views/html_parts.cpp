#include "views/html_parts.h"

#include "base/text.h"

namespace tool {

std::string Escaped(const std::string &text) {
    std::string escaped;
    for (const char letter : text) {
        switch (letter) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            if (static_cast<unsigned char>(letter) < ' ' || letter == 0x7F)
                escaped += "&#xFFFD;";
            else
                escaped += letter;
        }
    }
    return escaped;
}

std::string Tagged(const std::string &tag, const std::string &text) {
    return "<" + tag + ">" + Escaped(text) + "</" + tag.substr(0, tag.find(' ')) + ">";
}

std::string Tile(const std::string &name, const std::string &value, const char *className) {
    return "<div class=\"tile " + std::string(className) + "\">" + Tagged("span", name) + Tagged("strong", value) +
           "</div>\n";
}

std::string LossTile(uint64_t lost, uint64_t expected) {
    if (expected == 0) return Tile("Lost", "–");
    const double share = 100 * static_cast<double>(lost) / static_cast<double>(expected);
    return Tile("Lost", std::to_string(lost) + Formatted(" (%.2f\u00a0%%)", share), lost > 0 ? "bad" : "good");
}

} // namespace tool
