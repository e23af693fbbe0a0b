#include "cli/run_command.hpp"
#include "labels.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace {

using namespace veldan::eval;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

void write(const std::filesystem::path& path, const std::string& text) {
    writeBytes(path, {text.begin(), text.end()});
}

const std::string label = "a.webp,1.5,2,30,40,10,11,20,12,15,20,11,30,19,31,0.93\n";

TEST(Labels, ReadsAllTables) {
    const ScratchFolder folder;
    write(folder / "one.images.csv", "file,width,height,split\na.webp,100,80,train\nb.webp,60,70,val\n");
    write(folder / "one.labels.csv", label + "a.webp,-5,6,7,8,1,2,3,4,5,6,7,8,9,10,0.31\r\n");
    write(folder / "one.landmarks.csv", "b.webp,1,2,3,4,5,6,7,8,9,10.5\n");
    write(folder / "one.masks.csv", "a.webp,9,8,7,6,with_mask\n");
    write(folder / "two.images.csv", "");
    EXPECT_THAT(packNames(folder / ""), ElementsAre("one", "two"));

    const Pack pack = readPack(folder / "", "one");
    ASSERT_EQ(pack.photos.size(), 2u);
    const LabelledPhoto& a = pack.photos[0];
    EXPECT_EQ(a.file, "a.webp");
    EXPECT_EQ(a.width, 100);
    EXPECT_EQ(a.split, "train");
    ASSERT_EQ(a.faces.size(), 2u);
    EXPECT_DOUBLE_EQ(a.faces[0].box.x, 1.5);
    EXPECT_DOUBLE_EQ(a.faces[0].points[4].y, 31);
    EXPECT_DOUBLE_EQ(a.faces[0].score, 0.93);
    EXPECT_DOUBLE_EQ(a.faces[1].box.x, -5);
    EXPECT_DOUBLE_EQ(a.faces[1].score, 0.31);
    ASSERT_EQ(a.personBoxes.size(), 1u);
    EXPECT_EQ(a.personBoxes[0].category, "with_mask");
    EXPECT_FALSE(a.personPoints);
    ASSERT_TRUE(pack.photos[1].personPoints);
    EXPECT_DOUBLE_EQ((*pack.photos[1].personPoints)[4].y, 10.5);
    EXPECT_TRUE(pack.photos[1].faces.empty());
}

// A teacher that looked twice: sure where both looks are, or one is very much; and of faces that stand upright alone.
TEST(Labels, ReadsPacksOfTwoLooks) {
    const ScratchFolder folder;
    const std::string box = "a.jpg,1,2,30,40,", upright = "10,11,20,12,15,20,11,30,19,31,",
                      turned = "10,11,10,21,20,15,30,11,30,20,";
    write(folder / "p.csv", "file,source,class,split\na.jpg,x/y.jpg,,val\n");
    write(folder / "p.labels.csv", box + upright + "0.5,0.5\n" + box + upright + "0.3,0.7\n" + box + upright +
                                       "0.49,0.69\n" + box + upright + "0.9,0.2\n" + box + turned + "0.9,0.9\n");
    write(folder / "other.csv", "");
    EXPECT_THAT(packNames(folder / ""), ElementsAre("p"));
    const Pack pack = readPack(folder / "", "p");
    ASSERT_EQ(pack.photos.size(), 1u);
    EXPECT_EQ(pack.photos[0].split, "val");
    std::vector<double> scores;
    for (const TeacherFace& face : pack.photos[0].faces)
        scores.push_back(face.score);
    EXPECT_THAT(scores, ElementsAre(1, 1, 0, 0, 0));
}

TEST(Labels, CallsAHeadAProfileWhenTheNoseLiesBeyondTheEyes) {
    FivePoints points{{{10, 10}, {20, 10}, {15, 15}, {11, 20}, {19, 20}}};
    EXPECT_FALSE(isProfile(points));
    points[2].x = 20.5;
    EXPECT_TRUE(isProfile(points));
    points[2].x = 9.5;
    EXPECT_TRUE(isProfile(points));
}

