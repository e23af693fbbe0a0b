#include "arguments.hpp"

#include "nearest_word.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <utility>

namespace veldan::cli {

namespace {

using Words = std::vector<std::string>;

bool looksLikeOption(const std::string& word) {
    return word.size() > 1 && word.front() == '-' && word != "--";
}

/** The innermost command that was recognised. */
const CLI::App& chosen(const CLI::App& app) {
    const std::vector<CLI::App*> commands = app.get_subcommands();
    return commands.empty() ? app : chosen(*commands.back());
}

std::string fullName(const CLI::App& app) {
    return app.get_parent() == nullptr ? app.get_name() : fullName(*app.get_parent()) + " " + app.get_name();
}

Words optionNames(const CLI::App& command) {
    Words names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
        for (const std::string& name : option->get_snames())
            names.push_back("-" + name);
    }
    return names;
}

Words commandNames(const CLI::App& app) {
    Words names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        if (!command->get_group().empty()) // those without a group are hidden
            names.push_back(command->get_name());
    return names;
}

std::string suggestion(const std::string& word, const Words& known) {
    const std::string nearest = nearestWord(word, known);
    return nearest.empty() ? "" : "; did you mean " + nearest + "?";
}

std::string unknownOption(const std::string& word, const CLI::App& command) {
    const std::string name = word.substr(0, word.find('='));
    const Words known = optionNames(command);
    if (std::find(known.begin(), known.end(), name) != known.end())
        return name + " belongs after \"" + fullName(command) + "\"";
    return "unknown option " + name + suggestion(name, known);
}

/** Words that no option and no command took say more than what CLI11 found missing because of them. */
std::string complaint(const CLI::App& app, const CLI::ParseError& error) {
    const CLI::App& command = chosen(app);
    std::string unexpected;
    for (const std::string& word : app.remaining(true)) {
        if (looksLikeOption(word))
            return unknownOption(word, command);
        if (unexpected.empty() && word != "--")
            unexpected = word;
    }
    const bool commandMissing = !command.get_subcommands([](const CLI::App*) { return true; }).empty() &&
                                command.get_require_subcommand_min() > 0;
    if (commandMissing && !unexpected.empty())
        return "there is no command \"" + unexpected + "\"" + suggestion(unexpected, commandNames(command));
    if (commandMissing)
        return "a command is required";
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError) && !unexpected.empty())
        return "unexpected argument \"" + unexpected + "\"";
    return error.what();
}

/** An empty value is a mistake, mostly an unset variable of a script, never a way to leave an option out. */
void refuseEmptyValues(CLI::App& app) {
    for (CLI::Option* option : app.get_options())
        if (option->get_items_expected_max() > 0)
            option->check([](const std::string& value) { return std::string(value.empty() ? "is empty" : ""); });
    for (CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        refuseEmptyValues(*command);
}

/** CLI11 takes the next word for the value of "--name=". */
void refuseEmptyAssignments(const CLI::App& app, const Words& words) {
    for (const std::string& word : words) {
        if (word == "--")
            return;
        if (word.size() > 3 && word.compare(0, 2, "--") == 0 && word.find('=') == word.size() - 1)
            throw UsageError(word.substr(0, word.size() - 1) + ": is empty", app.get_name());
    }
}

} // namespace

bool parseArguments(CLI::App& app, Words words) {
    refuseEmptyValues(app);
    refuseEmptyAssignments(app, words);
    const bool helpCommand = !words.empty() && words.front() == "help";
    if (helpCommand) {
        words.erase(words.begin());
        words.emplace_back("--help");
    } else if (!words.empty() && words.front() == "--") {
        words.erase(words.begin());
    }
    std::reverse(words.begin(), words.end()); // as CLI11 wants them
    try {
        app.parse(std::move(words));
        return true;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0 || (helpCommand && !app.remaining(true).empty()))
            throw UsageError(complaint(app, error), fullName(chosen(app)));
        app.exit(error); // prints what was asked for
        return false;
    }
}

bool asksForJson(const Words& words) {
    const auto end = std::find(words.begin(), words.end(), "--");
    return std::find(words.begin(), end, "--json") != end;
}

} // namespace veldan::cli
