#include "view_datum_operation.h"

#include "canvas3d_view.h"
#include "orvane_log.h"
#include "view_datum.h"
#include "view_datum_event_handler.h"

#include <QtGlobal>
#include <algorithm>
#include <cmath>
#include <osg/Geode>
#include <osg/Geometry>
#include <osgGA/EventVisitor>
#include <osgViewer/Renderer>

namespace Vorna {
namespace Orvane {

namespace {

// Keeps a HUD camera fitted to the window: every resize event refits it.
class AutoAdapteHudCameraCallback : public osg::NodeCallback
{
public:
    explicit AutoAdapteHudCameraCallback(int mode) : m_mode(mode) {}

    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        auto* camera = dynamic_cast<osg::Camera*>(node);
        Q_ASSERT(camera != nullptr);
        auto* ev = nv ? nv->asEventVisitor() : nullptr;
        if (camera && ev) {
            for (const osg::ref_ptr<osgGA::Event>& event : ev->getEvents()) {
                const osgGA::GUIEventAdapter* ea = event->asGUIEventAdapter();
                if (ea && ea->getEventType() == osgGA::GUIEventAdapter::RESIZE)
                    CreateHudCameraOperation::updateCameraViewport(
                        camera,
                        osg::Vec4i(ea->getWindowX(), ea->getWindowY(), ea->getWindowWidth(),
                                   ea->getWindowHeight()),
                        m_mode);
            }
        }
        traverse(node, nv);
    }

private:
    int m_mode;
};

} // namespace

CreateHudCameraOperation::CreateHudCameraOperation(const osg::Vec4i& viewport, AdapterMode mode,
                                                   osgViewer::View* view)
    : OperationBase("create hud view"), m_camera(new osg::Camera), m_viewport(viewport),
      m_mode(mode), m_view(view)
{
    m_camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    m_camera->setRenderOrder(osg::Camera::POST_RENDER);
    m_camera->setClearMask(GL_DEPTH_BUFFER_BIT);
    m_camera->setAllowEventFocus(false);
    m_camera->setViewMatrix(osg::Matrixd::identity());
    m_camera->setViewport(viewport.x(), viewport.y(), viewport.z(), viewport.w());
    m_camera->setProjectionMatrixAsOrtho(0.0, viewport.z(), 0.0, viewport.w(), 0.0, 10000.0);
}

void CreateHudCameraOperation::doOperation()
{
    m_camera->setUserValue("qtInitialViewport", m_viewport);
    osgViewer::View* view = m_view ? m_view.get() : m_renderInfo->mainView();
    if (!view || !ViewMgr::getOther(view))
        return;
    const osg::Viewport* vp = view->getCamera()->getViewport();
    if (vp)
        updateCameraViewport(
            m_camera.get(),
            osg::Vec4i(int(vp->x()), int(vp->y()), int(vp->width()), int(vp->height())), m_mode);
    m_camera->addEventCallback(new AutoAdapteHudCameraCallback(m_mode));
    ViewMgr::getOther(view)->addChild(m_camera.get());
}

void CreateHudCameraOperation::updateCameraViewport(osg::Camera* camera, const osg::Vec4i& viewport,
                                                    int mode)
{
    osg::Vec4i initial;
    if (!camera || !camera->getUserValue("qtInitialViewport", initial)) {
        qCCritical(orvane) << "view hasn't initialViewport user value";
        return;
    }
    if (mode != FollowWindow)
        return;
    const osg::Vec4i fitted(0, 0, viewport.z(), viewport.w());
    camera->setViewport(0, 0, fitted.z(), fitted.w());
    updateHudCameraProjectionMatrix(camera, fitted);
}

void CreateHudCameraOperation::updateHudCameraProjectionMatrix(osg::Camera* camera,
                                                               const osg::Vec4i& viewport)
{
    double fovy, aspect, zNear, zFar;
    double left, right, bottom, top;
    if (camera->getProjectionMatrixAsPerspective(fovy, aspect, zNear, zFar)) {
        camera->setProjectionMatrixAsPerspective(
            fovy, double(viewport.z()) / std::max(viewport.w(), 1), zNear, zFar);
    } else if (camera->getProjectionMatrixAsOrtho(left, right, bottom, top, zNear, zFar)) {
        camera->setProjectionMatrixAsOrtho(0.0, viewport.z(), 0.0, viewport.w(), 0.0, 10000.0);
    } else {
        qCCritical(orvane) << "camera matrix neither otho or perspective";
    }
}

ViewDatumOperation::ViewDatumOperation(osgViewer::View* view, bool enable, bool showCube,
                                       bool alignLeft, bool ifResetRotateCenter, float marginX,
                                       float marginY, bool withHome, float size,
                                       const std::string& name)
    : OperationBase(name), m_view(view), m_enable(enable), m_showCube(showCube),
      m_alignLeft(alignLeft), m_ifResetRotateCenter(ifResetRotateCenter), m_marginX(marginX),
      m_marginY(marginY), m_withHome(withHome), m_size(size), m_name(name)
{
}

ViewDatumEventHandler* ViewDatumOperation::getHandler(const osgViewer::View* view)
{
    if (!view)
        return nullptr;
    for (const auto& handler : view->getEventHandlers())
        if (auto* datum = dynamic_cast<ViewDatumEventHandler*>(handler.get()))
            return datum;
    return nullptr;
}

void ViewDatumOperation::doOperation()
{
    osgViewer::View* view = m_view ? m_view.get() : m_renderInfo->mainView();
    osgViewer::CompositeViewer* viewer = m_renderInfo->compViewer();
    if (!view || !viewer)
        return;
    if (getHandler(view) && m_enable)
        return;

    for (unsigned int i = 0; i < viewer->getNumViews(); ++i) {
        osgViewer::View* candidate = viewer->getView(i);
        if (candidate->getName() == "datum" && candidate->getUserData() == view) {
            if (!m_enable) {
                osg::ref_ptr<osgViewer::View> held = candidate;
                viewer->removeView(candidate);
                // Left on the context, its camera would still be drawn.
                held->getCamera()->setGraphicsContext(nullptr);
                auto& handlers = view->getEventHandlers();
                handlers.remove_if([](const osg::ref_ptr<osgGA::EventHandler>& h) {
                    return h->getName() == "ViewDatumHandler";
                });
            }
            break;
        }
    }
    if (!m_enable)
        return;

    osg::Camera* mainCamera = view->getCamera();
    auto* datumView = new osgViewer::View;
    datumView->setLightingMode(osg::View::NO_LIGHT);
    datumView->setCameraManipulator(nullptr, true);
    osg::Camera* camera = datumView->getCamera();
    camera->setClearDepth(1.0);
    camera->setClearMask(GL_DEPTH_BUFFER_BIT);
    camera->setGraphicsContext(mainCamera->getGraphicsContext());
    camera->setAllowEventFocus(false);
    datumView->setUserData(view);
    datumView->setName("datum");

    auto* group = new osg::Group;
    datumView->setSceneData(group);
    const double ratio = m_renderInfo->canvas ? m_renderInfo->canvas->devicePixelRatio() : 1.0;
    osg::ref_ptr<ViewDatum> datum = new ViewDatum(view, m_size, float(ratio));
    datum->setName("viewDatum");
    datum->setViewDatumMargin(m_marginX, m_marginY);
    datum->init(m_showCube, m_alignLeft, m_withHome);
    group->addChild(datum.get());
    const float w = datum->getWidth();
    camera->setViewport(datum->getX(), datum->getY(), w, w);
    // Laid out now, not by its first cull: a one-pixel viewport culls every piece as too small.
    datum->getViewport()->setViewport(datum->getX(), datum->getY(), w, w);
    if (m_withHome && datum->getHomeCamera())
        group->addChild(datum->getHomeCamera());
    viewer->addView(datumView);
    // A new view compiles its scene before its first draw, and osgText draws itself to compile,
    // with the matrices and viewport the main view left: the labels would smear over the whole
    // frame, which this view does not clear. Their GL objects are made on first draw instead.
    if (auto* renderer = dynamic_cast<osgViewer::Renderer*>(camera->getRenderer()))
        renderer->setCompileOnNextDraw(false);

    auto* handler = new ViewDatumEventHandler;
    handler->setName("ViewDatumHandler");
    handler->setCubePlane(datum->getPlanes());
    handler->setViewDatum(datum.get());
    handler->setIfResetRotateCenter(m_ifResetRotateCenter);
    view->addEventHandler(handler);
}

osgViewer::View* ViewDatumOperation::createMacOSTempView(osg::Camera* mainCamera)
{
    auto* view = new osgViewer::View;
    view->setName("macostempview");
    view->setLightingMode(osg::View::NO_LIGHT);
    osg::Camera* camera = view->getCamera();
    camera->setName("macostemocamera");
    if (mainCamera)
        camera->setGraphicsContext(mainCamera->getGraphicsContext());
    camera->setClearColor(osg::Vec4f(0.5f, 0.5f, 0.5f, 1.0f));
    camera->setClearDepth(1.0);
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setRenderOrder(osg::Camera::PRE_RENDER, 0);
    camera->setComputeNearFarMode(osg::CullSettings::COMPUTE_NEAR_FAR_USING_BOUNDING_VOLUMES);
    camera->setAllowEventFocus(false);

    auto* vertices = new osg::Vec3Array;
    vertices->push_back(osg::Vec3f(-1.0f, 0.0f, 0.0f));
    vertices->push_back(osg::Vec3f(1.0f, 0.0f, 0.0f));
    vertices->push_back(osg::Vec3f(0.0f, -1.0f, 0.0f));
    vertices->push_back(osg::Vec3f(0.0f, 1.0f, 0.0f));
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setVertexArray(vertices);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_LINES, 0, 4));
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    geode->getOrCreateStateSet()->setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF);
    view->setSceneData(geode);
    return view;
}

} // namespace Orvane
} // namespace Vorna
