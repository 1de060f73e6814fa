#include "view_datum.h"

#include "image_convert.h"

#include <QImage>
#include <algorithm>
#include <cmath>
#include <osg/AutoTransform>
#include <osg/BlendEquation>
#include <osg/BlendFunc>
#include <osg/Geometry>
#include <osg/LineWidth>
#include <osg/Texture2D>
#include <osgDB/FileUtils>
#include <osgText/Text>
#include <osgUtil/CullVisitor>

namespace Vorna {
namespace Orvane {

namespace {

// Everything drawn that must not be picked keeps the other mask bits.
const unsigned int kNotClickable = ~0x10u;

osg::Geometry* newGeometry()
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    return geometry;
}

void setOverallColor(osg::Geometry* geometry, const osg::Vec4f& color)
{
    auto* colors = new osg::Vec4Array;
    colors->push_back(color);
    geometry->setColorArray(colors, osg::Array::BIND_OVERALL);
}

// Camera frame (right, up, back) whose back axis is `d`: up is +y of the gizmo, or for the
// top and bottom faces the direction that keeps the front face at the bottom or the top.
osg::Quat lookAtRotation(const osg::Vec3f& direction)
{
    osg::Vec3d d = direction;
    d.normalize();
    osg::Vec3d up(0.0, 1.0, 0.0);
    if (std::abs(d.y()) > 0.999)
        up = osg::Vec3d(0.0, 0.0, d.y() > 0.0 ? -1.0 : 1.0);
    up = up - d * (up * d);
    up.normalize();
    const osg::Vec3d right = up ^ d;
    const osg::Matrixd m(right.x(), right.y(), right.z(), 0.0, up.x(), up.y(), up.z(), 0.0, d.x(),
                         d.y(), d.z(), 0.0, 0.0, 0.0, 0.0, 1.0);
    return m.getRotate();
}

osg::Vec3f absolute(const osg::Vec3f& v)
{
    return osg::Vec3f(std::abs(v.x()), std::abs(v.y()), std::abs(v.z()));
}

// Two triangles of the quad a, b, c, d.
void pushQuad(std::vector<osg::Vec3f>& out, const osg::Vec3f& a, const osg::Vec3f& b,
              const osg::Vec3f& c, const osg::Vec3f& d)
{
    out.insert(out.end(), {a, b, c, a, c, d});
}

// Arial where the system has it; otherwise the built-in font, without asking the font plugin
// for a file it cannot find.
void setLabelFont(osgText::Text* text)
{
    static const bool hasArial = !osgDB::findDataFile("arial.ttf").empty();
    if (hasArial)
        text->setFont("arial.ttf");
}

osg::Image* loadImage(const char* path)
{
    QImage image(path);
    if (image.isNull())
        return nullptr;
    return ImageConvert::convertQImageToOsgImage(image);
}

} // namespace

ViewDatum::ViewDatum(osg::View* view, float dpiScale, float scale)
    : m_view(view), m_scale(scale), m_dpiScale(dpiScale)
{
    setName("viewDatum");
    setViewport(new osg::Viewport(0, 0, 1, 1));
}

ViewDatum::~ViewDatum() = default;

void ViewDatum::init(bool showCube, bool alignLeft, bool showHome)
{
    m_showCube = showCube;
    m_alignLeft = alignLeft;
    m_showHome = showHome;
    osg::Matrixd R;
    if (m_isFrontZDirUp)
        R = osg::Matrixd::rotate(osg::PI_2, osg::X_AXIS);
    osg::MatrixTransform* n = createViewDatum();
    n->setMatrix(n->getMatrix() * R);
    if (showCube)
        m_cubeSwitch->setAllChildrenOn();
    else
        m_cubeSwitch->setAllChildrenOff();
    m_root = new osg::MatrixTransform;
    m_root->addChild(n);
    m_lastWidth = getWidthConst();

    setComputeNearFarMode(osg::CullSettings::COMPUTE_NEAR_FAR_USING_BOUNDING_VOLUMES);
    setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    setRenderOrder(osg::Camera::POST_RENDER);
    setClearMask(GL_DEPTH_BUFFER_BIT);
    setAllowEventFocus(false);
    setViewMatrixAsLookAt(osg::Vec3d(0.0, 0.0, 40.0), osg::Vec3d(), osg::Vec3d(0.0, 1.0, 0.0));
    setProjectionMatrixAsPerspective(45.0, 1.0, 0.001, 100000.0);
}

osg::MatrixTransform* ViewDatum::createViewDatum()
{
    auto* axes = new osg::MatrixTransform;
    axes->setName("Axis");
    axes->setUserValue("can_not_set_rotate_center", false);
    axes->setUserValue("can_not_msg_rotate_center", false);
    getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);

