// --man for the small programs: the manual page, out of what --help knows.
#pragma once

#include "troff.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace troff {

inline std::string OptionEntry(const CLI::Option &option) {
    std::string tag;
    for (const std::string &name : option.get_snames()) tag += Bold("-" + name) + ", ";
    for (const std::string &name : option.get_lnames()) tag += Bold("--" + name) + ", ";
    tag.resize(tag.size() - 2);
    std::string value = option.get_type_name();
    for (const std::string prefix : {"INT:", "UINT:", "FLOAT:"}) // before what is checked, which says it again
        if (value.rfind(prefix, 0) == 0) value.erase(0, prefix.size());
    if (option.get_items_expected_max() > 0) tag += " \\fI" + Plain(value) + "\\fR";
    return Entry(tag, option.get_description());
}

inline std::string Options(const CLI::App &app) {
    std::string text;
    for (const CLI::Option *option : app.get_options()) text += OptionEntry(*option);
    for (const CLI::App *group : app.get_subcommands({})) text += Options(*group); // option groups
    return text;
}

inline std::string ManPage(const CLI::App &app) {
    std::string title = app.get_name();
    std::transform(title.begin(), title.end(), title.begin(), ::toupper);
    return ".TH " + title + " 1 \"\" \"rtsptap " RTSPTAP_VERSION "\" \"User Commands\"\n.SH NAME\n" +
           Plain(app.get_name()) + " \\- " + Plain(app.get_description()) + "\n.SH SYNOPSIS\n.B " +
           Plain(app.get_name()) + "\n.RI [ OPTIONS ]\n.SH DESCRIPTION\n" + Plain(app.get_footer()) +
           "\n.SH OPTIONS\n" + Options(app) + ".SH SEE ALSO\n.BR rtsptap (1)\n";
}

} // namespace troff

// Adds the option. The app's footer is the DESCRIPTION. Called after all other options were added.
inline void AddManPage(CLI::App &app) {
    app.add_flag_callback(
        "--man",
        [&app] {
            std::fputs(troff::ManPage(app).c_str(), stdout);
            throw CLI::Success();
        },
        "print this as a manual page");
}
