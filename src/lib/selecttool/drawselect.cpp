#include "drawselect.h"

#include "circle_geom_maker.h"
#include "line_geom_maker.h"
#include "maker_geometry.h"
#include "orvane_log.h"
#include "sphere_geom_maker.h"

#include <QGuiApplication>
#include <QWindow>

#include <osg/BlendFunc>
#include <osg/CullFace>
#include <osg/Depth>
#include <osg/Geode>
#include <osgGA/StandardManipulator>
#include <osgViewer/View>

#include <algorithm>
#include <cmath>

namespace Vorna {
namespace Orvane {

namespace {

using GA = osgGA::GUIEventAdapter;

osg::Vec3Array* verticesOf(osg::Geometry* geometry)
{
    return geometry ? dynamic_cast<osg::Vec3Array*>(geometry->getVertexArray()) : nullptr;
}

void modifyLinePoint(osg::Geometry* geometry, unsigned int index, const osg::Vec3f& point)
{
    osg::Vec3Array* vertices = verticesOf(geometry);
    if (!vertices || index >= vertices->size())
        return;
    (*vertices)[index] = point;
    vertices->dirty();
    geometry->dirtyBound();
}

void setTranslation(osg::MatrixTransform* node, const osg::Vec2f& point)
{
    osg::Matrixd m = node->getMatrix();
    m.setTrans(point.x(), point.y(), 0.0);
    node->setMatrix(m);
}

double scaleX(const osg::Matrixd& m)
{
    return osg::Vec3d(m(0, 0), m(0, 1), m(0, 2)).length();
}

// The camera manipulator keeps the press that began a stroke; without a flush it would turn
// the camera by the whole stroke on the next drag.
struct MouseStackAccess : osgGA::StandardManipulator {
    static void flush(osgGA::StandardManipulator* manipulator)
    {
        (manipulator->*(&MouseStackAccess::flushMouseEventStack))();
    }
};

// A disc of 32 segments drawn blended, unit radius, in the overlay plane.
osg::Node* createDisc(const osg::Vec4& color)
{
    osg::Geometry* disc = CircleGeomMaker::createCircleGeometry(osg::Vec3f(), 32);
    osg::Vec4 c = color;
    c.a() = 0.35f;
    CircleGeomMaker::setColor(disc, c);
    osg::StateSet* ss = disc->getOrCreateStateSet();
    ss->setMode(GL_BLEND, osg::StateAttribute::ON);
    ss->setAttributeAndModes(new osg::BlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA));
    ss->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
    disc->setCullingActive(false);
    return disc;
}

void recolorDiscs(const std::vector<osg::ref_ptr<osg::MatrixTransform>>& nodes,
                  const osg::Vec4& color)
{
    osg::Vec4 c = color;
    c.a() = 0.35f;
    for (const auto& node : nodes)
        if (node->getNumChildren())
            CircleGeomMaker::setColor(dynamic_cast<osg::Geometry*>(node->getChild(0)), c);
}

} // namespace

// ---- DrawObject

DrawObject::DrawObject(osg::Group* parentGroup, QObject* parent)
    : QObject(parent), m_parentGroup(parentGroup)
{
}

DrawObject::~DrawObject()
{
    deleteDrawNodeInScene();
}

osg::Vec3Array* DrawObject::getVertexArray()
{
    return nullptr;
}

osg::Matrixd DrawObject::getFirstMatrix()
{
    return m_drawNodes.empty() ? osg::Matrixd() : m_drawNodes.front()->getMatrix();
}

void DrawObject::getAllMatrix(std::vector<osg::Matrixd>& matrices)
{
    matrices.clear();
    for (const auto& node : m_drawNodes)
        matrices.push_back(node->getMatrix());
}

void DrawObject::enterDraw(const osg::Vec2f& point)
{
    enterImplementation(point);
    emit entered();
}

void DrawObject::exitDraw()
{
    emit exited();
    exitImplementation();
    m_isDrawing = false;
}

bool DrawObject::startDraw(const osg::Vec2f& point)
{
    m_isDrawing = true;
    startImplementation(point);
    emit started();
    return true;
}

bool DrawObject::updateDraw(const osg::Vec2f& point)
{
    updateImplementation(point);
    emit updated();
    return true;
}

bool DrawObject::cancelDraw()
{
    m_isDrawing = false;
    cancelImplementation();
    emit canceled();
    return true;
}

bool DrawObject::finishDraw()
{
    // The host reads the figure in its slot, so the signal goes out before it is taken down.
    emit finished();
    m_isDrawing = false;
    finishImplementation();
    return true;
}

bool DrawObject::doubleClicked(GA::MouseButtonMask, const osg::Vec2f&)
{
    return false;
}

bool DrawObject::move(const osg::Vec2f&)
{
    emit moved();
    return false;
}

void DrawObject::addDrawNodeToScene()
{
    osg::ref_ptr<osg::MatrixTransform> node = new osg::MatrixTransform;
    node->setName("DrawObject");
    if (osg::Node* figure = createDrawNode())
        node->addChild(figure);
    m_drawNodes.push_back(node);
    if (m_parentGroup)
        m_parentGroup->addChild(node);
}

void DrawObject::deleteDrawNodeInScene()
{
    if (m_parentGroup)
        for (const auto& node : m_drawNodes)
            m_parentGroup->removeChild(node.get());
    m_drawNodes.clear();
}

void DrawObject::setUseEraseColor(bool use)
{
    if (use == m_useEraseColor)
        return;
    m_useEraseColor = use;
    switchColor();
}

float DrawObject::devicePixelRatio()
{
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        return 1.0f;
    const QWindowList windows = QGuiApplication::topLevelWindows();
    return windows.isEmpty() ? 1.0f : static_cast<float>(windows.first()->devicePixelRatio());
}

// ---- line figures

osg::Geometry* DrawLineFigure::lineGeometry() const
{
    if (m_drawNodes.empty() || !m_drawNodes.front()->getNumChildren())
        return nullptr;
    return dynamic_cast<osg::Geometry*>(m_drawNodes.front()->getChild(0));
}

osg::Vec3Array* DrawLineFigure::getVertexArray()
{
    return verticesOf(lineGeometry());
}

osg::Node* DrawLineFigure::createDrawNode()
{
    osg::Geometry* line = LineGeomMaker::createLineGeometry(true);
    LineGeomMaker::setLoop(line, true);
    LineGeomMaker::setWidth(line, 2.0f);
    MakerGeometry::setOverallColor(line, currentColor());
    line->setCullingActive(false);
    line->getOrCreateStateSet()->setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF);
    return line;
}