    // Built so that the rotation `init` applies brings them back onto the world axes.
    osg::Matrixd Q;
    if (m_isFrontZDirUp)
        Q = osg::Matrixd::rotate(-osg::PI_2, osg::X_AXIS);
    const float L = m_showCube ? 10.0f : 7.0f;
    const int labelSize = int(int(getWidthConst() * 0.075f) * m_scale);
    const struct {
        osg::Vec3f axis;
        osg::Vec4f color;
        const char* label;
    } axisList[] = {{osg::X_AXIS, {0.9f, 0.2f, 0.2f, 1.0f}, "X"},
                    {osg::Y_AXIS, {0.2f, 0.9f, 0.2f, 1.0f}, "Y"},
                    {osg::Z_AXIS, {0.2f, 0.2f, 0.9f, 1.0f}, "Z"}};
    for (const auto& a : axisList) {
        const osg::Vec3f dir = a.axis * Q;
        axes->addChild(createAxisWithArrow(osg::Vec3f(), dir * L, a.color));
        if (m_showLabels)
            axes->addChild(createLabel(a.label, dir * (L + 4.0f), a.color, labelSize));
    }
    createBox(axes, osg::Vec3f(), 8.75f);
    return axes;
}

float ViewDatum::getWidth() const
{
    const osg::Viewport* vp =
        m_view && m_view->getCamera() ? m_view->getCamera()->getViewport() : nullptr;
    if (!vp)
        return getWidthConst();
    const float k = std::min(float(vp->width()) / 1920.0f, float(vp->height()) / 1080.0f);
    return m_dpiScale * 200.0f * k;
}

float ViewDatum::getWidthConst() const
{
    return m_dpiScale * 200.0f;
}

float ViewDatum::getX()
{
    const osg::Viewport* vp =
        m_view && m_view->getCamera() ? m_view->getCamera()->getViewport() : nullptr;
    if (!vp)
        return 0.0f;
    return getX(float(vp->x()), float(vp->width()), getWidth(), m_alignLeft);
}

float ViewDatum::getX(float x, float viewportWidth, float width, bool left)
{
    if (left) {
        const float k = width / getWidthConst();
        return x + m_dpiScale * k * m_marginX;
    }
    // The right margin stays in plain pixels at every size.
    return x + viewportWidth - width - m_marginX;
}

float ViewDatum::getY()
{
    const osg::Viewport* vp =
        m_view && m_view->getCamera() ? m_view->getCamera()->getViewport() : nullptr;
    return getY(vp ? float(vp->y()) : 0.0f);
}

float ViewDatum::getY(float y)
{
    const float k = getWidth() / getWidthConst();
    return y + m_dpiScale * k * m_marginY;
}

