#pragma once

#include <functional>
#include <osg/Camera>
#include <osg/Image>
#include <osg/Vec2f>

namespace Vorna {
namespace Orvane {

// Reads the window depth under the pointer after the camera's draw, when a position was set.
// Render thread; the depth belongs to the frame before the one being handled.
class ReadMousePosPostDrawCallback : public osg::Camera::DrawCallback
{
public:
    void setMousePos(const osg::Vec2f& pos);
    const osg::Vec2f& getMousePos() const { return m_mousePos; }
    // Window depth in [0, 1]; 1.0 (nothing drawn) while no read has happened.
    float getDepth() const;
    // Reads at `pos` after the next draw and then calls `done` on the render thread.
    void setDepthAsynchronous(const osg::Vec2f& pos, std::function<void()> done);
    void operator()(osg::RenderInfo& renderInfo) const override;

private:
    osg::Vec2f m_mousePos;
    osg::ref_ptr<osg::Image> m_depthImage = new osg::Image;
    mutable bool m_needRead = false;
    mutable bool m_asyncPending = false;
    std::function<void()> m_asyncFunc;
};

// Reads the depth of the whole viewport after the camera's draw, once per request: zooming asks
// for it so that the next zoom step finds the surface under the cursor.
class ScreenPostDrawCallback : public osg::Camera::DrawCallback
{
public:
    explicit ScreenPostDrawCallback(osg::Camera* camera) : m_pCamera(camera) {}
    void needReadPixels(bool need) { m_needReadPixels = need; }
    osg::Image* getScreenDepthImage() const { return m_screenDepthImage.get(); }
    void operator()(osg::RenderInfo& renderInfo) const override;

private:
    osg::Camera* m_pCamera;
    mutable bool m_needReadPixels = false;
    osg::ref_ptr<osg::Image> m_screenDepthImage = new osg::Image;
};

// Finds the first callback of type T in a camera's nested post-draw chain.
template <typename T> T* findPostDrawCallback(osg::Camera* camera)
{
    if (!camera)
        return nullptr;
    for (osg::Callback* c = camera->getPostDrawCallback(); c; c = c->getNestedCallback())
        if (auto* found = dynamic_cast<T*>(c))
            return found;
    return nullptr;
}

} // namespace Orvane
} // namespace Vorna
