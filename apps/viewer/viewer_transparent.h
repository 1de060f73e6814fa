#pragma once

#include <osg/Group>
#include <osg/ref_ptr>
#include <osgGA/GUIEventHandler>
#include <vector>

// The viewer's see-through key, on the render thread: T moves the loaded meshes into the view's
// transparent model group and turns the transparency rig on, or puts them back and turns it
// off; [ and ] make them less or more opaque, by tenths between 0.1 and 0.9.
class ViewerTransparency : public osgGA::GUIEventHandler
{
public:
    explicit ViewerTransparency(float opacity = 0.5f);
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;

    bool seeThrough() const { return m_on; }
    float opacity() const { return m_opacity; }

private:
    float m_opacity;
    bool m_on = false;
    // Carries the first-pass program and the opacity over the moved meshes.
    osg::ref_ptr<osg::Group> m_wrapper;
};
