#include "undo_history.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

// A value changed by steps, as the viewer's selections change point states.
struct Counter {
    UndoHistory history;
    std::vector<int> values{0};

    void set(int next)
    {
        const int before = values.back();
        values.push_back(next);
        history.push(
            QString("set %1").arg(next), [this, before] { values.push_back(before); },
            [this, next] { values.push_back(next); });
    }
    int value() const { return values.back(); }
};

TEST(UndoHistory, UndoesAndRedoesInOrderAcrossTwentyFiveSteps)
{
    Counter c;
    for (int i = 1; i <= 25; ++i)
        c.set(i);
    for (int i = 24; i >= 0; --i) {
        ASSERT_TRUE(c.history.undo());
        EXPECT_EQ(c.value(), i);
    }
    EXPECT_FALSE(c.history.undo());
    for (int i = 1; i <= 25; ++i) {
        ASSERT_TRUE(c.history.redo());
        EXPECT_EQ(c.value(), i);
    }
    EXPECT_FALSE(c.history.redo());
}

TEST(UndoHistory, NewStepAfterUndoForgetsWhatCouldBeRedone)
{
    Counter c;
    c.set(1);
    c.set(2);
    c.history.undo();
    c.set(7);
    EXPECT_EQ(c.history.redoCount(), 0u);
    EXPECT_FALSE(c.history.redo());
    c.history.undo();
    EXPECT_EQ(c.value(), 1);
}

TEST(UndoHistory, KeepsOnlyItsDepthOfSteps)
{
    UndoHistory history(20);
    int undone = 0;
    for (int i = 0; i < 30; ++i)
        history.push(
            "step", [&undone] { ++undone; }, [] {});
    EXPECT_EQ(history.undoCount(), 20u);
    while (history.undo()) {
    }
    EXPECT_EQ(undone, 20);
}

} // namespace