void DrawLineFigure::ensureFigure()
{
    if (m_drawNodes.empty())
        addDrawNodeToScene();
}

void DrawLineFigure::switchColor()
{
    if (osg::Geometry* line = lineGeometry())
        MakerGeometry::setOverallColor(line, currentColor());
}

// ---- DrawPoint

void DrawPoint::startImplementation(const osg::Vec2f& point)
{
    m_startPoint = point;
    m_lastPoint = point;
}

bool DrawPoint::finishDraw()
{
    m_isDrawing = false;
    if ((m_lastPoint - m_startPoint).length() < 4.0f)
        emit finished();
    else
        emit canceled();
    return true;
}

// ---- DrawRectangle

void DrawRectangle::startImplementation(const osg::Vec2f& point)
{
    deleteDrawNodeInScene();
    addDrawNodeToScene();
    m_firstCorner = point;
    osg::Geometry* line = lineGeometry();
    const float x = point.x();
    const float y = point.y();
    LineGeomMaker::addLinePoint(line, osg::Vec3f(x, y, 0.0f));
    LineGeomMaker::addLinePoint(line, osg::Vec3f(x, y - 2.0f, 0.0f));
    LineGeomMaker::addLinePoint(line, osg::Vec3f(x + 2.0f, y - 2.0f, 0.0f));
    LineGeomMaker::addLinePoint(line, osg::Vec3f(x + 2.0f, y, 0.0f));
}

void DrawRectangle::updateImplementation(const osg::Vec2f& point)
{
    osg::Geometry* line = lineGeometry();
    const float x = m_firstCorner.x();
    const float y = m_firstCorner.y();
    modifyLinePoint(line, 0, osg::Vec3f(x, y, 0.0f));
    modifyLinePoint(line, 1, osg::Vec3f(x, point.y(), 0.0f));
    modifyLinePoint(line, 2, osg::Vec3f(point.x(), point.y(), 0.0f));
    modifyLinePoint(line, 3, osg::Vec3f(point.x(), y, 0.0f));
}

