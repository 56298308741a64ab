// What pages are made of. Texts may come from anywhere: they are escaped here.
#pragma once

#include <cstdint>
#include <string>

namespace tool {

// Text between tags or in an attribute; what cannot be shown is replaced.
std::string Escaped(const std::string &text);

// <tag>text</tag>; the tag may have attributes.
std::string Tagged(const std::string &tag, const std::string &text);

// A large value with its name; className: "good", "bad" or none.
std::string Tile(const std::string &name, const std::string &value, const char *className = "");
std::string LossTile(uint64_t lost, uint64_t expected);

} // namespace tool
