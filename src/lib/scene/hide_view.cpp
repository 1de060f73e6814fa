#include "hide_view.h"

#include "basic_shapes.h"
#include "fbo_post_draw_callback.h"
#include "render_info.h"

#include <osg/Group>

namespace Vorna {
namespace Orvane {

osg::Texture2D* createColorTexture(int width, int height)
{
    auto* texture = new osg::Texture2D;
    texture->setTextureSize(width, height);
    texture->setInternalFormat(GL_RGBA32F_ARB);
    texture->setSourceFormat(GL_RGBA);
    texture->setSourceType(GL_FLOAT);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    return texture;
}

osg::Camera* createRTTCamera()
{
    constexpr int kSize = 200;
    auto* camera = new osg::Camera;
    camera->setName("MacHideRTTCamera");
    camera->setClearColor(osg::Vec4(0.0f, 0.0f, 0.0f, 0.0f));
    camera->setClearDepth(1.0);
    camera->setClearMask(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setRenderOrder(osg::Camera::POST_RENDER, 0);
    camera->setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    camera->setViewport(0, 0, kSize, kSize);
    camera->setAllowEventFocus(false);
    camera->attach(osg::Camera::COLOR_BUFFER0, createColorTexture(kSize, kSize));
    camera->setViewMatrixAsLookAt(osg::Vec3d(0.0, 0.0, 40.0), osg::Vec3d(), osg::Vec3d(0, 1, 0));
    camera->setProjectionMatrixAsPerspective(45.0, 1.0, 0.001, 100000.0);
    camera->setPostDrawCallback(new FBOPostDrawCallback);
    camera->addChild(createAxisWithArrow(osg::Vec3f(), osg::Vec3f(10.0f, 0.0f, 0.0f),
                                         osg::Vec4f(0.9f, 0.2f, 0.2f, 1.0f)));
    return camera;
}

osgViewer::View* createHideView(RenderInfo* info, osgViewer::View* mainView)
{
    osg::Camera* rtt = createRTTCamera();
    auto* view = new osgViewer::View;
    view->setLightingMode(osg::View::NO_LIGHT);
    view->setCameraManipulator(nullptr, true);
    osg::Camera* camera = view->getCamera();
    camera->setClearDepth(1.0);
    camera->setClearMask(GL_DEPTH_BUFFER_BIT);
    if (info && info->masterCamera())
        camera->setGraphicsContext(info->masterCamera()->getGraphicsContext());
    else if (mainView)
        camera->setGraphicsContext(mainView->getCamera()->getGraphicsContext());
    camera->setAllowEventFocus(false);
    camera->setNodeMask(~0u);
    camera->setViewport(rtt->getViewport());

    auto* group = new osg::Group;
    group->addChild(rtt);
    view->setSceneData(group);
    view->setUserData(mainView);
    view->setName("MacMainHideView");
    return view;
}

} // namespace Orvane
} // namespace Vorna
