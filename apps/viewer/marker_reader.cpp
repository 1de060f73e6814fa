#include "marker_reader.h"

#include "markerpoint.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <cmath>
#include <osg/MatrixTransform>

using namespace Vorna::Orvane;

namespace {

constexpr int kMaxCode = 4095;
constexpr float kArcDegrees = 30.0f;

bool parseLine(const QString& line, MarkerEntry& marker, QString& reason)
{
    const QStringList fields = line.split(QRegExp("[\\s,]+"), Qt::SkipEmptyParts);
    if (fields.size() < 7 || fields.size() > 8) {
        reason = QString("expected x y z nx ny nz radius [code], got %1 fields").arg(fields.size());
        return false;
    }
    float v[7];
    for (int i = 0; i < 7; ++i) {
        bool ok = false;
        v[i] = fields[i].toFloat(&ok);
        if (!ok || !std::isfinite(v[i])) {
            reason = QString("field %1 '%2' is not a number").arg(i + 1).arg(fields[i]);
            return false;
        }
    }
    marker.position = osg::Vec3f(v[0], v[1], v[2]);
    marker.normal = osg::Vec3f(v[3], v[4], v[5]);
    marker.radius = v[6];
    if (marker.normal.length() < 1e-6f) {
        reason = "the normal is zero";
        return false;
    }
    marker.normal.normalize();
    if (marker.radius <= 0.0f) {
        reason = QString("radius %1 is not positive").arg(fields[6]);
        return false;
    }
    marker.code = -1;
    if (fields.size() == 8) {
        bool ok = false;
        marker.code = fields[7].toInt(&ok);
        if (!ok || marker.code < 0 || marker.code > kMaxCode) {
            reason =
                QString("code '%1' is not a whole number in 0..%2").arg(fields[7]).arg(kMaxCode);
            return false;
        }
    }
    return true;
}

} // namespace

MarkerFile readMarkerFile(const QString& path)
{
    MarkerFile result;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        result.problems << QString("%1: %2").arg(path, file.errorString());
        return result;
    }
    result.readable = true;
    QTextStream in(&file);
    const QString name = QFileInfo(path).fileName();
    for (int number = 1; !in.atEnd(); ++number) {
        const QString line = in.readLine().trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        MarkerEntry marker;
        QString reason;
        if (parseLine(line, marker, reason))
            result.markers.push_back(marker);
        else
            result.problems << QString("%1:%2: %3").arg(name).arg(number).arg(reason);
    }
    return result;
}

std::vector<std::pair<float, float>> codeArcs(int code)
{
    std::vector<std::pair<float, float>> arcs;
    for (int bit = 0; bit < 12; ++bit) {
        if (!(code & (1 << bit)))
            continue;
        const float start = bit * kArcDegrees, end = (bit + 1) * kArcDegrees;
        if (!arcs.empty() && arcs.back().second == start)
            arcs.back().second = end;
        else
            arcs.emplace_back(start, end);
    }
    return arcs;
}

osg::ref_ptr<osg::Group> buildMarkers(const std::vector<MarkerEntry>& markers)
{
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->setName("markers");
    for (const MarkerEntry& marker : markers) {
        osg::ref_ptr<osg::MatrixTransform> place = new osg::MatrixTransform;
        if (marker.code < 0) {
            // The plain target turns its quad to the normal itself.
            place->setMatrix(osg::Matrix::translate(marker.position));
            MarkerParam param;
            param.normal = marker.normal;
            param.frontExternalColor = osg::Vec4f(0.05f, 0.05f, 0.05f, 1.0f);
            param.backExternalColor = param.frontExternalColor;
            param.radius = osg::Vec2f(marker.radius, marker.radius * 0.5f);
            place->addChild(MarkerPoint::createMarkerPoint(param, true));
        } else {
            // The coded target lies in its local z = 0 plane.
            place->setMatrix(osg::Matrix::rotate(osg::Vec3f(0, 0, 1), marker.normal) *
                             osg::Matrix::translate(marker.position));
            EcodedPointParam param;
            param.radius = marker.radius;
            param.fragments = codeArcs(marker.code);
            param.text = std::to_string(marker.code);
            place->addChild(EcodedPoint::createEcodedPoint(param));
        }
        group->addChild(place);
    }
    return group;
}
