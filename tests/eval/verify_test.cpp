// Recognition figures, worked out by hand.

#include "cli/run_command.hpp"
#include "verify_figures.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>

namespace {

using namespace veldan::eval;
using testing::HasSubstr;

PairScores scoresOf(std::vector<float> genuine, std::vector<float> impostor) {
    PairScores scores;
    for (const float score : genuine)
        scores.add(true, score);
    for (const float score : impostor)
        scores.add(false, score);
    return scores;
}

TEST(VerifyFigures, BestThresholdAndRates) {
    // At 0.7 three of four and five of five are right; at 0.55 four and four.
    const Json figures =
        verifyFigures(scoresOf({0.9F, 0.8F, 0.7F, 0.55F}, {0.6F, 0.5F, 0.5F, 0.4F, 0.3F}), {0.5, 0.2, 0.1});
    EXPECT_EQ(figures["accuracy"], 8.0 / 9);
    EXPECT_EQ(figures["best_threshold"], 0.55F);
    const Json& points = figures["operating_points"];
    ASSERT_EQ(points.size(), 3U);
    // Two may pass, but the second and the third are equal: one does.
    EXPECT_EQ(points[0]["false_match_rate"], 0.2);
    EXPECT_EQ(points[0]["true_match_rate"], 1.0);
    EXPECT_EQ(points[1]["false_match_rate"], 0.2);
    EXPECT_GT(points[1]["threshold"], 0.5F);
    // None may pass: above the highest impostor.
    EXPECT_EQ(points[2]["false_match_rate"], 0.0);
    EXPECT_EQ(points[2]["true_match_rate"], 0.75);
    EXPECT_EQ(points[2]["threshold"], std::nextafter(0.6F, 1.0F));
    // 0.8 itself is accepted.
    EXPECT_EQ(figures["at_0.80"]["true_match_rate"], 0.5);
    EXPECT_EQ(figures["impostors_at_0.80"], 0);
}

TEST(VerifyFigures, PairsWithoutAFaceAreDifferentPeople) {
    PairScores scores = scoresOf({0.9F}, {0.2F});
    scores.add(true, std::nullopt);
    scores.add(false, std::nullopt);
    scores.add(true, std::numeric_limits<float>::quiet_NaN());
    const Json figures = verifyFigures(scores, {0.5});
    EXPECT_EQ(figures["accuracy"], 3.0 / 5);
    EXPECT_EQ(figures["operating_points"][0]["true_match_rate"], 1.0 / 3);
    EXPECT_EQ(figures["operating_points"][0]["false_match_rate"], 0.5);
    EXPECT_THROW(verifyFigures(scoresOf({}, {0.1F}), {}), std::runtime_error);
    EXPECT_THROW(verifyFigures(scoresOf({0.1F}, {}), {}), std::runtime_error);
}

TEST(VerifyFigures, AcceptingNobodyMayBeBest) {
    EXPECT_EQ(verifyFigures(scoresOf({0.1F}, {0.5F, 0.6F}), {})["accuracy"], 2.0 / 3);
}

TEST(IdentificationFigures, CountsHitsAndFalseAccepts) {
    IdentificationFigures figures;
    figures.threshold = 0.7F;
    figures.add(1, {0.2F, 0.9F, 0.7F});       // found; without its own template taken for the third
    figures.add(1, {0.2F, 0.6F, 0.5F});       // first, but not accepted
    figures.add(0, {0.75F, 0.8F, 0.1F});      // taken for another
    figures.add(2, {0.6F, 0.1F, 0.6F});       // not more similar than another
    figures.add(2, {});                       // no face
    figures.add(std::nullopt, {0.1F, 0.7F});  // a stranger let in
    figures.add(std::nullopt, {0.1F, 0.69F}); // and one kept out
    figures.add(std::nullopt, {});
    const auto document = figures.toJson();
    EXPECT_EQ(document.at("known"), 5);
    EXPECT_EQ(document.at("rank_1"), 2);
    EXPECT_EQ(document.at("accepted"), 1);
    EXPECT_EQ(document.at("accepted_as_another"), 1);
    EXPECT_EQ(document.at("accepted_without_own"), 2);
    EXPECT_EQ(document.at("strangers"), 2);
    EXPECT_EQ(document.at("strangers_accepted"), 1);
}

// Two people: one with two photos.
class EvaluatePeople : public testing::Test {
protected:
    EvaluatePeople() {
        namespace fs = std::filesystem;
        for (const char* name : {"first-bare.webp", "second-bare.webp", "first-mask.webp"})
            fs::copy_file(std::string(VELDAN_PHOTOS) + "/" + name, folder_ / name);
        list("photos.csv", "file,person\nfirst-bare.webp,a\nfirst-mask.webp,a\nsecond-bare.webp,b\n");
        list("pairs.csv", "first-bare.webp,first-bare.webp,1\nfirst-bare.webp,second-bare.webp,0\n");
    }
    void list(const char* name, const std::string& lines) { writeBytes(folder_ / name, {lines.begin(), lines.end()}); }
    CommandResult run(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"verify", (folder_ / "").string()});
        return runProgram(VELDAN_EVAL, options);
    }

    ScratchFolder folder_;
};

