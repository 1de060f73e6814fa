#pragma once

#include <QObject>
#include <osg/Camera>
#include <osg/Image>
#include <osgGA/GUIEventHandler>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

// Tells the space-mouse manager which view the pointer works in. Render thread; the notice
// travels queued to the connected object's thread.
class WatchActiveEH : public QObject, public osgGA::GUIEventHandler
{
    Q_OBJECT
public:
    void addView(osgViewer::View* view) { m_view = view; }
    void addConnectObj(QObject* object) { m_connectObject = object; }
    // Never consumes the event.
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;

private:
    QObject* m_connectObject = nullptr;
    osgViewer::View* m_view = nullptr;
};

// Reads the depth of a square around the screen centre after each draw of its camera, when
// asked to. Render thread.
class ScreenCenterPostDrawCallback : public osg::Camera::DrawCallback
{
public:
    explicit ScreenCenterPostDrawCallback(osg::Camera* camera) : m_pCamera(camera) {}
    void needReadPixels(bool need) { m_needReadPixels = need; }
    const osg::Image* depthImage() const { return m_depth.get(); }
    void operator()(osg::RenderInfo& renderInfo) const override;

private:
    osg::Camera* m_pCamera;
    osg::ref_ptr<osg::Image> m_depth = new osg::Image;
    bool m_needReadPixels = false;
};

} // namespace Orvane
} // namespace Vorna
