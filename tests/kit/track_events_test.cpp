#include "video/latest_frame.hpp"
#include "video/track_events.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace veldan::kit;

constexpr int grace = 4;

// A face whose box is 100 x 100 with its left edge at x.
VDFACEINFOEX face(int trackId, int x) {
    VDFACEINFOEX record{};
    record.x = x;
    record.width = 100;
    record.height = 100;
    record.trackId = trackId;
    record.searchId = -1;
    return record;
}

VDFACEINFOEX known(VDFACEINFOEX record, int searchId) {
    record.searchFlag = 1;
    record.searchId = searchId;
    return record;
}

VDFACEINFOEX unknown(VDFACEINFOEX record) {
    record.strangerFlag = 1;
    return record;
}

// Feeds frames and writes down what happens: "3: 1 recognised 7" is person 1 in frame 3.
class Story {
public:
    Story& frames(int count, const std::vector<VDFACEINFOEX>& faces) {
        for (int i = 0; i < count; ++i) {
            ++frame_;
            write(events_.next({frame_, 0}, faces));
        }
        return *this;
    }

    std::vector<std::string> end() {
        write(events_.finish());
        return lines_;
    }

    const TrackEvents& events() const { return events_; }

private:
    void write(const std::vector<TrackEvent>& events) {
        const char* const names[] = {"appeared", "recognised", "stranger", "left"};
        for (const TrackEvent& event : events) {
            std::string line = std::to_string(event.moment.frame) + ": " + std::to_string(event.person) + ' ' +
                               names[static_cast<int>(event.kind)];
            if (event.kind == TrackEvent::Kind::Recognised)
                line += ' ' + std::to_string(event.face.searchId);
            lines_.push_back(line);
        }
    }

    TrackEvents events_{grace};
    std::int64_t frame_ = 0;
    std::vector<std::string> lines_;
};

using Lines = std::vector<std::string>;

TEST(TrackEvents, EachHappensOnce) {
    EXPECT_EQ(
        Story()
            .frames(3, {face(0, 0)})
            .frames(5, {known(face(0, 10), 7), unknown(face(1, 300))})
            .frames(9, {unknown(face(1, 310))})
            .end(),
        (Lines{"3: 1 appeared", "4: 1 recognised 7", "4: 2 appeared", "4: 2 stranger", "8: 1 left", "17: 2 left"}));
}

TEST(TrackEvents, AStrangerCanTurnOutToBeKnown) {
    EXPECT_EQ(Story().frames(3, {unknown(face(0, 0))}).frames(2, {known(unknown(face(0, 0)), 7)}).end(),
              (Lines{"1: 1 appeared", "1: 1 stranger", "4: 1 recognised 7", "5: 1 left"}));
}

TEST(TrackEvents, AGlimpseIsNobody) {
    EXPECT_EQ(Story().frames(2, {face(0, 0)}).frames(9, {}).end(), Lines{});
}

struct Return {
    const char* name;
    std::vector<VDFACEINFOEX> before;
    int missed;
    std::vector<VDFACEINFOEX> after;
    Lines story;
};

void PrintTo(const Return& one, std::ostream* out) {
    *out << one.name;
}

class TrackEventsAfterALoss : public testing::TestWithParam<Return> {};