void ViewDatum::traverse(osg::NodeVisitor& nv)
{
    if (nv.getVisitorType() == osg::NodeVisitor::CULL_VISITOR && m_root.valid() && m_view &&
        m_view->getCamera()) {
        osg::Matrixd V = m_view->getCamera()->getViewMatrix();
        V.setTrans(0.0, 0.0, 0.0);
        m_root->setMatrix(V);

        const float w = getWidth();
        const float x = getX();
        const float y = getY();
        // In place: the render stage of this frame already holds the viewport object.
        getViewport()->setViewport(x, y, w, w);
        if (m_showHome && m_homeCamera.valid()) {
            if (w != m_lastWidth) {
                m_lastWidth = w;
                updateHomeBtn();
            }
            float hx = 0.0f, hy = 0.0f;
            getHomeButtonPos(hx, hy);
            const float s = getWidth() / getWidthConst();
            m_homeTransform->setMatrix(osg::Matrixd::scale(s, s, s) *
                                       osg::Matrixd::translate(hx, hy, 0.0));
            if (m_showCube) {
                m_homeCamera->getViewport()->setViewport(x, y, w, w);
                m_homeCamera->setProjectionMatrixAsOrtho2D(0.0, w, 0.0, w);
            } else {
                m_homeCamera->getViewport()->setViewport(x, y, 0.0, 0.0);
                m_homeCamera->setProjectionMatrixAsOrtho2D(0.0, 1.0, 0.0, 1.0);
            }
        }
    }
    if (m_root.valid())
        m_root->accept(nv);
}

void ViewDatum::resizeGLObjectBuffers(unsigned int maxSize)
{
    osg::Camera::resizeGLObjectBuffers(maxSize);
    if (m_root.valid())
        m_root->resizeGLObjectBuffers(maxSize);
}

void ViewDatum::releaseGLObjects(osg::State* state) const
{
    osg::Camera::releaseGLObjects(state);
    if (m_root.valid())
        m_root->releaseGLObjects(state);
}

void ViewDatum::setBlendMode(osg::StateSet* stateSet)
{
    if (!stateSet)
        return;
    stateSet->setAttributeAndModes(
        new osg::BlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA),
        osg::StateAttribute::ON);
    stateSet->setAttributeAndModes(new osg::BlendEquation(osg::BlendEquation::FUNC_ADD),
                                   osg::StateAttribute::ON);
}

void ViewDatum::getHomeButtonPos(float& x, float& y) const
{
    x = 15.0f;
    y = 15.0f;
}

void ViewDatum::updateHomeBtn()
{
    if (!m_homeQuad.valid())
        return;
    // The quad is laid out at the reference width; the transform scales it to the present one.
    const float side = 2.0f * m_homeSize * m_dpiScale;
    auto* v = new osg::Vec3Array;
    v->push_back(osg::Vec3f(0.0f, 0.0f, 0.0f));
    v->push_back(osg::Vec3f(side, 0.0f, 0.0f));
    v->push_back(osg::Vec3f(side, side, 0.0f));
    v->push_back(osg::Vec3f(0.0f, side, 0.0f));
    auto* t = new osg::Vec2Array;
    t->push_back(osg::Vec2f(0.0f, 0.0f));
    t->push_back(osg::Vec2f(1.0f, 0.0f));
    t->push_back(osg::Vec2f(1.0f, 1.0f));
    t->push_back(osg::Vec2f(0.0f, 1.0f));
    m_homeQuad->setVertexArray(v);
    m_homeQuad->setTexCoordArray(0, t);
    m_homeQuad->dirtyBound();
}

void ViewDatum::createBox(osg::Group* parent, const osg::Vec3f& centre, float size)
{
    const float h = size * 0.5001f;
    const osg::Vec3f vertices[8] = {
        centre + osg::Vec3f(-h, -h, h),  centre + osg::Vec3f(h, -h, h),
        centre + osg::Vec3f(h, h, h),    centre + osg::Vec3f(-h, h, h),
        centre + osg::Vec3f(-h, -h, -h), centre + osg::Vec3f(h, -h, -h),
        centre + osg::Vec3f(h, h, -h),   centre + osg::Vec3f(-h, h, -h)};
    m_planes.clear();
    m_cubeSwitch = new osg::Switch;
    m_cubeSwitch->setName("viewDatumCube");
    parent->addChild(m_cubeSwitch.get());
    createAllPlane(vertices);
    createAllAdjacentPlane(centre, h);
    createAllCornerPlane(vertices, centre, h);
    m_cubeSwitch->addChild(createLineFrame(size, centre));
    if (m_showHome)
        createHome(m_cubeSwitch.get(), m_homeSize, centre);
}

