#include <veldan/model_store.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

// The storage form of the files that CMakeLists.txt made.

#define EDGE(SIZE)                                                                                                     \
    extern const char VELDAN_V9_0_0_Edge##SIZE##0 [];                                                                  \
    extern const int VELDAN_V9_0_0_Edge##SIZE##_len;                                                                   \
    extern const int VELDAN_V9_0_0_Edge##SIZE##_b64_len;                                                               \
    VELDAN_NETWORK_ACCESSORS(VELDAN_V9_0_0_Edge##SIZE)

EDGE(1);
EDGE(2);
EDGE(3);
EDGE(11518);
EDGE(11519);
EDGE(11520);
EDGE(11521);
EDGE(23040);
EDGE(23041);
extern const char VELDAN_V9_0_0_Edge115211[];
extern const char VELDAN_V9_0_0_Edge230401[];
extern const char VELDAN_V9_0_0_Edge230411[];
extern const char VELDAN_V9_0_0_Edge230412[];

namespace {

struct Edge {
    int size;
    int length;
    int base64Length;
    std::vector<std::string> chunks;
    int (*lengthOf)();
    int (*data)(unsigned char*);
};

#define EDGE_CASE(SIZE, ...)                                                                                           \
    Edge {                                                                                                             \
        SIZE, VELDAN_V9_0_0_Edge##SIZE##_len, VELDAN_V9_0_0_Edge##SIZE##_b64_len, {__VA_ARGS__},                       \
            length_VELDAN_V9_0_0_Edge##SIZE, data_VELDAN_V9_0_0_Edge##SIZE                                             \
    }

std::vector<Edge> edges() {
    return {
        EDGE_CASE(1, VELDAN_V9_0_0_Edge10),
        EDGE_CASE(2, VELDAN_V9_0_0_Edge20),
        EDGE_CASE(3, VELDAN_V9_0_0_Edge30),
        EDGE_CASE(11518, VELDAN_V9_0_0_Edge115180),
        EDGE_CASE(11519, VELDAN_V9_0_0_Edge115190),
        EDGE_CASE(11520, VELDAN_V9_0_0_Edge115200),
        EDGE_CASE(11521, VELDAN_V9_0_0_Edge115210, VELDAN_V9_0_0_Edge115211),
        EDGE_CASE(23040, VELDAN_V9_0_0_Edge230400, VELDAN_V9_0_0_Edge230401),
        EDGE_CASE(23041, VELDAN_V9_0_0_Edge230410, VELDAN_V9_0_0_Edge230411, VELDAN_V9_0_0_Edge230412),
    };
}

TEST(EmbedNetwork, ChunksAndLengths) {
    for (const Edge& edge : edges()) {
        SCOPED_TRACE(edge.size);
        EXPECT_EQ(edge.length, edge.size);
        EXPECT_EQ(edge.base64Length, (edge.size + 2) / 3 * 4);
        std::size_t total = 0;
        for (std::size_t i = 0; i < edge.chunks.size(); ++i) {
            if (i + 1 < edge.chunks.size())
                EXPECT_EQ(edge.chunks[i].size(), 15360U);
            else
                EXPECT_TRUE(!edge.chunks[i].empty() && edge.chunks[i].size() <= 15360U);
            total += edge.chunks[i].size();
        }
        EXPECT_EQ(total, static_cast<std::size_t>(edge.base64Length));
    }
}

TEST(EmbedNetwork, AccessorsGiveTheFile) {
    for (const Edge& edge : edges()) {
        SCOPED_TRACE(edge.size);
        ASSERT_EQ(edge.lengthOf(), edge.size);
        std::string file;
        while (file.size() < static_cast<std::size_t>(edge.size))
            file += "Network file of " + std::to_string(edge.size) + " bytes; ";
        file.resize(static_cast<std::size_t>(edge.size));
        std::string out(file.size() + 1, '~');
        ASSERT_EQ(edge.data(reinterpret_cast<unsigned char*>(out.data())), 0);
        EXPECT_EQ(out, file + '~');
    }
}

} // namespace