// Faces for five frames, none for some, then faces for five frames again.
TEST_P(TrackEventsAfterALoss, TellWhoCameBack) {
    const Return& one = GetParam();
    EXPECT_EQ(Story().frames(5, one.before).frames(one.missed, {}).frames(5, one.after).end(), one.story);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, TrackEventsAfterALoss,
    testing::Values(
        Return{"by_place", {face(0, 0)}, grace, {face(1, 20)}, {"3: 1 appeared", "14: 1 left"}},
        Return{"too_late",
               {face(0, 0)},
               grace + 1,
               {face(1, 20)},
               {"3: 1 appeared", "5: 1 left", "13: 2 appeared", "15: 2 left"}},
        Return{"elsewhere_without_verdict",
               {face(0, 0)},
               1,
               {face(1, 200)},
               // The newcomer waits until the lost one is given up.
               {"3: 1 appeared", "5: 1 left", "10: 2 appeared", "11: 2 left"}},
        Return{"elsewhere_by_name",
               {known(face(0, 0), 7)},
               2,
               {known(face(1, 200), 7)},
               {"1: 1 appeared", "1: 1 recognised 7", "12: 1 left"}},
        Return{"elsewhere_another_name",
               {known(face(0, 0), 7)},
               2,
               {known(face(1, 200), 8)},
               {"1: 1 appeared", "1: 1 recognised 7", "8: 2 appeared", "8: 2 recognised 8", "5: 1 left", "12: 2 left"}},
        Return{"same_place_another_name",
               {known(face(0, 0), 7)},
               1,
               {known(face(1, 0), 8)},
               {"1: 1 appeared", "1: 1 recognised 7", "7: 1 left", "7: 2 appeared", "7: 2 recognised 8", "11: 2 left"}},
        Return{"same_place_a_stranger",
               {known(face(0, 0), 7)},
               1,
               {unknown(face(1, 0))},
               {"1: 1 appeared", "1: 1 recognised 7", "7: 1 left", "7: 2 appeared", "7: 2 stranger", "11: 2 left"}},
        Return{"a_stranger_elsewhere",
               {unknown(face(0, 0))},
               2,
               {unknown(face(1, 200))},
               {"1: 1 appeared", "1: 1 stranger", "12: 1 left"}},
        Return{"two_by_place",
               {known(face(0, 0), 7), unknown(face(1, 200))},
               1,
               {unknown(face(2, 190)), known(face(3, 10), 7)},
               {"1: 1 appeared", "1: 1 recognised 7", "1: 2 appeared", "1: 2 stranger", "11: 1 left", "11: 2 left"}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(TrackEvents, SayWhoEachFaceIs) {
    Story story;
    story.frames(3, {unknown(face(0, 300)), known(face(1, 0), 7), face(2, 600)});
    const TrackedPerson stranger = story.events().personOf(0);
    const TrackedPerson recognised = story.events().personOf(1);
    EXPECT_TRUE(stranger.stranger);
    EXPECT_EQ(stranger.searchId, -1);
    EXPECT_EQ(recognised.searchId, 7);
    EXPECT_FALSE(recognised.stranger);
    EXPECT_EQ(story.events().personOf(2).person, 3);
    EXPECT_EQ(story.events().personOf(3).person, 0);
}

const auto never = [] { return false; };

Frame numbered(std::int64_t number) {
    Frame frame;
    frame.moment.frame = number;
    return frame;
}

TEST(LatestFrame, DropsWhatNobodyTookInTime) {
    LatestFrame latest;
    for (const int number : {1, 2, 3})
        latest.put(numbered(number));
    Frame frame;
    ASSERT_TRUE(latest.take(frame, never));
    EXPECT_EQ(frame.moment.frame, 3);
    EXPECT_EQ(latest.dropped(), 2);
    latest.put(numbered(4));
    latest.close();
    EXPECT_TRUE(latest.take(frame, never)); // what came before the end is not lost
    EXPECT_EQ(frame.moment.frame, 4);
    EXPECT_FALSE(latest.take(frame, never));
    EXPECT_EQ(latest.dropped(), 2);
}

TEST(LatestFrame, WakesWhoWaits) {
    LatestFrame latest;
    std::thread camera([&latest] {
        for (int number = 1; number <= 1000; ++number)
            latest.put(numbered(number));
        latest.close(std::make_exception_ptr(std::runtime_error("unplugged")));
    });
    Frame frame;
    std::int64_t taken = 0;
    std::int64_t last = 0;
    try {
        while (latest.take(frame, never)) {
            EXPECT_GT(frame.moment.frame, last);
            last = frame.moment.frame;
            ++taken;
        }
        ADD_FAILURE() << "the failure is lost";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "unplugged");
    }
    camera.join();
    EXPECT_EQ(last, 1000);
    EXPECT_EQ(taken + latest.dropped(), 1000);
    LatestFrame silent;
    EXPECT_FALSE(silent.take(frame, [] { return true; }));
}

} // namespace
