#include "cylinder_manipulator.h"
#include "cylinder_dragger.h"

#include "canvas3d_shadermanager.h"

#include <QtGlobal>
#include <cmath>
#include <osg/BlendFunc>
#include <osg/CullFace>
#include <osg/ShapeDrawable>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

namespace {

// Rebuilds the body when a drag has changed its numbers.
class CylinderUpdateCallback : public osg::NodeCallback
{
public:
    explicit CylinderUpdateCallback(CylinderManipulatorPrivate* d)
        : m_d(d), m_radius(d->m_radius), m_height(d->m_height), m_bottom(d->m_bottom ? 1.f : 0.f)
    {
    }

    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        const float bottom = m_d->m_bottom ? 1.0f : 0.0f;
        if (std::fabs(m_radius - m_d->m_radius) >= 1e-6f ||
            std::fabs(m_height - m_d->m_height) >= 1e-6f || std::fabs(m_bottom - bottom) >= 1e-6f) {
            m_radius = m_d->m_radius;
            m_height = m_d->m_height;
            m_bottom = bottom;
            m_d->createGeometries();
            m_d->m_root->dirtyBound();
        }
        traverse(node, nv);
    }

private:
    CylinderManipulatorPrivate* m_d;
    float m_radius;
    float m_height;
    float m_bottom;
};

// Keeps the translate handle's plane facing the viewer.
class PanUpdateCallback : public osg::NodeCallback
{
public:
    PanUpdateCallback(osg::Camera* camera, CylinderManipulatorPrivate* d) : m_camera(camera), m_d(d)
    {
    }

    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        auto* dragger = dynamic_cast<CylinderTranslateDragger*>(node);
        Q_ASSERT_X(dragger, "cylinder_dragger.cpp", "dragger");
        if (dragger && m_camera.valid()) {
            const osg::MatrixList worlds = m_d->m_root->getWorldMatrices();
            const osg::Matrixd body = worlds.empty() ? m_d->m_root->getMatrix() : worlds.front();
            const osg::Matrixd bodyView = body * m_camera->getViewMatrix();
            osg::Vec3d normal =
                osg::Matrixd::transform3x3(osg::Vec3d(0, 0, 1), osg::Matrixd::inverse(bodyView));
            normal.normalize();
            osg::Plane plane(normal, 0.0);
            dragger->setPlane(plane);
        }
        traverse(node, nv);
    }

private:
    osg::observer_ptr<osg::Camera> m_camera;
    CylinderManipulatorPrivate* m_d;
};

} // namespace

CylinderManipulatorPrivate::CylinderManipulatorPrivate(CylinderManipulator* owner,
                                                       osgViewer::View* view,
                                                       const osg::Vec3f& center,
                                                       const osg::Vec3f& axis, float radius,
                                                       float height, const osg::Vec4f& color)
    : m_view(view), m_owner(owner), m_color(color), m_radius(radius), m_height(height)
{
    createStructure();
    osg::Vec3f unitAxis = axis;
    if (unitAxis.normalize() == 0.0f)
        unitAxis.set(0, 0, 1);
    m_root->setMatrix(osg::Matrix::rotate(osg::Vec3d(0, 0, 1), osg::Vec3d(unitAxis)) *
                      osg::Matrix::translate(center));
}

CylinderManipulatorPrivate::~CylinderManipulatorPrivate()
{
    m_radiusDragger->setPrivate(nullptr);
    m_heightDragger->setPrivate(nullptr);
    while (osg::Callback* callback = m_geode->getUpdateCallback())
        m_geode->removeUpdateCallback(callback);
    while (osg::Callback* callback = m_translateDragger->getUpdateCallback())
        m_translateDragger->removeUpdateCallback(callback);
}