// ---- DrawLasso

void DrawLasso::startImplementation(const osg::Vec2f& point)
{
    deleteDrawNodeInScene();
    addDrawNodeToScene();
    LineGeomMaker::addLinePoint(lineGeometry(), osg::Vec3f(point, 0.0f));
}

void DrawLasso::updateImplementation(const osg::Vec2f& point)
{
    ensureFigure();
    LineGeomMaker::addLinePoint(lineGeometry(), osg::Vec3f(point, 0.0f));
}

// ---- DrawMultiSegment

int DrawMultiSegment::pointCount()
{
    osg::Vec3Array* vertices = getVertexArray();
    return vertices ? static_cast<int>(vertices->size()) : 0;
}

bool DrawMultiSegment::startDraw(const osg::Vec2f& point)
{
    if (pointCount() > 0) {
        startImplementation(point);
        return true;
    }
    m_isDrawing = true;
    startImplementation(point);
    emit started();
    return true;
}

void DrawMultiSegment::startImplementation(const osg::Vec2f& point)
{
    ensureFigure();
    // The second point is the rubber band that follows the mouse to the next corner.
    LineGeomMaker::addLinePoint(lineGeometry(), osg::Vec3f(point, 0.0f));
    LineGeomMaker::addLinePoint(lineGeometry(), osg::Vec3f(point, 0.0f));
}

void DrawMultiSegment::updateImplementation(const osg::Vec2f& point)
{
    const int n = pointCount();
    if (n > 0)
        modifyLinePoint(lineGeometry(), static_cast<unsigned int>(n - 1), osg::Vec3f(point, 0.0f));
}

bool DrawMultiSegment::move(const osg::Vec2f& point)
{
    if (pointCount() > 1)
        updateImplementation(point);
    emit moved();
    return false;
}

bool DrawMultiSegment::doubleClicked(GA::MouseButtonMask button, const osg::Vec2f&)
{
    if (button != GA::LEFT_MOUSE_BUTTON || pointCount() == 0)
        return false;
    if (pointCount() > 2)
        m_finishRequested = true;
    return true;
}

bool DrawMultiSegment::finishDraw()
{
    if (!m_finishRequested)
        return false;
    emit finished();
    m_finishRequested = false;
    m_isDrawing = false;
    finishImplementation();
    return true;
}

void DrawMultiSegment::cancelImplementation()
{
    m_finishRequested = false;
    deleteDrawNodeInScene();
}

// ---- DrawBrush

osg::Matrixd& DrawBrush::lastUsedMatrix()
{
    // Shared by every brush: the next brush starts at the size the last one ended with.
    static osg::Matrixd matrix =
        osg::Matrixd::scale(50.0 * devicePixelRatio(), 50.0 * devicePixelRatio(), 1.0);
    return matrix;
}

DrawBrush::DrawBrush(osg::Group* parentGroup, QObject* parent)
    : DrawObject(parentGroup, parent), m_pixelRatio(devicePixelRatio())
{
}

osg::Node* DrawBrush::createDrawNode()
{
    return createDisc(currentColor());
}

float DrawBrush::getRadius() const
{
    const osg::Matrixd& m =
        m_drawNodes.empty() ? lastUsedMatrix() : m_drawNodes.back()->getMatrix();
    return static_cast<float>(scaleX(m)) / m_pixelRatio;
}

bool DrawBrush::setRadius(float radius)
{
    if (radius < kMinRadius || radius > kMaxRadius)
        return false;
    const double r = radius * m_pixelRatio;
    osg::Matrixd& last = lastUsedMatrix();
    if (!m_drawNodes.empty()) {
        osg::MatrixTransform* node = m_drawNodes.back().get();
        const osg::Vec3d t = node->getMatrix().getTrans();
        node->setMatrix(osg::Matrixd::scale(r, r, 1.0) * osg::Matrixd::translate(t));
        last = node->getMatrix();
    } else {
        last = osg::Matrixd::scale(r, r, 1.0) * osg::Matrixd::translate(last.getTrans());
    }
    emit radiusChanged();
    return true;
}

bool DrawBrush::scrowUp()
{
    if (!(m_modKeyMask & kAcceptedModKeyMask))
        return false;
    setRadius(getRadius() + kScrowStep);
    emit scrowed();
    return true;
}