TEST_F(EvaluatePeople, ComparesTheSamePhotoAndAnotherFace) {
    const CommandResult result = run({"--json", "--draw", (folder_ / "drawn").string()});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    const auto document = Json::parse(result.output);
    EXPECT_EQ(document.at("photos"), 3);
    for (const auto& comparison : document.at("comparisons")) {
        EXPECT_EQ(comparison.at("same_pairs"), 1);
        EXPECT_EQ(comparison.at("different_pairs"), 1);
    }
    // A photo is like itself, and more so than like the other person's.
    const auto& bare = document.at("comparisons")[0].at("listed");
    EXPECT_EQ(bare.at("accuracy"), 1.0);
    EXPECT_NEAR(bare.at("best_threshold").get<double>(), 1.0, 1e-6);
    EXPECT_TRUE(std::filesystem::exists(folder_ / "drawn/similarity-bare.png"));
    EXPECT_THAT(run().output, HasSubstr("painted mask"));
}

TEST_F(EvaluatePeople, SearchesAmongOthers) {
    namespace fs = std::filesystem;
    fs::create_directory(folder_ / "more");
    for (const char* name : {"second-mask.webp", "first-bare.webp"})
        fs::copy_file(std::string(VELDAN_PHOTOS) + "/" + name, folder_ / "more" / name);
    list("more.csv", "file,source,class,split\nsecond-mask.webp,x,,train\nfirst-bare.webp,y,,val\n");
    for (const auto& [enrolled, strangers] : {std::pair{"2", 1}, {"3", 0}}) {
        const CommandResult result =
            run({"--json", "--others", (folder_ / "more.csv").string(), "--enrolled", enrolled});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        const auto document = Json::parse(result.output);
        EXPECT_EQ(document.at("enrolled"), strangers == 1 ? 2 : 3);
        const auto& searches = document.at("comparisons")[0].at("searches");
        EXPECT_EQ(searches.at("known"), 1);
        // The only photo of the split shows one of the enrolled people.
        EXPECT_EQ(searches.at("strangers"), strangers);
        EXPECT_EQ(searches.at("strangers_accepted"), strangers);
    }
}

TEST_F(EvaluatePeople, RefusesListsThatDoNotFit) {
    list("pairs.csv", "first-bare.webp,third.webp,1\n");
    EXPECT_THAT(run().errors, HasSubstr("third.webp"));
    list("pairs.csv", "first-bare.webp,second-bare.webp,2\n");
    EXPECT_NE(run().exitCode, 0);
    list("photos.csv", "first-bare.webp,a\nfirst-bare.webp,b\n");
    EXPECT_THAT(run().errors, HasSubstr("twice"));
}

} // namespace
