#include "problem.hpp"
#include "workers.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using veldan::kit::FaceApi;
using veldan::service::Problem;
using veldan::service::Workers;

constexpr std::chrono::minutes patience{1};

int statusOf(Workers& workers, const Workers::Work& work, std::chrono::milliseconds most = patience) {
    try {
        workers.run(work, most);
        return 200;
    } catch (const Problem& problem) {
        return problem.status();
    }
}

TEST(Workers, GoOnAfterAFailureWithAWorkingInstance) {
    Workers workers(1, 1);
    EXPECT_THROW(workers.run([](FaceApi&) { throw std::runtime_error("in the middle"); }, patience),
                 std::runtime_error);
    EXPECT_THROW(workers.run([](FaceApi&) { throw 5; }, patience), int);
    std::vector<unsigned char> grey(200 * 200 * 3, 128);
    veldan::kit::Photo photo{200, 200, grey};
    std::size_t faces = 1;
    workers.run([&](FaceApi& api) { faces = api.detect(photo).faces.size(); }, patience);
    EXPECT_EQ(faces, 0U);
    EXPECT_EQ(workers.busy(), 0U);
}

// However the threads run, no more than the workers and the queue hold are taken in, and everything taken in is done.
TEST(Workers, TakeInWhatTheQueueHolds) {
    Workers workers(2, 3);
    std::promise<void> gate;
    const std::shared_future<void> open = gate.get_future().share();
    std::atomic<int> done{0};
    std::atomic<int> refused{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < 20; ++i)
        clients.emplace_back([&] {
            const int status = statusOf(workers, [&](FaceApi&) {
                open.wait();
                ++done;
            });
            refused += status == 503 ? 1 : 0;
        });
    while (static_cast<std::size_t>(refused) + workers.waiting() + workers.busy() < 20)
        std::this_thread::yield();
    EXPECT_EQ(refused, 15);
    EXPECT_EQ(statusOf(workers, [](FaceApi&) {}), 503);
    gate.set_value();
    for (std::thread& client : clients)
        client.join();
    EXPECT_EQ(done, 5);
    EXPECT_EQ(refused, 15);
}

TEST(Workers, ForgetWhatNobodyWaitsForAnyMore) {
    Workers workers(1, 5);
    std::promise<void> gate;
    std::promise<void> begun;
    std::thread client([&] {
        workers.run(
            [&](FaceApi&) {
                begun.set_value();
                gate.get_future().wait();
            },
            patience);
    });
    begun.get_future().wait();
    bool ran = false;
    EXPECT_EQ(statusOf(
                  workers, [&](FaceApi&) { ran = true; }, std::chrono::milliseconds(1)),
              503);
    EXPECT_EQ(workers.waiting(), 0U);
    gate.set_value();
    client.join();
    EXPECT_FALSE(ran);
}

} // namespace
