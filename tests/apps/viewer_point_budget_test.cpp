// The viewer's --point-budget: what it accepts and what the status line shows.
#include "viewer_point_budget.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

using Vorna::Orvane::IncrePointGeometryApple;

TEST(ViewerPointBudget, ACountSetsTheBudgetAndTheStatusShowsDrawnOfTotal)
{
    osg::ref_ptr<IncrePointGeometryApple> cloud = new IncrePointGeometryApple(false, false);
    ViewerPointBudget budget(cloud.get());
    EXPECT_TRUE(budget.text().isEmpty()) << "no budget, nothing to show";
    ASSERT_TRUE(budget.apply("1000"));
    EXPECT_EQ(cloud->pointBudget(), 1000u);
    cloud->setWholeSize(5000);
    // Nothing drawn yet: no frame has run.
    EXPECT_EQ(budget.text(), QString("drawn 0 / 5000 points (budget 1000)"));
    ASSERT_TRUE(budget.apply("0"));
    EXPECT_EQ(cloud->pointBudget(), 0u);
    EXPECT_TRUE(budget.text().isEmpty());
}

TEST(ViewerPointBudget, WhatIsNotACountIsRefusedAndChangesNothing)
{
    osg::ref_ptr<IncrePointGeometryApple> cloud = new IncrePointGeometryApple(false, false);
    ViewerPointBudget budget(cloud.get());
    ASSERT_TRUE(budget.apply("250"));
    for (const char* bad : {"", "many", "-5", "1e6", "12x"})
        EXPECT_FALSE(budget.apply(bad)) << bad;
    EXPECT_EQ(cloud->pointBudget(), 250u);
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
