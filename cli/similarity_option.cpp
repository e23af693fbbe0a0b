#include "similarity_option.hpp"

#include "kit_names.hpp"
#include "report/exit_codes.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>
#include <string_view>
#include <system_error>

namespace veldan::cli {

double similarityFrom(const std::string& text) {
    std::string_view number(text);
    const bool sign = !number.empty() && number.back() == '%';
    if (sign)
        number.remove_suffix(1);
    while (sign && !number.empty() && number.back() == ' ')
        number.remove_suffix(1);
    double value = -1;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    const bool percent = sign || value > 1;
    const bool whole = error == std::errc() && end == number.data() + number.size();
    if (!whole || !(value >= 0 && value <= (percent ? 100 : 1)))
        throw CommandError(ExitCode::Usage,
                           "\"" + text + "\" is no similarity: 0 to 1, or percent as in 72% or 72, are");
    return percent ? value / 100 : value;
}

int wholePercent(double similarity) {
    constexpr double rounding = 1e-9; // 0.07 * 100 is a little more than 7
    return std::max(1, static_cast<int>(std::ceil(similarity * 100 - rounding)));
}

CLI::Option* addSimilarityOption(CLI::App& command, const std::string& name, double& value, const std::string& help) {
    std::ostringstream text;
    text << value;
    const auto read = [&value, name](const std::string& given) {
        try {
            value = similarityFrom(given);
        } catch (const CommandError& error) {
            throw CLI::ValidationError(name, error.what());
        }
    };
    return command.add_option_function<std::string>(name, read, help)->type_name("S")->default_str(text.str());
}

} // namespace veldan::cli
