#pragma once

#include <osg/Node>

// A torus with per-vertex colours, lit by the mesh shading model: a scene that needs no file.
osg::Node* createBuiltinMesh(int rings = 96, int sides = 48);
