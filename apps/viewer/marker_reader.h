#pragma once

#include <QString>
#include <QStringList>
#include <osg/Group>
#include <osg/Vec3f>
#include <utility>
#include <vector>

// One glued target as the marker file gives it; code -1 for a plain two-ring target.
struct MarkerEntry {
    osg::Vec3f position;
    osg::Vec3f normal;
    float radius = 0.0f;
    int code = -1;
};

struct MarkerFile {
    std::vector<MarkerEntry> markers;
    // One line per skipped line, "FILE:LINE: reason"; or the reason the file can't be read.
    QStringList problems;
    bool readable = false;
};

// A text file of targets, one a line: x y z nx ny nz radius [code]. Blank lines and lines
// starting with '#' are skipped; a bad line is reported by number and skipped.
MarkerFile readMarkerFile(const QString& path);

// The arcs of a coded target: bit i of the code (0..4095) lights the arc from 30 i to 30 (i + 1)
// degrees; neighbouring lit bits make one arc.
std::vector<std::pair<float, float>> codeArcs(int code);

// The targets placed in the scene: discs on their normals, coded ones with their number.
osg::ref_ptr<osg::Group> buildMarkers(const std::vector<MarkerEntry>& markers);