osg::Geode* ViewDatum::addPiece(const std::vector<osg::Vec3f>& triangles, const std::string& name,
                                const osg::Vec3f& direction)
{
    osg::Geometry* geometry = newGeometry();
    geometry->setVertexArray(new osg::Vec3Array(triangles.begin(), triangles.end()));
    const osg::Vec3f c = getDefaultPlaneColor();
    setOverallColor(geometry, osg::Vec4f(c, 1.0f));
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, GLsizei(triangles.size())));
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    ss->setMode(GL_DEPTH_TEST, osg::StateAttribute::ON);
    geode->setName(name);
    geode->setNodeMask(getCubePlaneMask());
    auto* info = new PlaneInfo;
    info->direction = direction;
    info->rotation = lookAtRotation(direction);
    geode->setUserData(info);
    m_cubeSwitch->addChild(geode);
    m_planes[name] = geode;
    return geode;
}

void ViewDatum::createPlane(osg::Switch*, const osg::Vec3f* vertices, const int* indices,
                            const std::string& name, const osg::Vec3f& direction,
                            const std::string& text)
{
    // The coordinate along the normal stays; the others shrink so edges and corners fill the
    // border.
    const osg::Vec3f a = absolute(direction);
    const osg::Vec3f scale = a + (osg::Vec3f(1.0f, 1.0f, 1.0f) - a) * m_planeInset;
    osg::Vec3f p[4];
    osg::Vec3f mean;
    for (int i = 0; i < 4; ++i) {
        const osg::Vec3f& v = vertices[indices[i]];
        p[i] = osg::Vec3f(v.x() * scale.x(), v.y() * scale.y(), v.z() * scale.z());
        mean += p[i] * 0.25f;
    }
    const std::vector<osg::Vec3f> triangles = {p[0], p[1], p[2], p[0], p[2], p[3]};
    osg::Geode* plane = addPiece(triangles, name, direction);
    if (!m_showLabels)
        return;

    auto* label = new osgText::Text;
    label->setCharacterSize(2.0f);
    setLabelFont(label);
    label->setColor(getDefaultTextColor());
    label->setAlignment(osgText::TextBase::CENTER_CENTER);
    label->setAxisAlignment(osgText::TextBase::USER_DEFINED_ROTATION);
    label->setRotation(static_cast<PlaneInfo*>(plane->getUserData())->rotation);
    label->setPosition(mean + direction * 0.02f);
    label->setText(text);
    auto* textGeode = new osg::Geode;
    textGeode->setName("Text");
    textGeode->setNodeMask(kNotClickable);
    textGeode->addDrawable(label);
    textGeode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    auto* info = new PlaneInfo;
    info->direction = direction;
    info->rotation = static_cast<PlaneInfo*>(plane->getUserData())->rotation;
    textGeode->setUserData(info);
    m_cubeSwitch->addChild(textGeode);
    m_planes[name + "Text"] = textGeode;
}

void ViewDatum::createAllPlane(const osg::Vec3f* vertices)
{
    const struct {
        int indices[4];
        const char* name;
        osg::Vec3f direction;
        const char* text;
    } faces[] = {
        {{0, 1, 2, 3}, "viewDatumCubeFront", {0, 0, 1}, "Front"},
        {{5, 4, 7, 6}, "viewDatumCubeBack", {0, 0, -1}, "Back"},
        {{4, 0, 3, 7}, "viewDatumCubeLeft", {-1, 0, 0}, "Left"},
        {{1, 5, 6, 2}, "viewDatumCubeRight", {1, 0, 0}, "Right"},
        {{3, 2, 6, 7}, "viewDatumCubeTop", {0, 1, 0}, "Top"},
        {{4, 5, 1, 0}, "viewDatumCubeBottom", {0, -1, 0}, "Bottom"},
    };
    for (const auto& f : faces)
        createPlane(m_cubeSwitch.get(), vertices, f.indices, f.name, f.direction, f.text);
}

