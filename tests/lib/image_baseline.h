#pragma once

#include <QImage>
#include <QString>
#include <gtest/gtest.h>

namespace OrvaneTest {

// How far an image may stray from its stored baseline: the largest per-channel difference of
// any pixel, and the mean per-channel difference over the image (both 0..255).
struct BaselineTolerance {
    int maxDiff;
    double meanDiff;
};

// Compares `actual` with tests/baselines/<name>.png. On a mismatch, a size change or a missing
// baseline it writes `actual` to <build>/image_actual/<name>.png, for review and for
// scripts/accept_baselines.sh to store.
::testing::AssertionResult matchesBaseline(const QImage& actual, const QString& name,
                                           BaselineTolerance tolerance);

} // namespace OrvaneTest
