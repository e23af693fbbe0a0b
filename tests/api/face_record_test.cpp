#include <veldan/face_record.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

extern "C" void fillRecordInC(VDFACEINFOEX* face);

namespace {

TEST(FaceRecord, EveryWordIsAtItsPlace) {
    static_assert(std::is_trivial_v<VDFACEINFOEX>);
    VDFACEINFOEX faces[2];
    fillRecordInC(&faces[0]);
    fillRecordInC(&faces[1]);
    ASSERT_EQ(sizeof(faces), 2U * 1048U);
    std::int32_t words[2 * 262];
    std::memcpy(words, faces, sizeof(faces));
    for (int i = 0; i < 2 * 262; ++i)
        ASSERT_EQ(words[i], i % 262);
    EXPECT_EQ(faces[1].keyPointY[119], 244) << "C++ and C disagree";
}

} // namespace