bool DrawBrush::scrowDown()
{
    if (!(m_modKeyMask & kAcceptedModKeyMask))
        return false;
    setRadius(getRadius() - kScrowStep);
    emit scrowed();
    return true;
}

void DrawBrush::place(const osg::Vec2f& point)
{
    if (m_drawNodes.empty())
        return;
    setTranslation(m_drawNodes.back().get(), point);
    lastUsedMatrix() = m_drawNodes.back()->getMatrix();
}

void DrawBrush::enterImplementation(const osg::Vec2f& point)
{
    deleteDrawNodeInScene();
    addDrawNodeToScene();
    m_drawNodes.back()->setMatrix(lastUsedMatrix());
    place(point);
}

bool DrawBrush::move(const osg::Vec2f& point)
{
    place(point);
    emit moved();
    return false;
}

void DrawBrush::updateImplementation(const osg::Vec2f& point)
{
    if (m_drawNodes.empty())
        return;
    const osg::Matrixd last = m_drawNodes.back()->getMatrix();
    const osg::Vec2f p(static_cast<float>(last.getTrans().x()),
                       static_cast<float>(last.getTrans().y()));
    const float r = static_cast<float>(scaleX(last)) / m_pixelRatio;
    const osg::Vec2f d = point - p;
    const float len = d.length();
    // Stamps closer than a radius apart keep a fast stroke continuous.
    const int n = static_cast<int>(1.0f + 1.5f * std::fabs((len - r) / r));
    const osg::Vec2f step = d / static_cast<float>(n);
    for (int k = 1; k <= n; ++k) {
        addDrawNodeToScene();
        m_drawNodes.back()->setMatrix(last);
        setTranslation(m_drawNodes.back().get(), p + step * static_cast<float>(k));
    }
    lastUsedMatrix() = m_drawNodes.back()->getMatrix();
}

void DrawBrush::cancelImplementation()
{
    if (m_drawNodes.size() < 2)
        return;
    osg::ref_ptr<osg::MatrixTransform> cursor = m_drawNodes.back();
    m_drawNodes.pop_back();
    deleteDrawNodeInScene();
    m_drawNodes.push_back(cursor);
}

void DrawBrush::switchColor()
{
    recolorDiscs(m_drawNodes, currentColor());
}

// ---- DrawCylinder

DrawCylinder::DrawCylinder(osg::Group* parentGroup, QObject* parent)
    : DrawObject(parentGroup, parent), m_pixelRatio(devicePixelRatio())
{
    m_radius = 50.0f * m_pixelRatio;
}

osg::Node* DrawCylinder::createDrawNode()
{
    return createDisc(currentColor());
}

void DrawCylinder::place(const osg::Vec2f& point)
{
    if (m_drawNodes.empty())
        return;
    m_drawNodes.front()->setMatrix(osg::Matrixd::scale(m_radius, m_radius, 1.0) *
                                   osg::Matrixd::translate(point.x(), point.y(), 0.0));
}

void DrawCylinder::enterImplementation(const osg::Vec2f& point)
{
    if (m_drawNodes.empty())
        addDrawNodeToScene();
    place(point);
}

bool DrawCylinder::setRadius(float radius)
{
    if (radius < kMinRadius || radius > kMaxRadius)
        return false;
    m_radius = radius;
    if (!m_drawNodes.empty()) {
        const osg::Vec3d t = m_drawNodes.front()->getMatrix().getTrans();
        m_drawNodes.front()->setMatrix(osg::Matrixd::scale(m_radius, m_radius, 1.0) *
                                       osg::Matrixd::translate(t));
    }
    emit radiusChanged();
    return true;
}

bool DrawCylinder::startDraw(const osg::Vec2f& point)
{
    startImplementation(point);
    emit started();
    return false;
}

bool DrawCylinder::updateDraw(const osg::Vec2f& point)
{
    updateImplementation(point);
    emit updated();
    return false;
}

bool DrawCylinder::finishDraw()
{
    if (!m_isDrawing)
        return false;
    emit finished();
    m_isDrawing = false;
    finishImplementation();
    return true;
}

bool DrawCylinder::doubleClicked(GA::MouseButtonMask button, const osg::Vec2f&)
{
    if (button != GA::LEFT_MOUSE_BUTTON || m_drawNodes.empty())
        return false;
    emit started();
    m_isDrawing = true;
    return true;
}

