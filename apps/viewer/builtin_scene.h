#pragma once

#include <osg/Node>

// A torus with per-vertex colours baked from one directional light: a scene that needs no file.
osg::Node* createBuiltinMesh(int rings = 96, int sides = 48);
