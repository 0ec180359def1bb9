// CLI11's formatter with some pieces replaced: lines are wrapped at 80 columns, a placeholder shows what a value is
// and not its C++ type, and it is in words which options may be repeated and how options are related.

#include "common/cli/HelpFormatter.h"

#include <CLI/CLI.hpp>

#include <set>
#include <sstream>
#include <vector>

namespace TelvaneTool
{

namespace
{

constexpr std::size_t kWidth = 80;
constexpr std::size_t kOptionColumn = 28;
constexpr std::size_t kCommandColumn = 15;

std::string wrapped(const std::string& text, std::size_t width)
{
    std::string lines;
    std::size_t column = 0;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const bool fits = column + word.size() < width;
        lines += column == 0 ? "" : fits ? " " : "\n";
        column = (fits && column != 0 ? column + 1 : 0) + word.size();
        lines += word;
    }
    return lines;
}

std::string joined(const std::set<CLI::Option*>& options)
{
    std::string text;
    for (const CLI::Option* const option : options) {
        text += (text.empty() ? "" : ", ") + option->get_name();
    }
    return text;
}

class HelpFormatter : public CLI::Formatter
{
public:
    HelpFormatter()
    {
        column_width(kOptionColumn);
        label("Positionals", "Arguments");
    }

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override
    {
        return CLI::detail::find_and_replace(
            wrapped(app->get_description(), kWidth) + "\n\n" + make_usage(app, name) + make_positionals(app) +
                make_subcommands(app, mode) + make_groups(app, mode) + "\n" + make_footer(app),
            "\n\n\n", "\n\n");
    }

    std::string make_usage(const CLI::App* app, std::string name) const override
    {
        const bool isCommand = app->get_parent() != nullptr || app->get_require_subcommand_max() == 0;
        std::string text =
            "Usage: " + name + (isCommand ? " [OPTION]..." : " COMMAND [OPTION]... [ARGUMENT]...");
        for (const CLI::Option* const option : app->get_options()) {
            text += option->get_positional() ? ' ' + make_option_usage(option) : "";
        }
        return text + '\n';
    }

    std::string make_subcommand(const CLI::App* command) const override
    {
        std::ostringstream text;
        CLI::detail::format_help(text, command->get_name(),
                                 wrapped(command->get_description(), kWidth - kCommandColumn),
                                 kCommandColumn);
        return text.str();
    }

    std::string make_option_name(const CLI::Option* option, bool isArgument) const override
    {
        return CLI::detail::find_and_replace(Formatter::make_option_name(option, isArgument), ",", ", ");
    }

    std::string make_option_opts(const CLI::Option* option) const override
    {
        const std::string value = option->get_positional() ? "" : placeholderOf(*option);
        return (value.empty() ? "" : ' ' + value) + (isRepeated(*option) ? "..." : "");
    }

    std::string make_option_desc(const CLI::Option* option) const override
    {
        std::vector<std::string> remarks;
        if (option->get_required() && !option->get_positional()) {
            remarks.emplace_back("required");
        }
        if (isRepeated(*option) && !option->get_positional()) {
            remarks.emplace_back("may be repeated");
        }
        if (!option->get_needs().empty()) {
            remarks.push_back("requires " + joined(option->get_needs()));
        }
        if (!option->get_excludes().empty()) {
            remarks.push_back("not with " + joined(option->get_excludes()));
        }
        if (!option->get_default_str().empty()) {
            remarks.push_back("default: " + option->get_default_str());
        }
        const std::string& text = option->get_description();
        return wrapped(remarks.empty() ? text : text + " (" + CLI::detail::join(remarks, "; ") + ")",
                       kWidth - kOptionColumn);
    }
};

} // namespace

std::shared_ptr<CLI::FormatterBase> makeHelpFormatter()
{
    return std::make_shared<HelpFormatter>();
}

std::string placeholderOf(const CLI::Option& option)
{
    if (option.get_items_expected_max() == 0) {
        return {};
    }
    const std::string type = option.get_type_name();
    const std::string name = type.substr(0, type.find(':')); // the descriptions of checks follow
    return name == "FLOAT" || name == "INT" || name == "UINT" ? "NUMBER" : name;
}

bool isRepeated(const CLI::Option& option)
{
    return option.get_items_expected_max() > 1;
}

} // namespace TelvaneTool