bool DrawCylinder::scrowUp()
{
    if (!(m_modKeyMask & kAcceptedModKeyMask))
        return false;
    setRadius(m_radius + kScrowStep);
    emit scrowed();
    return true;
}

bool DrawCylinder::scrowDown()
{
    if (!(m_modKeyMask & kAcceptedModKeyMask))
        return false;
    setRadius(m_radius - kScrowStep);
    emit scrowed();
    return true;
}

bool DrawCylinder::move(const osg::Vec2f& point)
{
    place(point);
    emit moved();
    return false;
}

void DrawCylinder::switchColor()
{
    recolorDiscs(m_drawNodes, currentColor());
}

// ---- DrawSphere

DrawSphere::DrawSphere(osg::Group* parentGroup, QObject* parent) : DrawObject(parentGroup, parent)
{
}

osg::Node* DrawSphere::createDrawNode()
{
    osg::Geometry* sphere = SphereGeomMaker::createSphereGeometry(osg::Vec3f(), 1.0f);
    SphereGeomMaker::setColor(sphere, currentColor());
    osg::StateSet* ss = sphere->getOrCreateStateSet();
    ss->setAttributeAndModes(new osg::CullFace(osg::CullFace::BACK));
    return sphere;
}

bool DrawSphere::setRadius(float radius)
{
    if (radius < kMinRadius || radius > kMaxRadius)
        return false;
    m_radius = radius;
    if (!m_drawNodes.empty()) {
        const osg::Vec3d t = m_drawNodes.front()->getMatrix().getTrans();
        m_drawNodes.front()->setMatrix(osg::Matrixd::scale(m_radius, m_radius, m_radius) *
                                       osg::Matrixd::translate(t));
    }
    emit radiusChanged();
    return true;
}

bool DrawSphere::scrowUp()
{
    if (!(m_modKeyMask & kAcceptedModKeyMask))
        return false;
    setRadius(m_radius + kScrowStep);
    emit scrowed();
    return true;
}

bool DrawSphere::scrowDown()
{
    if (!(m_modKeyMask & kAcceptedModKeyMask))
        return false;
    setRadius(m_radius - kScrowStep);
    emit scrowed();
    return true;
}

void DrawSphere::enterImplementation(const osg::Vec2f& point)
{
    if (m_drawNodes.empty())
        addDrawNodeToScene();
    place(point);
}

bool DrawSphere::move(const osg::Vec2f& point)
{
    place(point);
    emit moved();
    return false;
}

void DrawSphere::place(const osg::Vec2f& point)
{
    if (m_drawNodes.empty())
        return;
    osg::MatrixTransform* node = m_drawNodes.front().get();
    const float depth = m_depthReader ? m_depthReader(point) : 1.0f;
    if (qFuzzyCompare(depth, 1.0f)) {
        m_valid = false;
        return;
    }
    osg::Camera* camera = nullptr;
    const osg::NodePathList paths = node->getParentalNodePaths();
    for (const osg::NodePath& path : paths) {
        for (osg::Node* n : path)
            if (auto* c = n->asCamera())
                camera = c;
        if (camera)
            break;
    }
    if (!camera || !camera->getViewport()) {
        m_valid = false;
        return;
    }
    const osg::Matrixd vpw = camera->getViewMatrix() * camera->getProjectionMatrix() *
                             camera->getViewport()->computeWindowMatrix();
    const osg::Vec3d world = osg::Vec3d(point.x(), point.y(), depth) * osg::Matrixd::inverse(vpw);
    node->setMatrix(osg::Matrixd::scale(m_radius, m_radius, m_radius) *
                    osg::Matrixd::translate(world));
    m_valid = true;
}

// ---- DrawManipulator

DrawManipulator::DrawManipulator(osgViewer::View* view, QObject* parent)
    : QObject(parent), m_view(view)
{
}

namespace {

// Keeps an overlay camera's projection on the view's viewport, in window pixels.
class OverlayFollowViewport : public osg::NodeCallback
{
public:
    explicit OverlayFollowViewport(osg::Camera* master) : m_master(master) {}
    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        osg::ref_ptr<osg::Camera> master;
        auto* overlay = node->asCamera();
        if (overlay && m_master.lock(master) && master->getViewport()) {
            const osg::Viewport* vp = master->getViewport();
            overlay->setProjectionMatrixAsOrtho2D(vp->x(), vp->x() + vp->width(), vp->y(),
                                                  vp->y() + vp->height());
        }
        traverse(node, nv);
    }

private:
    osg::observer_ptr<osg::Camera> m_master;
};

} // namespace

