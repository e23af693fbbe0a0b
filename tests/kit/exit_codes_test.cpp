#include "report/exit_codes.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

namespace {

using veldan::kit::ExitCodeRow;
using veldan::kit::exitCodes;

// Scripts rely on the numbers, and users on what the documentation says about them.
TEST(ExitCodes, AreThoseOfTheDocumentation) {
    std::ifstream file(VELDAN_DOCS "/command.md");
    std::ostringstream text;
    text << file.rdbuf();
    int number = 0;
    for (const ExitCodeRow& row : exitCodes) {
        EXPECT_EQ(static_cast<int>(row.code), number);
        EXPECT_THAT(text.str(), testing::HasSubstr("\n| " + std::to_string(number++) + " | `" + row.name + "` | " +
                                                   row.meaning + " |\n"));
    }
    EXPECT_THAT(text.str(), testing::Not(testing::HasSubstr("\n| " + std::to_string(number) + " | `")));
}

} // namespace