void ViewDatum::createAdjacentPlane(const osg::Vec3f& centre, float h, const osg::Vec3f& a,
                                    const osg::Vec3f& b, const std::string& name)
{
    // A strip on each of the two faces between the face's inset border and the shared edge.
    osg::Vec3f t = a ^ b;
    t = absolute(t);
    const float in = m_planeInset * h;
    std::vector<osg::Vec3f> tri;
    for (int side = 0; side < 2; ++side) {
        const osg::Vec3f& n = side ? b : a;
        const osg::Vec3f& m = side ? a : b;
        const osg::Vec3f base = centre + n * h;
        pushQuad(tri, base + m * in - t * in, base + m * h - t * in, base + m * h + t * in,
                 base + m * in + t * in);
    }
    osg::Vec3f direction = a + b;
    direction.normalize();
    addPiece(tri, name, direction);
}

void ViewDatum::createAllAdjacentPlane(const osg::Vec3f& centre, float h)
{
    createAllAdjacentPlaneXAxis(centre, h);
    createAllAdjacentPlaneYAxis(centre, h);
    createAllAdjacentPlaneZAxis(centre, h);
}

void ViewDatum::createAllAdjacentPlaneXAxis(const osg::Vec3f& centre, float h)
{
    const osg::Vec3f front(0, 0, 1), back(0, 0, -1), top(0, 1, 0), bottom(0, -1, 0);
    createAdjacentPlane(centre, h, front, top, "viewDatumCubeFrontTop");
    createAdjacentPlane(centre, h, front, bottom, "viewDatumCubeFrontBottom");
    createAdjacentPlane(centre, h, back, top, "viewDatumCubeBackTop");
    createAdjacentPlane(centre, h, back, bottom, "viewDatumCubeBackBottom");
}

void ViewDatum::createAllAdjacentPlaneYAxis(const osg::Vec3f& centre, float h)
{
    const osg::Vec3f front(0, 0, 1), back(0, 0, -1), left(-1, 0, 0), right(1, 0, 0);
    createAdjacentPlane(centre, h, front, left, "viewDatumCubeFrontLeft");
    createAdjacentPlane(centre, h, front, right, "viewDatumCubeFrontRight");
    createAdjacentPlane(centre, h, back, left, "viewDatumCubeBackLeft");
    createAdjacentPlane(centre, h, back, right, "viewDatumCubeBackRight");
}

void ViewDatum::createAllAdjacentPlaneZAxis(const osg::Vec3f& centre, float h)
{
    const osg::Vec3f left(-1, 0, 0), right(1, 0, 0), top(0, 1, 0), bottom(0, -1, 0);
    createAdjacentPlane(centre, h, left, top, "viewDatumCubeLeftTop");
    createAdjacentPlane(centre, h, left, bottom, "viewDatumCubeLeftBottom");
    createAdjacentPlane(centre, h, right, top, "viewDatumCubeRightTop");
    createAdjacentPlane(centre, h, right, bottom, "viewDatumCubeRightBottom");
}

void ViewDatum::createCornertPlane(const osg::Vec3f& centre, float h, const osg::Vec3f& signs,
                                   const std::string& name)
{
    // A small square on each of the three faces that meet at the corner.
    const float in = m_planeInset * h;
    const osg::Vec3f axes[3] = {osg::Vec3f(signs.x(), 0, 0), osg::Vec3f(0, signs.y(), 0),
                                osg::Vec3f(0, 0, signs.z())};
    std::vector<osg::Vec3f> tri;
    for (int i = 0; i < 3; ++i) {
        const osg::Vec3f& n = axes[i];
        const osg::Vec3f& u = axes[(i + 1) % 3];
        const osg::Vec3f& v = axes[(i + 2) % 3];
        const osg::Vec3f base = centre + n * h;
        pushQuad(tri, base + u * in + v * in, base + u * h + v * in, base + u * h + v * h,
                 base + u * in + v * h);
    }
    osg::Vec3f direction = signs;
    direction.normalize();
    addPiece(tri, name, direction);
}