osg::Camera* DrawManipulator::createOverlayCamera(osgViewer::View* view)
{
    auto* camera = new osg::Camera;
    camera->setName("DrawOverlay");
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setRenderOrder(osg::Camera::POST_RENDER);
    camera->setClearMask(0);
    camera->setAllowEventFocus(false);
    camera->setViewMatrix(osg::Matrixd::identity());
    if (view && view->getCamera() && view->getCamera()->getViewport()) {
        const osg::Viewport* vp = view->getCamera()->getViewport();
        camera->setProjectionMatrixAsOrtho2D(vp->x(), vp->x() + vp->width(), vp->y(),
                                             vp->y() + vp->height());
    }
    if (view)
        camera->setCullCallback(new OverlayFollowViewport(view->getCamera()));
    osg::StateSet* ss = camera->getOrCreateStateSet();
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    ss->setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
    ss->setMode(GL_CULL_FACE, osg::StateAttribute::OFF);
    // The scene's programs must not shade the overlay.
    ss->setAttributeAndModes(new osg::Program, osg::StateAttribute::ON |
                                                   osg::StateAttribute::OVERRIDE |
                                                   osg::StateAttribute::PROTECTED);
    return camera;
}

void DrawManipulator::updateKeyState(int modKeyMask, bool& switched, bool& entered, bool& exited)
{
    switched = entered = exited = false;
    if (modKeyMask > 15 && (modKeyMask & ~m_acceptedModKeyMask)) {
        if (m_isDrawMode) {
            m_isDrawMode = false;
            exited = true;
        }
        return;
    }
    const int key = m_acceptedModKeyMask & modKeyMask;
    if (key != m_curModKey) {
        m_curModKey = key;
        switched = true;
    }
    const bool mode = m_acceptedModKeyMask == 0 || key != 0;
    if (mode != m_isDrawMode) {
        m_isDrawMode = mode;
        entered = mode;
        exited = !mode;
    }
}

bool DrawManipulator::handle(const GA& ea, osgGA::GUIActionAdapter& aa)
{
    if (!m_enable || ea.getEventType() == GA::FRAME)
        return false;

    osg::Vec2f point(ea.getX(), ea.getY());
    // Overlay and mask count rows from the bottom, as the window matrix does.
    if (ea.getMouseYOrientation() == GA::Y_INCREASING_DOWNWARDS)
        point.y() = ea.getYmin() + ea.getYmax() - point.y();
    if (m_view && m_view->getCamera() && m_view->getCamera()->getViewport()) {
        const osg::Viewport* vp = m_view->getCamera()->getViewport();
        point.x() = std::min(std::max(point.x(), static_cast<float>(vp->x())),
                             static_cast<float>(vp->x() + vp->width() - 1));
        point.y() = std::min(std::max(point.y(), static_cast<float>(vp->y())),
                             static_cast<float>(vp->y() + vp->height() - 1));
    }

    bool switched = false;
    bool entered = false;
    bool exited = false;
    updateKeyState(ea.getModKeyMask(), switched, entered, exited);

    const bool isPoint = !m_drawObject.isNull() && qobject_cast<DrawPoint*>(m_drawObject.data());
    if (m_drawObject)
        m_drawObject->setModKeyMask(ea.getModKeyMask());

    if (entered)
        handleEnter(point);
    if (exited) {
        handleExit();
        m_isDrawing = false;
        resetCameraMouseMove(aa);
    }
    if (switched)
        emit modKeySwitched();

    switch (ea.getEventType()) {
    case GA::PUSH: {
        if (!m_isDrawMode)
            return false;
        bool result = false;
        if (ea.getButtonMask() == GA::LEFT_MOUSE_BUTTON) {
            if (!m_isDrawing) {
                result = handleStart(point);
                m_isDrawing = true;
            }
        } else if (m_isDrawing) {
            handleCancel();
            m_isDrawing = false;
            resetCameraMouseMove(aa);
            result = true;
        }
        return isPoint ? false : result;
    }
    case GA::RELEASE:
        if (ea.getButtonMask() == 0 && m_isDrawing) {
            const bool result = handleFinish();
            m_isDrawing = false;
            resetCameraMouseMove(aa);
            return isPoint ? false : result;
        }
        return false;
    case GA::DOUBLECLICK:
        // A double click that the figure takes arms the finish on the release that follows.
        if (m_isDrawMode &&
            handleDoubleClick(static_cast<GA::MouseButtonMask>(ea.getButton()), point))
            m_isDrawing = true;
        return false;
    case GA::DRAG:
        if (isPoint) {
            // A click keeps its last position, but leaves the drag to the camera.
            if (m_isDrawing)
                handleUpdate(point);
            return false;
        }
        if (m_isDrawing)
            return handleUpdate(point);
        if (m_isDrawMode && ea.getButtonMask() == GA::LEFT_MOUSE_BUTTON) {
            const bool result = handleStart(point);
            m_isDrawing = true;
            return result;
        }
        handleMove(point);
        return false;
    case GA::MOVE:
        if (ea.isMultiTouchEvent() && ea.getTouchData()->getNumTouchPoints() > 1)
            return false;
        if (m_isDrawMode)
            handleMove(point);
        return false;
    case GA::KEYDOWN:
        if (m_keyCallback)
            m_keyCallback(ea.getKey());
        return false;
    case GA::SCROLL:
        if (!m_isDrawMode)
            return false;
        if (ea.getScrollingMotion() == GA::SCROLL_UP)
            return handleScrowUp();
        if (ea.getScrollingMotion() == GA::SCROLL_DOWN)
            return handleScrowDown();
        return false;
    default:
        return false;
    }
}

