// Runs every input of the corpus through its fuzz target: what a fuzzer once found stays found.

#include "fuzz/targets.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

namespace {

namespace fs = std::filesystem;
using veldan_fuzz::Target;

class Corpus : public testing::TestWithParam<Target> {};

TEST_P(Corpus, Replay) {
    int inputs = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(VELDAN_FUZZ_CORPUS) / GetParam().name)) {
        // A broken promise ends the process: the last name is that of the input.
        std::cerr << entry.path().filename().string() << std::endl;
        std::ifstream in(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        GetParam().run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++inputs;
    }
    EXPECT_GT(inputs, 0);
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Corpus, testing::ValuesIn(veldan_fuzz::targets()),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
