#pragma once

#include <osgGA/GUIEventHandler>

// The viewer's own keys, on the render thread: F fits, 2 to 7 turn to the named directions
// (front, back, left, right, top, bottom), O switches orthographic and perspective, M turns
// the built-in torus between the classic lights and the material model.
class ViewerKeys : public osgGA::GUIEventHandler
{
public:
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;
};
