#pragma once

#include <osg/Camera>

// Post-draw hooks that every view camera carries; the manipulator finds them by type in the
// nested callback chain. Render thread.

class ReadMousePosPostDrawCallback : public osg::Camera::DrawCallback
{
public:
    void operator()(osg::RenderInfo&) const override {}
};

class ScreenPostDrawCallback : public osg::Camera::DrawCallback
{
public:
    explicit ScreenPostDrawCallback(osg::Camera* camera) : m_pCamera(camera) {}
    void operator()(osg::RenderInfo&) const override {}

private:
    osg::Camera* m_pCamera;
};

class SelectDepthCallback : public osg::Camera::DrawCallback
{
public:
    void operator()(osg::RenderInfo&) const override {}
};
