#include "image_baseline.h"

#include <QDir>
#include <algorithm>
#include <cstdlib>

namespace OrvaneTest {

namespace {

QString writeActual(const QImage& actual, const QString& name)
{
    QDir().mkpath(ORVANE_IMAGE_ACTUAL_DIR);
    const QString path = QString(ORVANE_IMAGE_ACTUAL_DIR) + "/" + name + ".png";
    actual.save(path);
    return path;
}

} // namespace

::testing::AssertionResult matchesBaseline(const QImage& actualIn, const QString& name,
                                           BaselineTolerance tolerance)
{
    const QImage actual = actualIn.convertToFormat(QImage::Format_RGB32);
    const QString baselinePath = QString(ORVANE_BASELINE_DIR) + "/" + name + ".png";
    const QImage baseline = QImage(baselinePath).convertToFormat(QImage::Format_RGB32);
    if (baseline.isNull())
        return ::testing::AssertionFailure()
               << "no baseline " << baselinePath.toStdString() << "; actual image written to "
               << writeActual(actual, name).toStdString();
    if (baseline.size() != actual.size())
        return ::testing::AssertionFailure()
               << "size " << actual.width() << "x" << actual.height() << " against baseline "
               << baseline.width() << "x" << baseline.height() << "; actual image written to "
               << writeActual(actual, name).toStdString();

    int maxDiff = 0;
    double sum = 0.0;
    QPoint worst;
    for (int y = 0; y < actual.height(); ++y) {
        const QRgb* a = reinterpret_cast<const QRgb*>(actual.constScanLine(y));
        const QRgb* b = reinterpret_cast<const QRgb*>(baseline.constScanLine(y));
        for (int x = 0; x < actual.width(); ++x) {
            const int d[3] = {std::abs(qRed(a[x]) - qRed(b[x])),
                              std::abs(qGreen(a[x]) - qGreen(b[x])),
                              std::abs(qBlue(a[x]) - qBlue(b[x]))};
            const int m = std::max({d[0], d[1], d[2]});
            if (m > maxDiff) {
                maxDiff = m;
                worst = QPoint(x, y);
            }
            sum += d[0] + d[1] + d[2];
        }
    }
    const double mean = sum / (3.0 * actual.width() * actual.height());
    if (maxDiff <= tolerance.maxDiff && mean <= tolerance.meanDiff)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << name.toStdString() << ": max difference " << maxDiff << " at (" << worst.x() << ", "
           << worst.y() << ") [allowed " << tolerance.maxDiff << "], mean " << mean << " [allowed "
           << tolerance.meanDiff << "]; actual image written to "
           << writeActual(actual, name).toStdString();
}

} // namespace OrvaneTest