struct Fault {
    std::string images;
    std::string labels;
    const char* message;
};

class FaultyLabels : public testing::TestWithParam<Fault> {};

TEST_P(FaultyLabels, AreRefusedWithFileAndLine) {
    const ScratchFolder folder;
    write(folder / "p.images.csv", GetParam().images);
    write(folder / "p.labels.csv", GetParam().labels);
    EXPECT_THAT([&] { readPack(folder / "", "p"); }, ThrowsMessage<std::runtime_error>(HasSubstr(GetParam().message)));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, FaultyLabels,
    testing::Values(
        Fault{"a.webp,100,80\n", "", "p.images.csv:1: 3 fields instead of 4"},
        Fault{"a.webp,100,80,val\n\na.webp,100,80,val\n", "", "p.images.csv:3: a.webp occurs twice"},
        Fault{"a.webp,100,8o,val\n", "", "\"8o\" is not a number"},
        Fault{"a.webp,100,80,val\n", label + "b.webp" + label.substr(6), "p.labels.csv:2: b.webp is not in"},
        Fault{"a.webp,100,80,val\n", "a.webp,,2,30,40,10,11,20,12,15,20,11,30,19,31,0.93\n", "\"\" is not a number"}));

// One photo with two labels, in a folder with two packs.
class ReviewedLabels : public testing::TestWithParam<std::pair<const char*, const char*>> {
protected:
    ReviewedLabels() {
        write(folder_ / "p.images.csv", "a.webp,100,80,val\n");
        write(folder_ / "p.labels.csv", label + "a.webp,50,2,30,40,60,11,70,12,65,20,61,30,69,31,0.9\n");
        write(folder_ / "q.images.csv", "");
    }

    Pack reviewed(const std::string& table) {
        write(folder_ / "review.csv", table);
        Pack pack = readPack(folder_ / "", "p");
        LabelReview review(folder_ / "review.csv", packNames(folder_ / ""));
        review.apply(pack);
        changed_ = {review.noFaces(), review.parts()};
        return pack;
    }

    ScratchFolder folder_;
    std::pair<std::size_t, std::size_t> changed_;
};

TEST_F(ReviewedLabels, LoseNoFacesAndDoubtParts) {
    const std::string heading = "file,pack,x,y,w,h,verdict\n";
    const Pack without = reviewed(heading + "b.webp,q,1,2,3,4,no_face\na.webp,p,1.5,2,30,40,no_face\n");
    ASSERT_EQ(without.photos[0].faces.size(), 1u);
    EXPECT_DOUBLE_EQ(without.photos[0].faces[0].box.x, 50);
    EXPECT_EQ(changed_, std::make_pair(std::size_t{1}, std::size_t{0})); // the other pack's is not asked for
    const Pack doubted = reviewed(heading + "a.webp,p,1.5,2,30,40,part\n");
    ASSERT_EQ(doubted.photos[0].faces.size(), 2u);
    EXPECT_DOUBLE_EQ(doubted.photos[0].faces[0].score, 0);
    EXPECT_DOUBLE_EQ(doubted.photos[0].faces[1].score, 0.9);
}

TEST_P(ReviewedLabels, AreRefusedWhereTheyDoNotFit) {
    EXPECT_THAT([&] { reviewed(GetParam().first); }, ThrowsMessage<std::runtime_error>(HasSubstr(GetParam().second)));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, ReviewedLabels,
    testing::Values(std::make_pair("a.webp,p,1.5,2,30,41,part\n", "review.csv:1: a.webp has no label with this box"),
                    std::make_pair("\nb.webp,p,1.5,2,30,40,part\n", "review.csv:2: b.webp is not in pack p"),
                    std::make_pair("a.webp,o,1.5,2,30,40,part\n", "\"o\" is none of p, q"),
                    std::make_pair("a.webp,p,1.5,2,30,40,\n", "\"\" is none of no_face, part"),
                    std::make_pair("a.webp,p,1.5,2,30,part\n", "6 fields instead of 7")));

} // namespace