void ViewDatum::createAllCornerPlane(const osg::Vec3f* vertices, const osg::Vec3f& centre, float h)
{
    for (int i = 0; i < 8; ++i) {
        const osg::Vec3f d = vertices[i] - centre;
        const osg::Vec3f signs(d.x() > 0 ? 1.0f : -1.0f, d.y() > 0 ? 1.0f : -1.0f,
                               d.z() > 0 ? 1.0f : -1.0f);
        createCornertPlane(centre, h, signs, "viewDatumCubeCorner" + std::to_string(i));
    }
}

osg::Geode* ViewDatum::createLineFrame(float size, const osg::Vec3f& centre)
{
    // Just outside the faces, so that depth testing keeps the edges visible.
    const float h = size * 0.5003f;
    auto* v = new osg::Vec3Array;
    for (int axis = 0; axis < 3; ++axis) {
        for (int s = 0; s < 4; ++s) {
            osg::Vec3f a, b;
            const float s1 = (s & 1) ? h : -h, s2 = (s & 2) ? h : -h;
            a[axis] = -h;
            b[axis] = h;
            a[(axis + 1) % 3] = b[(axis + 1) % 3] = s1;
            a[(axis + 2) % 3] = b[(axis + 2) % 3] = s2;
            v->push_back(centre + a);
            v->push_back(centre + b);
        }
    }
    osg::Geometry* geometry = newGeometry();
    geometry->setVertexArray(v);
    setOverallColor(geometry, osg::Vec4f(0.6f, 0.6f, 0.6f, 1.0f));
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_LINES, 0, GLsizei(v->size())));
    auto* geode = new osg::Geode;
    geode->setName("viewDatumLineFrame");
    geode->setNodeMask(kNotClickable);
    geode->addDrawable(geometry);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setAttributeAndModes(new osg::LineWidth(1.0f));
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    ss->setMode(GL_LINE_SMOOTH, osg::StateAttribute::ON);
    ss->setMode(GL_BLEND, osg::StateAttribute::ON);
    ss->setMode(GL_DEPTH_TEST, osg::StateAttribute::ON);
    return geode;
}

void ViewDatum::createHome(osg::Switch*, float size, const osg::Vec3f&)
{
    // The button lives in a 2D camera of its own that the caller puts next to the gizmo, so it
    // neither turns with the cube nor is hidden by it.
    m_homeSize = size;
    m_homeCamera = new osg::Camera;
    m_homeCamera->setName("viewDatumHomeCamera");
    m_homeCamera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    m_homeCamera->setRenderOrder(osg::Camera::POST_RENDER, 1);
    m_homeCamera->setClearMask(0);
    m_homeCamera->setAllowEventFocus(false);
    m_homeCamera->setViewMatrix(osg::Matrixd::identity());
    m_homeCamera->setViewport(new osg::Viewport(0, 0, 1, 1));
    m_homeCamera->setProjectionMatrixAsOrtho2D(0.0, 1.0, 0.0, 1.0);
    m_homeTransform = new osg::MatrixTransform;
    m_homeCamera->addChild(m_homeTransform.get());

    m_homeQuad = newGeometry();
    setOverallColor(m_homeQuad.get(), osg::Vec4f(getDefaultHomeColor(), 1.0f));
    m_homeQuad->addPrimitiveSet(new osg::DrawArrays(GL_QUADS, 0, 4));
    updateHomeBtn();
    auto* geode = new osg::Geode;
    geode->setName("viewDatumCubeHome");
    geode->setNodeMask(getCubePlaneMask());
    geode->addDrawable(m_homeQuad.get());
    geode->setUserData(new PlaneInfo);
    geode->setUserValue("can_not_set_rotate_center", true);
    geode->setUserValue("can_not_msg_rotate_center", true);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    ss->setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF);
    ss->setMode(GL_BLEND, osg::StateAttribute::ON);
    setBlendMode(ss);
    if (osg::Image* image = loadImage(":/images/FitNormal.png")) {
        auto* texture = new osg::Texture2D(image);
        texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
        texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
        texture->setResizeNonPowerOfTwoHint(false);
        ss->setTextureAttributeAndModes(0, texture, osg::StateAttribute::ON);
    }
    m_homeTransform->addChild(geode);
    m_planes["viewDatumCubeHome"] = geode;
}

