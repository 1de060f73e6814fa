#pragma once

#include "orvane_metatypes.h"

#include <QObject>
#include <QSize>
#include <QVector>
#include <osg/BufferObject>
#include <osg/Camera>
#include <osg/Group>
#include <osg/Texture2D>
#include <osgViewer/View>
#include <string>

class QOpenGLFramebufferObject;

namespace Vorna {
namespace Orvane {

class RenderInfo;

// Moment-based order-independent transparency: a rig drawn in place of a view's scene.
//
//   "transGroup"
//   +- "mboit"             render-to-texture camera, four float layers, follows the view's size
//   |  +- pass group       depth test without depth writes, additive moments
//   |  |  +- transparent model group      first pass: the client's "trans_mesh" programs
//   |  |  +- group > transparent model    second pass: "mboit_pass1"
//   |  +- the view's other nodes          the opaque layer, with their own programs
//   +- "transparent_quad"  composite of both layers over the canvas's framebuffer
//
// Everything here runs on the render thread, inside operations.
class TransparentMgr
{
public:
    // Layers of the rig, in attachment order.
    enum Layer {
        OpaqueColor = 0, // premultiplied colour of the opaque nodes
        Moments14 = 1,   // optical depth times depth to the powers 1 to 4
        Moment0 = 2,     // summed optical depth
        TransColor = 3,  // weighted transparent colour, alpha the summed weights
    };

    // Name of the vec2 uniform with the rig's size in pixels.
    static const std::string s_viewportUniformStr;

    // The rig of the canvas's main view, sized by that view's viewport (by width and height
    // when it has none). Empty, and logged, when `info` has no canvas.
    static RefGroup createTransparentGroup(RenderInfo& info, int width, int height);
    // The same for `view`, whose transparent model group the rig draws.
    static RefGroup createTransparentGroup(RenderInfo& info, int width, int height,
                                           osgViewer::View* view);
    // The "mboit" camera, with its four layers made, attached and listed in `textures`.
    static osg::Camera* createRttCamera(QVector<osg::Texture2D*>& textures, int width, int height);
    // The first child of `group` as a group: the "mboit" camera of a rig.
    static osg::Group* getTransparentNodeGroup(osg::Group* group);

    // Puts the rig of `view` under its root in place of the root's children; false, and nothing
    // changed, when the rig is there already or the view has no scene of ViewMgr's.
    static bool install(RenderInfo& info, osgViewer::View* view);
    // Puts the root's children back as they were before install; false when no rig is there.
    static bool uninstall(osgViewer::View* view);
    // The rig under the view's root, or null.
    static osg::Group* installedRig(osgViewer::View* view);

    // An earlier per-pixel list scheme needed these; the moments need no storage buffers.
    static osg::BufferObject* createOITSSBO(int width, int height);
    static void updateTransparentShaderAndSSBO(osg::Group* group, const QSize& size, int width,
                                               int height);
};

// Binds the canvas's framebuffer after a pass, following it by signal where
// FBOPostDrawCallback looks it up each time. Render thread.
class OITPostDrawCallback : public QObject, public osg::Camera::DrawCallback
{
    Q_OBJECT
public:
    explicit OITPostDrawCallback(QOpenGLFramebufferObject* fbo = nullptr) : m_fbo(fbo) {}
    void operator()(osg::RenderInfo& renderInfo) const override;
    QOpenGLFramebufferObject* fbo() const { return m_fbo; }

public slots:
    void onFBOChanged(QOpenGLFramebufferObject* fbo);

private:
    QOpenGLFramebufferObject* m_fbo = nullptr;
};

} // namespace Orvane
} // namespace Vorna
