#include "man_page.h"

#include "troff.h"

#include <algorithm>
#include <cstdio>

namespace {

std::string OptionEntry(const CLI::Option &option) {
    std::string tag;
    for (const std::string &name : option.get_snames()) tag += troff::Bold("-" + name) + ", ";
    for (const std::string &name : option.get_lnames()) tag += troff::Bold("--" + name) + ", ";
    tag.resize(tag.size() - 2);
    std::string value = option.get_type_name();
    for (const std::string prefix : {"INT:", "UINT:", "FLOAT:"}) // before what is checked, which says it again
        if (value.rfind(prefix, 0) == 0) value.erase(0, prefix.size());
    if (option.get_items_expected_max() > 0) tag += " \\fI" + troff::Plain(value) + "\\fR";
    return troff::Entry(tag, option.get_description());
}

std::string Options(const CLI::App &app) {
    std::string text;
    for (const CLI::Option *option : app.get_options()) text += OptionEntry(*option);
    for (const CLI::App *group : app.get_subcommands({})) text += Options(*group); // option groups
    return text;
}

std::string ManPage(const CLI::App &app) {
    std::string title = app.get_name();
    std::transform(title.begin(), title.end(), title.begin(), ::toupper);
    return ".TH " + title + " 1 \"\" \"rtsptap " RTSPTAP_VERSION "\" \"User Commands\"\n.SH NAME\n" +
           troff::Plain(app.get_name()) + " \\- " + troff::Plain(app.get_description()) + "\n.SH SYNOPSIS\n.B " +
           troff::Plain(app.get_name()) + "\n.RI [ OPTIONS ]\n.SH DESCRIPTION\n" + troff::Plain(app.get_footer()) +
           "\n.SH OPTIONS\n" + Options(app) + ".SH SEE ALSO\n.BR rtsptap (1)\n";
}

} // namespace

void AddManPage(CLI::App &app) {
    app.add_flag_callback(
        "--man",
        [&app] {
            std::fputs(ManPage(app).c_str(), stdout);
            throw CLI::Success();
        },
        "print this as a manual page");
}
