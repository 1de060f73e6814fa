#include "canvas3d_view.h"

#include "customize_manipulator.h"
#include "orvane_singleton.h"
#include "post_draw_callback.h"

#include <osg/Camera>
#include <osg/NodeVisitor>

namespace Vorna {
namespace Orvane {

namespace {

class UpdateViewportUniformCallback : public osg::UniformCallback
{
public:
    void operator()(osg::Uniform* uniform, osg::NodeVisitor* nv) override
    {
        osg::Vec4f value;
        const osg::NodePath& path = nv->getNodePath();
        for (auto it = path.rbegin(); it != path.rend(); ++it) {
            auto* camera = dynamic_cast<osg::Camera*>(*it);
            if (camera && camera->getViewport()) {
                const osg::Viewport* vp = camera->getViewport();
                value.set(vp->x(), vp->y(), vp->width(), vp->height());
                break;
            }
        }
        if (value != m_last) {
            uniform->set(value);
            m_last = value;
        }
    }

private:
    osg::Vec4f m_last{0.0f, 0.0f, 0.0f, 0.0f};
};

osg::Group* makeGroup(const char* name)
{
    auto* group = new osg::Group;
    group->setName(name);
    return group;
}

} // namespace

osgViewer::View* ViewMgr::createView(osg::GraphicsContext* gc, osg::Viewport* viewport)
{
    auto* view = new osgViewer::View;
    // No default light or material: they raise GL errors in core contexts and shading is ours.
    view->setLightingMode(osg::View::NO_LIGHT);

    auto* manipulator = new CustomizeManipulator(5);
    manipulator->setOSGViewer(view);
    manipulator->setAllowThrow(false);
    view->setCameraManipulator(manipulator, true);
    // The application hears camera changes through the façade, on the façade's thread.
    OrvaneSingleton* facade = OrvaneSingleton::instance();
    QObject::connect(manipulator, &CustomizeManipulator::rotated, facade,
                     &OrvaneSingleton::cameraRotated);
    QObject::connect(manipulator, &CustomizeManipulator::moved, facade,
                     &OrvaneSingleton::cameraMoved);
    QObject::connect(manipulator, &CustomizeManipulator::scaled, facade,
                     &OrvaneSingleton::cameraScaled);

    osg::Camera* camera = view->getCamera();
    camera->setViewport(viewport);
    const double aspect =
        viewport && viewport->height() > 0 ? viewport->width() / viewport->height() : 1.0;
    camera->setProjectionMatrixAsPerspective(manipulator->getPerspectiveFov(), aspect, 0.1,
                                             10000.0);
    camera->setClearDepth(1.0);
    camera->setClearColor(osg::Vec4(0.0f, 0.0f, 0.0f, 0.0f));
    camera->setClearStencil(0);
    camera->setClearMask(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    camera->setGraphicsContext(gc);
    camera->addPostDrawCallback(new PostDrawCallBack);

    const osg::Vec4f vp =
        viewport ? osg::Vec4f(viewport->x(), viewport->y(), viewport->width(), viewport->height())
                 : osg::Vec4f();
    camera->getOrCreateStateSet()->addUniform(createViewportUniform(vp), osg::StateAttribute::ON);

    osg::ref_ptr<ViewInfo> info = new ViewInfo;
    view->setSceneData(createSceneData(info.get()));
    view->setUserData(info.get());
    return view;
}

osg::Group* ViewMgr::createSceneData(ViewInfo* info)
{
    osg::Group* root = makeGroup("root");
    osg::StateSet* ss = root->getOrCreateStateSet();
    ss->addUniform(new osg::Uniform("pixel", 1920.0f));
    ss->setMode(GL_PROGRAM_POINT_SIZE, osg::StateAttribute::ON);
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);

    osg::Group* model = makeGroup("model");
    osg::Group* other = makeGroup("other");
    osg::Group* transModel = makeGroup("transparent model");
    root->addChild(model);
    root->addChild(other);
    root->addChild(transModel);

    info->root = root;
    info->model = model;
    info->other = other;
    info->transModel = transModel;
    return root;
}

osg::Uniform* ViewMgr::createViewportUniform(const osg::Vec4f& viewport)
{
    auto* uniform = new osg::Uniform("viewport", viewport);
    uniform->setUpdateCallback(new UpdateViewportUniformCallback);
    return uniform;
}

ViewInfo* ViewMgr::getViewInfo(osgViewer::View* view)
{
    return ViewInfo::of(view);
}

bool ViewMgr::isCreateBy(osgViewer::View* view)
{
    return getViewInfo(view) != nullptr;
}

osg::Group* ViewMgr::getRoot(osgViewer::View* view)
{
    ViewInfo* info = getViewInfo(view);
    return info ? info->root : nullptr;
}

osg::Group* ViewMgr::getModel(osgViewer::View* view)
{
    ViewInfo* info = getViewInfo(view);
    return info ? info->model : nullptr;
}

osg::Group* ViewMgr::getTransModel(osgViewer::View* view)
{
    ViewInfo* info = getViewInfo(view);
    return info ? info->transModel : nullptr;
}

osg::Group* ViewMgr::getOther(osgViewer::View* view)
{
    ViewInfo* info = getViewInfo(view);
    return info ? info->other : nullptr;
}

} // namespace Orvane
} // namespace Vorna
