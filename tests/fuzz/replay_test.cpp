// Runs every input of the corpus through its fuzz target: what a fuzzer once found stays found.

#include "fuzz/targets.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Input {
    const char* target;
    void (*run)(const std::uint8_t*, std::size_t);
    fs::path file;
};

void PrintTo(const Input& input, std::ostream* out) {
    *out << input.target << "/" << input.file.filename().string();
}

std::vector<Input> corpus() {
    std::vector<Input> inputs;
    for (const Input& target :
         {Input{"bmp_to_raw", veldan_fuzz::bmpToRaw, {}}, Input{"image_decode", veldan_fuzz::imageDecode, {}}})
        for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(VELDAN_FUZZ_CORPUS) / target.target))
            inputs.push_back({target.target, target.run, entry.path()});
    std::sort(inputs.begin(), inputs.end(), [](const Input& a, const Input& b) { return a.file < b.file; });
    return inputs;
}

class Corpus : public testing::TestWithParam<Input> {};

TEST_P(Corpus, Replay) {
    std::ifstream in(GetParam().file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    GetParam().run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Corpus, testing::ValuesIn(corpus()), [](const auto& info) {
    std::string name = std::string(info.param.target) + "_" + info.param.file.filename().string();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
});

} // namespace