void CylinderManipulatorPrivate::createStructure()
{
    m_root = new osg::MatrixTransform;
    m_root->setName("cylinder manipulator");
    // An aid: out of fits, and never the centre of rotation.
    m_root->setUserValue("valid_bounding_sphere", false);
    m_root->setUserValue("can_not_set_rotate_center", true);
    if (osg::Program* program = ShaderManager::instance()->getShader("common_model_osg"))
        m_root->getOrCreateStateSet()->setAttributeAndModes(
            program, osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    m_body = new osg::MatrixTransform;
    m_geode = new osg::Geode;
    m_body->addChild(m_geode.get());
    createGeometries();

    osg::Camera* camera = m_view ? m_view->getCamera() : nullptr;
    m_translateDragger = new CylinderTranslateDragger;
    m_translateDragger->addChild(m_body.get());
    m_translateDragger->setConnectObject(m_owner);
    m_translateDragger->addTransformUpdating(m_root.get());
    m_translateDragger->addUpdateCallback(new PanUpdateCallback(camera, this));

    m_radiusDragger = new CylinderRadiusDragger;
    m_heightDragger = new CylinderHeightDragger;
    for (CylinderValueDragger* dragger :
         {static_cast<CylinderValueDragger*>(m_radiusDragger.get()),
          static_cast<CylinderValueDragger*>(m_heightDragger.get())}) {
        dragger->setPrivate(this);
        dragger->setConnectObject(m_owner);
        dragger->setupDefaultGeometry();
    }
    m_rotateDragger = new CylinderRotateDragger(camera);
    m_rotateDragger->setConnectObject(m_owner);
    m_rotateDragger->addTransformUpdating(m_root.get());

    m_root->addChild(m_translateDragger.get());
    m_root->addChild(m_radiusDragger.get());
    m_root->addChild(m_heightDragger.get());
    m_root->addChild(m_rotateDragger.get());
    placeHandles();
    m_rotateDragger->setupDefaultGeometry();
    m_geode->addUpdateCallback(new CylinderUpdateCallback(this));
}

void CylinderManipulatorPrivate::createGeometries()
{
    m_geode->removeDrawables(0, m_geode->getNumDrawables());
    osg::ref_ptr<osg::TessellationHints> hints = new osg::TessellationHints;
    hints->setCreateTop(true);
    hints->setCreateBottom(m_bottom);
    hints->setCreateBackFace(false);
    auto* drawable = new osg::ShapeDrawable(
        new osg::Cylinder(osg::Vec3(0, 0, m_height / 2.0f), m_radius, m_height), hints.get());
    drawable->setUseDisplayList(false);
    drawable->setUseVertexBufferObjects(true);
    drawable->setUseVertexArrayObject(true);
    drawable->setColor(m_color);
    m_geode->addDrawable(drawable);
    ++m_builds;

    osg::StateSet* ss = m_geode->getOrCreateStateSet();
    ss->setMode(GL_BLEND, osg::StateAttribute::ON);
    ss->setAttributeAndModes(
        new osg::BlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA));
    ss->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
    ss->setRenderBinDetails(10, "RenderBin");
    ss->setAttributeAndModes(new osg::CullFace(osg::CullFace::BACK));
    setColor(m_color);
}

void CylinderManipulatorPrivate::placeHandles()
{
    const osg::Vec3d middle(0, 0, m_height * 0.5);
    m_radiusDragger->setMatrix(
        osg::Matrix::translate(middle + m_radiusDragger->directionVector() * m_radius));
    m_heightDragger->setMatrix(osg::Matrix::translate(0, 0, m_height));
    // The ring stands across the body and turns it about the x axis through its middle.
    m_rotateDragger->setMatrix(osg::Matrix::translate(middle));
    m_rotateDragger->ring()->setMatrix(
        osg::Matrix::rotate(osg::Vec3d(0, 0, 1), osg::Vec3d(1, 0, 0)));
    const float ringRadius = 1.15f * std::max(m_radius, m_height * 0.5f);
    if (std::fabs(m_rotateDragger->ring()->radius() - ringRadius) >= 1e-6f) {
        m_rotateDragger->ring()->setRadius(ringRadius);
        m_rotateDragger->ring()->setupDefaultGeometry();
    }
}

void CylinderManipulatorPrivate::setColor(const osg::Vec4f& color)
{
    m_color = color;
    osg::StateSet* ss = m_geode->getOrCreateStateSet();
    if (osg::Uniform* uniform = ss->getUniform("uniformColor"))
        uniform->set(color);
    else
        ss->addUniform(new osg::Uniform("uniformColor", color));
    for (unsigned int i = 0; i < m_geode->getNumDrawables(); ++i)
        if (auto* shape = dynamic_cast<osg::ShapeDrawable*>(m_geode->getDrawable(i)))
            shape->setColor(color);
}

CylinderManipulator::CylinderManipulator(osgViewer::View* view, const osg::Vec3f& center,
                                         const osg::Vec3f& axis, float radius, float height,
                                         const osg::Vec4f& color)
    : m_d(new CylinderManipulatorPrivate(this, view, center, axis, radius, height, color))
{
}

CylinderManipulator::~CylinderManipulator() = default;

void CylinderManipulator::setColor(const osg::Vec4f& color) const
{
    m_d->setColor(color);
}

osg::Node* CylinderManipulator::getCylinderNode()
{
    return m_d->m_root.get();
}

void CylinderManipulator::getCylinder(osg::Vec3f& center, osg::Vec3f& axis, float& radius,
                                      float& height)
{
    const osg::MatrixList worlds = m_d->m_root->getWorldMatrices();
    const osg::Matrixd world = worlds.empty() ? m_d->m_root->getMatrix() : worlds.front();
    center = osg::Vec3f(world.getTrans());
    osg::Vec3d along = osg::Matrixd::transform3x3(osg::Vec3d(0, 0, 1), world);
    along.normalize();
    axis = osg::Vec3f(along);
    radius = m_d->m_radius;
    height = m_d->m_height;
}

} // namespace Orvane
} // namespace Vorna