osg::Node* ViewDatum::createAxisWithArrow(const osg::Vec3f& from, const osg::Vec3f& to,
                                          const osg::Vec4f& color)
{
    osg::Vec3f dir = to - from;
    const float length = dir.normalize();
    const float headLength = length * 0.2f, headRadius = length * 0.06f;
    const osg::Vec3f base = to - dir * headLength;
    osg::Vec3f u = dir ^ (std::abs(dir.x()) < 0.9f ? osg::X_AXIS : osg::Y_AXIS);
    u.normalize();
    const osg::Vec3f w = dir ^ u;

    osg::Geometry* line = newGeometry();
    auto* lv = new osg::Vec3Array;
    lv->push_back(from);
    lv->push_back(base);
    line->setVertexArray(lv);
    setOverallColor(line, color);
    line->addPrimitiveSet(new osg::DrawArrays(GL_LINES, 0, 2));
    line->getOrCreateStateSet()->setAttributeAndModes(new osg::LineWidth(2.0f));

    osg::Geometry* cone = newGeometry();
    auto* cv = new osg::Vec3Array;
    const int segments = 12;
    for (int i = 0; i < segments; ++i) {
        const float a0 = 2.0f * osg::PIf * i / segments, a1 = 2.0f * osg::PIf * (i + 1) / segments;
        const osg::Vec3f p0 = base + (u * std::cos(a0) + w * std::sin(a0)) * headRadius;
        const osg::Vec3f p1 = base + (u * std::cos(a1) + w * std::sin(a1)) * headRadius;
        for (const osg::Vec3f& p : {to, p0, p1, base, p1, p0})
            cv->push_back(p);
    }
    cone->setVertexArray(cv);
    setOverallColor(cone, color);
    cone->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, GLsizei(cv->size())));

    auto* geode = new osg::Geode;
    geode->setNodeMask(kNotClickable);
    geode->addDrawable(line);
    geode->addDrawable(cone);
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geode;
}

osg::Node* ViewDatum::createLabel(const std::string& text, const osg::Vec3f& position,
                                  const osg::Vec4f& color, int size)
{
    // `size` is in pixels at the reference width; the gizmo spans about 33 units of its
    // scene at z = 0 (45 degrees seen from 40 away).
    const float unitsPerPixel =
        2.0f * 40.0f * std::tan(osg::DegreesToRadians(22.5f)) / std::max(getWidthConst(), 1.0f);
    auto* label = new osgText::Text;
    setLabelFont(label);
    label->setCharacterSize(std::max(size, 1) * unitsPerPixel);
    label->setColor(color);
    label->setAlignment(osgText::TextBase::CENTER_CENTER);
    label->setText(text);
    auto* geode = new osg::Geode;
    geode->setName("Text");
    geode->addDrawable(label);
    auto* at = new osg::AutoTransform;
    at->setAutoRotateMode(osg::AutoTransform::ROTATE_TO_SCREEN);
    at->setPosition(position);
    at->setNodeMask(kNotClickable);
    at->addChild(geode);
    return at;
}

} // namespace Orvane
} // namespace Vorna
