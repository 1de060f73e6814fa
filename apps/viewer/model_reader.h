#pragma once

#include <QString>
#include <osg/Node>

// What the viewer opens: meshes and point clouds in the formats scanning users have.
struct LoadedModel {
    osg::ref_ptr<osg::Node> node;
    // Empty on success; otherwise what went wrong, for the user.
    QString error;
    size_t points = 0;
};

// PLY (with or without faces), OBJ and STL through OpenSceneGraph's readers; XYZ, ASC, TXT and
// PTS text point lists (x y z, optional normal, optional colour) through our own.
LoadedModel loadModel(const QString& path);
// A text point list: each line x y z [nx ny nz] [r g b], colours in 0..1 or 0..255.
LoadedModel readPointList(const QString& path);
