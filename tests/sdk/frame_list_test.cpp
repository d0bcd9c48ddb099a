// The frame list: order, count, and groups.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "mainwork/qm_workers.h"
#include "sdk/video/frame.h"

namespace {

qm_dbframe frame(sim::FrameKind kind, uint8_t channel, uint32_t number) {
    qm_dbframe f;
    f.info.kind = kind;
    f.info.channel = channel;
    f.info.number = number;
    return f;
}

std::vector<uint32_t> numbers_of(qm_dbframe* chain) {
    std::vector<uint32_t> numbers;
    for (; chain; chain = chain->next) numbers.push_back(chain->info.number);
    return numbers;
}

constexpr auto IDR = sim::FrameKind::idr;
constexpr auto P = sim::FrameKind::p;
constexpr auto AUDIO = sim::FrameKind::audio;

TEST(FrameList, GivesTheRecordsBackInOrder) {
    qm_list<qm_dbframe> list;
    EXPECT_EQ(list.count(), 0);
    EXPECT_EQ(list.pop(), nullptr);
    qm_dbframe a = frame(IDR, 0, 1), b = frame(P, 0, 2);
    list.push(&a);
    list.push(&b);
    EXPECT_EQ(list.count(), 2);
    EXPECT_EQ(list.pop(), &a);
    EXPECT_EQ(list.pop(), &b);
    EXPECT_EQ(list.pop(), nullptr);
    list.push(&a);
    EXPECT_EQ(list.pop(), &a);
}

TEST(FrameList, TakesTheOldestGroupOutFromBetweenTheOthers) {
    qm_list<qm_dbframe> list;
    qm_dbframe frames[] = {frame(IDR, 0, 1), frame(IDR, 1, 2), frame(P, 0, 3),   frame(AUDIO, 0, 4),
                           frame(P, 1, 5),   frame(P, 0, 6),   frame(IDR, 0, 7), frame(P, 0, 8)};
    for (auto& f : frames) list.push(&f);
    bool more = false;
    EXPECT_EQ(numbers_of(list.take_group(&more)), (std::vector<uint32_t>{1, 3, 6}));
    EXPECT_TRUE(more);
    EXPECT_EQ(list.count(), 5);
    EXPECT_EQ(numbers_of(list.take_group(&more)), (std::vector<uint32_t>{2, 5}));
    EXPECT_FALSE(more);
    EXPECT_EQ(numbers_of(list.take_group(&more)), (std::vector<uint32_t>{4}));
    EXPECT_EQ(numbers_of(list.take_group(&more)), (std::vector<uint32_t>{7, 8}));
    EXPECT_FALSE(more);
    EXPECT_EQ(list.take_group(&more), nullptr);
    EXPECT_EQ(list.count(), 0);
    list.push(&frames[0]);  // the end was kept right
    EXPECT_EQ(list.pop(), &frames[0]);
}

TEST(FrameList, IsSafeBetweenThreads) {
    qm_list<qm_dbframe> list;
    std::vector<qm_dbframe> frames(10'000);
    std::thread producer([&] {
        for (auto& f : frames) list.push(&f);
    });
    size_t next = 0;
    while (next < frames.size()) {
        const qm_dbframe* f = list.pop();
        if (!f) continue;
        EXPECT_EQ(f, &frames[next]);
        ++next;
    }
    producer.join();
    EXPECT_EQ(list.count(), 0);
}

}  // namespace
