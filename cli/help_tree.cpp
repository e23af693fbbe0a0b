#include "help_tree.hpp"

#include <CLI/CLI.hpp>

#include <regex>
#include <string>

namespace veldan::cli {

namespace {

Json optionTree(const CLI::Option& option) {
    Json tree = {{"description", option.get_description()},
                 {"required", option.get_required()},
                 {"often", option.get_expected_max() > 1}};
    // The type's name is followed by what the validators say, as in "N:INT in [0 - 100]"; "ADDRESS:PORT" is a name.
    static const std::regex validated("(.*):(\\w+ in .*|POSITIVE|NONNEGATIVE|DIR|FILE)");
    std::smatch parts;
    std::string type = option.get_type_name();
    if (std::regex_match(type, parts, validated)) {
        tree["range"] = parts.str(2);
        type = parts.str(1);
    }
    if (option.get_positional()) {
        tree["name"] = option.get_name(true);
    } else {
        tree["names"] = Json::array();
        for (const std::string& name : option.get_snames())
            tree["names"].push_back("-" + name);
        for (const std::string& name : option.get_lnames())
            tree["names"].push_back("--" + name);
        if (option.get_items_expected_max() > 0)
            tree["value"] = type;
    }
    if (!option.get_default_str().empty())
        tree["default"] = option.get_default_str();
    return tree;
}

} // namespace

Json helpTree(const CLI::App& app) {
    Json tree = {{"name", app.get_name()},   {"description", app.get_description()}, {"text", app.get_footer()},
                 {"options", Json::array()}, {"arguments", Json::array()},           {"commands", Json::array()}};
    // Subcommands inherit a text that is said once.
    if (app.get_parent() != nullptr && app.get_parent()->get_footer() == app.get_footer())
        tree["text"] = "";
    for (const CLI::Option* option : app.get_options())
        tree[option->get_positional() ? "arguments" : "options"].push_back(optionTree(*option));
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        if (!command->get_group().empty()) // one without a group is hidden from the help, too
            tree["commands"].push_back(helpTree(*command));
    return tree;
}

} // namespace veldan::cli