void DrawManipulator::handleEnter(const osg::Vec2f& point)
{
    if (m_drawObject)
        m_drawObject->enterDraw(point);
}

void DrawManipulator::handleExit()
{
    if (m_drawObject)
        m_drawObject->exitDraw();
}

bool DrawManipulator::handleStart(const osg::Vec2f& point)
{
    return m_drawObject ? m_drawObject->startDraw(point) : false;
}

bool DrawManipulator::handleUpdate(osg::Vec2f point)
{
    return m_drawObject ? m_drawObject->updateDraw(point) : false;
}

bool DrawManipulator::handleCancel()
{
    return m_drawObject ? m_drawObject->cancelDraw() : false;
}

bool DrawManipulator::handleFinish()
{
    return m_drawObject ? m_drawObject->finishDraw() : false;
}

bool DrawManipulator::handleMove(const osg::Vec2f& point)
{
    return m_drawObject ? m_drawObject->move(point) : false;
}

bool DrawManipulator::handleDoubleClick(GA::MouseButtonMask button, const osg::Vec2f& point)
{
    return m_drawObject ? m_drawObject->doubleClicked(button, point) : false;
}

bool DrawManipulator::handleScrowUp()
{
    return m_drawObject ? m_drawObject->scrowUp() : false;
}

bool DrawManipulator::handleScrowDown()
{
    return m_drawObject ? m_drawObject->scrowDown() : false;
}

void DrawManipulator::resetCameraMouseMove(osgGA::GUIActionAdapter& aa)
{
    auto* view = dynamic_cast<osgViewer::View*>(&aa);
    if (!view)
        view = m_view;
    if (!view)
        return;
    osgGA::CameraManipulator* camera = view->getCameraManipulator();
    auto* object = dynamic_cast<QObject*>(camera);
    auto* standard = dynamic_cast<osgGA::StandardManipulator*>(camera);
    if (!object || !standard ||
        qstrcmp(object->metaObject()->className(), "CustomizeManipulator")) {
        qCWarning(orvane) << "camera manipulator isn't CustomizeManipulator";
        return;
    }
    MouseStackAccess::flush(standard);
}

void DrawManipulator::setEnable(bool enable)
{
    m_enable = enable;
    if (m_isDrawMode)
        handleExit();
    m_isDrawing = false;
    m_isDrawMode = false;
    m_curModKey = 0;
    m_acceptedModKeyMask = 0;
}

void DrawManipulator::resetState()
{
    if (m_isDrawMode) {
        handleExit();
        m_isDrawing = false;
    }
}

bool DrawManipulator::setAcceptedModKeyMask(int mask)
{
    if (mask < 0 || mask > 15)
        return false;
    m_acceptedModKeyMask = mask;
    return true;
}

} // namespace Orvane
} // namespace Vorna
